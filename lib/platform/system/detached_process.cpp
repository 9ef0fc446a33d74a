#include "lib/platform/system/detached_process.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "lib/platform/base/assert.h"
#include "lib/platform/base/errno_exception.h"
#include "lib/platform/system/child_process.h"

namespace corvo {

pid_t StartDetached(const std::vector<std::string>& argv, const std::string& pid_file) {
  CORVO_ASSERT(!argv.empty());
  std::vector<char*> pointers;
  pointers.reserve(argv.size() + 1);
  for (const std::string& arg : argv) pointers.push_back(const_cast<char*>(arg.c_str()));
  pointers.push_back(nullptr);
  const std::string failure_prefix = "StartDetached child '" + argv[0] + "' failed: ";
  ChildPlan plan;
  plan.program = pointers[0];
  plan.argv = pointers.data();
  plan.search_path = false;
  plan.pid_file = pid_file.c_str();
  plan.detached = true;
  plan.failure_prefix = failure_prefix.c_str();
  const pid_t pid = fork();
  if (pid < 0) throw ErrnoException(errno, "fork");
  if (pid == 0) RunChild(plan);
  return pid;
}

pid_t StartDetachedTask(const std::function<void()>& task) {
  // The parent goes on once the child has closed its copies of every descriptor, this pipe's
  // among them: until then the child shares the parent's locks.
  int closed[2];
  if (pipe2(closed, O_CLOEXEC) != 0) throw ErrnoException(errno, "pipe");
  const pid_t pid = fork();
  if (pid < 0) {
    const int error = errno;
    close(closed[0]);
    close(closed[1]);
    throw ErrnoException(error, "fork");
  }
  if (pid != 0) {
    close(closed[1]);
    char byte;
    while (read(closed[0], &byte, 1) < 0 && errno == EINTR) {
    }
    close(closed[0]);
    return pid;
  }
  setsid();
  DetachFromCaller();
  try {
    task();
  } catch (...) {
    // The task reports its own failures; nothing may unwind into the caller's code.
  }
  std::fflush(nullptr);
  _exit(0);
}

}  // namespace corvo
