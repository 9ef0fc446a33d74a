#include "lib/platform/detached_process.h"

#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <unistd.h>

#include "lib/platform/assert.h"
#include "lib/platform/async_signals.h"
#include "lib/platform/errno_exception.h"

namespace corvo {

namespace {

// Between fork and exec only async-signal-safe calls: no allocation, no stdio.
void WritePid(const char* pid_file) {
  char text[24];
  const auto formatted = std::to_chars(text, text + sizeof text, static_cast<long>(getpid()));
  const int fd = open(pid_file, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return;
  const char* next = text;
  while (next < formatted.ptr) {
    const ssize_t written = write(fd, next, static_cast<std::size_t>(formatted.ptr - next));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) break;
    next += written;
  }
  close(fd);
}

void CloseAllDescriptors() {
  const int limit = getdtablesize();
  // One call where the kernel has it; a loop over a large table takes long.
  if (limit > 0 && close_range(0, static_cast<unsigned int>(limit - 1), 0) == 0) return;
  for (int fd = 0; fd < limit; ++fd) close(fd);
}

[[noreturn]] void RunChild(const char* pid_file, char* const argv[]) {
  WritePid(pid_file);
  CloseAllDescriptors();
  // The lowest free descriptor is 0 now.
  int fd = open("/dev/kmsg", O_RDWR);
  if (fd < 0) fd = open("/dev/null", O_RDWR);
  if (fd == 0) {
    int copy = dup(0);
    if (copy == 1) copy = dup(0);
    static_cast<void>(copy);
  }
  ConfigureSignals(kUnblockSignals);
  execv(argv[0], argv);
  _exit(127);
}

}  // namespace

pid_t StartDetached(const std::vector<std::string>& argv, const std::string& pid_file) {
  CORVO_ASSERT(!argv.empty());
  // Built before the fork: the child must not allocate.
  std::vector<char*> pointers;
  pointers.reserve(argv.size() + 1);
  for (const std::string& arg : argv) pointers.push_back(const_cast<char*>(arg.c_str()));
  pointers.push_back(nullptr);
  const pid_t pid = fork();
  if (pid < 0) throw ErrnoException(errno, "fork");
  if (pid == 0) RunChild(pid_file.c_str(), pointers.data());
  return pid;
}

}  // namespace corvo
