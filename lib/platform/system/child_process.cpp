#include "lib/platform/system/child_process.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include "lib/platform/system/async_signals.h"

namespace corvo {

namespace {

void WriteAll(int fd, const char* text, std::size_t size) noexcept {
  while (size > 0) {
    const ssize_t written = write(fd, text, size);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    text += written;
    size -= static_cast<std::size_t>(written);
  }
}

void WriteText(int fd, const char* text) noexcept { WriteAll(fd, text, std::strlen(text)); }

// The reason for the failure goes to the kernel log, where the program's own
// output would have gone.
[[noreturn]] void Fail(const ChildPlan& plan, const char* step, int error) noexcept {
  const int kmsg = open("/dev/kmsg", O_WRONLY | O_CLOEXEC);
  if (kmsg >= 0) {
    dup2(kmsg, 2);
    close(kmsg);
  }
  const char* reason = strerrordesc_np(error);
  const struct iovec line[] = {
      {const_cast<char*>(plan.failure_prefix), std::strlen(plan.failure_prefix)},
      {const_cast<char*>(step), std::strlen(step)},
      {const_cast<char*>(": "), 2},
      {const_cast<char*>(reason != nullptr ? reason : "Unknown error"),
       std::strlen(reason != nullptr ? reason : "Unknown error")},
      {const_cast<char*>("\n"), 1},
  };
  const ssize_t ignored = writev(2, line, sizeof line / sizeof line[0]);
  static_cast<void>(ignored);
  _exit(127);
}

void CloseFrom(int first) noexcept {
#ifdef SYS_close_range
  if (syscall(SYS_close_range, static_cast<unsigned int>(first), ~0U, 0U) == 0) return;
#endif
  for (int fd = getdtablesize() - 1; fd >= first; --fd) close(fd);
}

void WritePid(const char* pid_file) noexcept {
  char text[24];
  const auto formatted = std::to_chars(text, text + sizeof text, static_cast<long>(getpid()));
  const int fd = open(pid_file, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return;
  WriteAll(fd, text, static_cast<std::size_t>(formatted.ptr - text));
  close(fd);
}

// The kernel log, or the null device, as the lowest free descriptor.
int OpenOutput(bool kernel_log) noexcept {
  int fd = kernel_log ? open("/dev/kmsg", O_RDWR) : -1;
  if (fd < 0) fd = open("/dev/null", O_RDWR);
  return fd;
}

// The signals the process keeps blocked are delivered again in the program.
int UnblockSignals() noexcept {
  sigset_t set;
  FillAsyncSignalSet(&set);
  return pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

}  // namespace

void DetachFromCaller() noexcept {
  CloseFrom(0);
  // The lowest free descriptor is 0 now.
  if (OpenOutput(true) == 0) {
    dup2(0, 1);
    dup2(0, 2);
  }
}

void TakeTerminalForeground() noexcept {
  struct sigaction ignore {};
  struct sigaction previous {};
  ignore.sa_handler = SIG_IGN;
  sigemptyset(&ignore.sa_mask);
  sigaction(SIGTTOU, &ignore, &previous);
  tcsetpgrp(0, getpgrp());
  sigaction(SIGTTOU, &previous, nullptr);
}

void RunChild(const ChildPlan& plan) noexcept {
  if (plan.die_with != 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0);
    // Ended already, before the request was made.
    if (getppid() != plan.die_with) _exit(127);
  }
  if (plan.pid_file != nullptr) WritePid(plan.pid_file);
  if (plan.detached) DetachFromCaller();
  if (plan.stdin_fd > 0) {
    if (dup2(plan.stdin_fd, 0) < 0) {
      const int error = errno;
      WriteText(2, "Failed to dup stdin: ");
      WriteText(2, strerrordesc_np(error) != nullptr ? strerrordesc_np(error) : "Unknown error");
      WriteText(2, "\n");
      _exit(1);
    }
    close(plan.stdin_fd);
  }
  if (plan.output != ChildPlan::Output::kInherit) {
    close(1);
    close(2);
    const int fd = OpenOutput(plan.output == ChildPlan::Output::kKernelLog);
    if (fd < 0) _exit(1);
    if (fd != 1) {
      dup2(fd, 1);
      close(fd);
    }
    dup2(1, 2);
  }
  if (plan.capture_write >= 0) {
    close(plan.capture_read);
    dup2(plan.capture_write, 1);
    close(plan.capture_write);
  }
  CloseFrom(3);
  const int fd_flags = fcntl(0, F_GETFD);
  if (fd_flags < 0 || fcntl(0, F_SETFD, fd_flags & ~FD_CLOEXEC) != 0) {
    Fail(plan, "fcntl pipe", errno);
  }
  if (plan.stderr_to_stdout) {
    close(2);
    dup2(1, 2);
  }
  if (plan.new_session) {
    if (setsid() < 0) Fail(plan, "setsid", errno);
  } else if (plan.new_group) {
    if (setpgid(0, 0) != 0) Fail(plan, "setpgid", errno);
  }
  if (plan.foreground) TakeTerminalForeground();
  if (plan.change_identity) {
    if (setgroups(plan.group_count, plan.groups) != 0) Fail(plan, "setgroups", errno);
    if (prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0) != 0) Fail(plan, "prctl", errno);
    if (setgid(plan.gid) != 0) Fail(plan, "setgid", errno);
    if (setuid(plan.uid) != 0) Fail(plan, "setuid", errno);
    if (cap_set_proc(plan.caps) != 0) Fail(plan, "cap_set_proc", errno);
    if (prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_NET_BIND_SERVICE, 0, 0) != 0) {
      Fail(plan, "PR_CAP_AMBIENT", errno);
    }
  }
  if (const int error = UnblockSignals()) Fail(plan, "pthread_sigmask", error);
  if (plan.search_path) {
    execvp(plan.program, plan.argv);
  } else {
    execv(plan.program, plan.argv);
  }
  Fail(plan, "exec", errno);
}

}  // namespace corvo
