#pragma once
// What a child does between fork and exec, for every program linkrig starts.
// Everything it needs is prepared before the fork: the child neither allocates
// nor throws, since another thread may have held the allocator's or a stream's
// lock at the moment of the fork.

#include <cstddef>
#include <sys/capability.h>
#include <sys/types.h>

namespace corvo {

struct ChildPlan {
  enum class Output { kInherit, kNull, kKernelLog };

  const char* program = nullptr;  // argv[0]; searched along PATH when search_path
  char* const* argv = nullptr;
  bool search_path = true;

  // Detached: its own PID goes to pid_file ("%ld", no newline), every
  // descriptor is closed and the kernel log (or the null device) becomes
  // standard input, output and error.
  const char* pid_file = nullptr;
  bool detached = false;

  int stdin_fd = -1;  // becomes descriptor 0 unless it is 0 already or -1
  Output output = Output::kInherit;
  int capture_write = -1;  // becomes descriptor 1 (captured output)
  int capture_read = -1;   // the parent's end, closed in the child
  bool stderr_to_stdout = false;

  // The program is killed when linkrig ends before it: a run that is killed
  // leaves nothing of its own to act after the next run has begun.
  pid_t die_with = 0;

  bool new_session = false;
  bool new_group = false;
  bool foreground = false;  // the child's group becomes the terminal's foreground group

  // Lowered identity; caps (made before the fork) are what it keeps.
  bool change_identity = false;
  uid_t uid = 0;
  gid_t gid = 0;
  const gid_t* groups = nullptr;
  std::size_t group_count = 0;
  cap_t caps = nullptr;

  // Failures print this, the failed step and the reason, then exit with 127.
  const char* failure_prefix = "";
};

// Runs the plan in a freshly forked child; never returns.
[[noreturn]] void RunChild(const ChildPlan& plan) noexcept;

// What a detached child does first: every descriptor closed, then the kernel log (or the null
// device) as standard input, output and error.
void DetachFromCaller() noexcept;

// Makes the caller's process group the terminal's foreground group.
void TakeTerminalForeground() noexcept;

}  // namespace corvo
