#pragma once
// Starting a daemon that outlives its starter and is found again through a PID file.

#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace corvo {

// Forks; the child writes its own PID to pid_file ("%ld", no newline), closes
// every descriptor, takes the kernel log (or the null device) as standard
// input, output and error, unblocks the process's signal set and executes
// argv[0] (a path, not searched along PATH) with argv. A failed exec ends the
// child with 127. Returns the child's PID at once, without waiting; throws
// ErrnoException("fork") when no child can be made.
pid_t StartDetached(const std::vector<std::string>& argv, const std::string& pid_file);

// Forks a child in a session of its own that closes every descriptor (so that the caller's
// locks stay the caller's), takes the kernel log as standard input, output and error, runs the
// task and exits. The child runs C++ code without an exec: only for a caller that has no other
// thread. Returns the child's PID at once; throws ErrnoException("fork").
pid_t StartDetachedTask(const std::function<void()>& task);

}  // namespace corvo
