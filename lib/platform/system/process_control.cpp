#include "lib/platform/system/process_control.h"

#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "lib/platform/base/errno_exception.h"
#include "lib/platform/base/log.h"

namespace corvo {

namespace {

// The kernel keeps at most 15 characters of a command name.
constexpr std::size_t kCommandNameMax = 15;

// Reads a small /proc file whole; false with errno set when it can't.
bool ReadProcFile(const std::string& path, std::string& text) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    return false;
  }
  char chunk[512];
  ssize_t got;
  while ((got = read(fd, chunk, sizeof chunk)) > 0 || (got < 0 && errno == EINTR)) {
    if (got > 0) {
      text.append(chunk, static_cast<std::size_t>(got));
    }
  }
  const int err = errno;
  close(fd);
  errno = err;
  return got == 0;
}

pid_t NotRunning(const std::string& name) {
  Log("PID file exists but %s not running\n", name);
  errno = ESRCH;
  return -1;
}

}  // namespace

int KillProcessAndWait(pid_t pid, int signal, std::int64_t timeout_us) {
  // 0 and negative values address whole process groups, never one process.
  int sent = -1;
  if (pid > 0) {
    sent = kill(pid, signal);
  } else {
    errno = EINVAL;
  }
  if (sent != 0) {
    const int err = errno;
    Log("Failed to send signal %d to %d.\n", signal, pid);
    throw ErrnoException(err, "KillProcessAndWait");
  }
  using Clock = std::chrono::steady_clock;
  const Clock::time_point now = Clock::now();
  const auto room =
      std::chrono::duration_cast<std::chrono::microseconds>(Clock::time_point::max() - now);
  const Clock::time_point deadline =
      timeout_us >= room.count() ? Clock::time_point::max()
                                 : now + std::chrono::microseconds(timeout_us > 0 ? timeout_us : 0);
  while (Clock::now() < deadline && kill(pid, 0) == 0) {
    usleep(10000);
  }
  const int gone = kill(pid, 0);
  if (gone != 0) {
    return gone;
  }
  Log("PID %d didn't exit from signal %d. Trying harder.\n", pid, signal);
  return kill(pid, SIGKILL);
}

pid_t ReadPidFile(const std::string& path, const std::string& name) {
  std::FILE* file = std::fopen(path.c_str(), "re");
  if (!file) {
    errno = ENOENT;
    return -1;
  }
  unsigned long value = 0;
  const int fields = std::fscanf(file, "%lu", &value);
  std::fclose(file);
  // An empty, garbled or zero PID names no process ("%lu" also takes a sign).
  if (fields != 1 || value == 0 || value > static_cast<unsigned long>(INT_MAX)) {
    return NotRunning(name);
  }
  const pid_t pid = static_cast<pid_t>(value);
  std::string stat;
  if (!ReadProcFile("/proc/" + std::to_string(pid) + "/stat", stat)) {
    const int err = errno;
    Log("PID file exists but %s process does not exist: %s\n", name, std::strerror(err));
    errno = ESRCH;
    return -1;
  }
  // The command field is "(name)"; the closing parenthesis keeps "udhcpd"
  // from matching "udhcpd2".
  if (stat.find("(" + name.substr(0, kCommandNameMax) + ")") == std::string::npos) {
    return NotRunning(name);
  }
  return pid;
}

}  // namespace corvo
