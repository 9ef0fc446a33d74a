#pragma once
// Stopping a process and finding a daemon through its PID file.

#include <cstdint>
#include <string>
#include <sys/types.h>

namespace corvo {

// Sends `signal` and waits up to timeout_us microseconds for the process to go;
// then sends SIGKILL once without waiting again. Returns the result of the last
// kill (-1 once the process is gone). Throws ErrnoException when the first
// signal can't be sent.
int KillProcessAndWait(pid_t pid, int signal, std::int64_t timeout_us);

// The PID recorded in `path` when a process called `name` runs under it;
// otherwise -1 with errno ENOENT (no PID file) or ESRCH (not running).
pid_t ReadPidFile(const std::string& path, const std::string& name);

}  // namespace corvo
