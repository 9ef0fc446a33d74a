#include "lib/platform/system/spawn_process.h"

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <memory>
#include <mutex>
#include <optional>
#include <pthread.h>
#include <stdexcept>
#include <sys/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "lib/platform/base/assert.h"
#include "lib/platform/system/child_process.h"
#include "lib/platform/base/errno_exception.h"
#include "lib/platform/base/log.h"

namespace corvo {

namespace {

// A stuck tc or iptables must never leave the configuration command hanging.
std::atomic<std::int64_t> s_watchdog_timeout_us{300000000};

void CloseFd(int& fd) noexcept {
  if (fd >= 0) {
    close(fd);
    fd = -1;
  }
}

// Closes a descriptor of the parent side unless it was handed on.
class FdGuard {
 public:
  FdGuard() = default;
  ~FdGuard() { CloseFd(m_fd); }
  FdGuard(const FdGuard&) = delete;
  FdGuard& operator=(const FdGuard&) = delete;
  void Reset(int fd) noexcept {
    CloseFd(m_fd);
    m_fd = fd;
  }
  int Get() const noexcept { return m_fd; }

 private:
  int m_fd = -1;
};

void MakePipe(int fds[2]) {
  if (pipe2(fds, O_CLOEXEC) != 0) {
    throw ErrnoException(errno, "pipe");
  }
}

// No caller uses mode 1; it makes descriptor 0 a raw 115200 baud 8N1 line.
void ConfigureSerialLine(int fd) {
  struct termios tio {};
  if (tcgetattr(fd, &tio) != 0) {
    throw ErrnoException(errno, "tcgetattr");
  }
  cfmakeraw(&tio);
  tio.c_cflag &= ~static_cast<tcflag_t>(CSTOPB | CRTSCTS | PARENB);
  tio.c_cflag |= CS8 | CLOCAL | CREAD;
  tio.c_cc[VMIN] = 1;
  tio.c_cc[VTIME] = 0;
  if (cfsetispeed(&tio, B115200) != 0 || cfsetospeed(&tio, B115200) != 0 ||
      tcsetattr(fd, TCSANOW, &tio) != 0) {
    throw ErrnoException(errno, "tcsetattr");
  }
}

struct CapFree {
  void operator()(cap_t caps) const noexcept { cap_free(caps); }
};

// The only privilege a lowered child keeps: binding ports below 1024.
cap_t CapabilitiesToKeep() {
  std::unique_ptr<std::remove_pointer_t<cap_t>, CapFree> caps(cap_init());
  if (!caps) throw ErrnoException(errno, "cap_init");
  cap_value_t bind_service[] = {CAP_NET_BIND_SERVICE};
  for (const cap_flag_t set : {CAP_PERMITTED, CAP_INHERITABLE, CAP_EFFECTIVE}) {
    if (cap_set_flag(caps.get(), set, 1, bind_service, CAP_SET) != 0) {
      throw ErrnoException(errno, "cap_set_flag");
    }
  }
  return caps.release();
}

// Guards one Wait: aborts the whole process when the child has not been
// reaped within the timeout.
class WaitWatchdog {
 public:
  WaitWatchdog(std::chrono::microseconds timeout, pid_t child)
      : m_thread([this, timeout, child] { Run(timeout, child); }) {}
  ~WaitWatchdog() {
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      m_done = true;
    }
    m_cv.notify_all();
    m_thread.join();
  }
  WaitWatchdog(const WaitWatchdog&) = delete;
  WaitWatchdog& operator=(const WaitWatchdog&) = delete;

 private:
  void Run(std::chrono::microseconds timeout, pid_t child) {
    pthread_setname_np(pthread_self(), "AbortOnTimeout");
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_cv.wait_for(lock, timeout, [this] { return m_done; })) {
      Log("Abort due to timeout on waitpid\n");
      // The stuck program goes too: the next run must not find it in its way.
      kill(child, SIGKILL);
      std::abort();
    }
  }

  std::mutex m_mutex;
  std::condition_variable m_cv;
  bool m_done = false;
  std::thread m_thread;  // last: started once the members above exist
};

}  // namespace

SpawnProcess::SpawnProcess(std::string program, std::vector<std::string> args)
    : m_program(std::move(program)), m_args(std::move(args)) {}

SpawnProcess::~SpawnProcess() {
  CloseFd(m_stdin_fd);
  CloseFd(m_stdout_fd);
}

void SpawnProcess::AddArgument(const std::string& arg) { m_args.push_back(arg); }

void SpawnProcess::SetIdentity(uid_t uid, gid_t gid, std::vector<gid_t> groups) {
  m_uid = uid;
  m_gid = gid;
  m_groups = std::move(groups);
  m_change_identity = true;
}

void SpawnProcess::CloseStdin() { CloseFd(m_stdin_fd); }

void SpawnProcess::SetWatchdogTimeoutForTesting(std::chrono::microseconds timeout) {
  s_watchdog_timeout_us = timeout.count();
}

void SpawnProcess::RestoreTerminal() {
  if ((m_flags & kRestoreTerminal) && m_termios_valid) {
    tcsetattr(0, TCSADRAIN, &m_termios);
  }
}

void SpawnProcess::Execute(unsigned int flags) {
  m_flags = flags;
  m_output.clear();
  std::vector<char*> argv(m_args.size() + 2, nullptr);
  std::size_t arg = 0;
  argv[arg++] = const_cast<char*>(m_program.c_str());
  for (const auto& a : m_args) {
    argv[arg++] = const_cast<char*>(a.c_str());
  }
  CORVO_ASSERT(arg == m_args.size() + 1);

  const unsigned int mode = flags & kModeMask;
  m_termios_valid = false;
  if (flags & kRestoreTerminal) {
    m_termios_valid = tcgetattr(0, &m_termios) == 0;
  }
  FdGuard child_stdin;
  FdGuard output_write;
  ChildPlan plan;
  std::unique_ptr<std::remove_pointer_t<cap_t>, CapFree> caps;
  const std::string failure_prefix = "SpawnProcess child '" + m_program + "' failed: ";
  pid_t pid = -1;
  try {
    if (mode == kSerialConsole) {
      ConfigureSerialLine(0);
    }
    if (flags & kForeground) {
      // Fails harmlessly when the caller already leads a session.
      setpgid(0, 0);
    }
    if (flags & kStdinPipe) {
      int fds[2];
      MakePipe(fds);
      child_stdin.Reset(fds[0]);
      CloseFd(m_stdin_fd);
      m_stdin_fd = fds[1];
    } else if (mode == kNullOutput || mode == kKernelLogOutput) {
      child_stdin.Reset(open("/dev/null", O_RDONLY | O_CLOEXEC));
      if (child_stdin.Get() < 0) {
        throw ErrnoException(errno, "/dev/null");
      }
    } else {
      child_stdin.Reset(fcntl(0, F_DUPFD_CLOEXEC, 3));
      if (child_stdin.Get() < 0) {
        // A caller without standard input gives the child the null device.
        child_stdin.Reset(open("/dev/null", O_RDONLY | O_CLOEXEC));
        if (child_stdin.Get() < 0) {
          throw ErrnoException(errno, "/dev/null");
        }
      }
    }
    if (flags & kCaptureOutput) {
      int fds[2];
      MakePipe(fds);
      output_write.Reset(fds[1]);
      CloseFd(m_stdout_fd);
      m_stdout_fd = fds[0];
    }
    // Everything the child needs, made before the fork.
    plan.program = m_program.c_str();
    plan.argv = argv.data();
    plan.stdin_fd = child_stdin.Get();
    plan.output = mode == kKernelLogOutput ? ChildPlan::Output::kKernelLog
                  : mode == kNullOutput    ? ChildPlan::Output::kNull
                                           : ChildPlan::Output::kInherit;
    plan.capture_write = output_write.Get();
    plan.capture_read = (flags & kCaptureOutput) ? m_stdout_fd : -1;
    plan.stderr_to_stdout = (flags & kStderrToStdout) != 0;
    plan.new_session = (flags & kNewSession) != 0;
    plan.new_group = (flags & kForeground) != 0;
    plan.foreground = (flags & kForeground) != 0;
    if (m_change_identity) {
      caps.reset(CapabilitiesToKeep());
      plan.change_identity = true;
      plan.uid = m_uid;
      plan.gid = m_gid;
      plan.groups = m_groups.data();
      plan.group_count = m_groups.size();
      plan.caps = caps.get();
    }
    plan.failure_prefix = failure_prefix.c_str();
    plan.die_with = getpid();
    pid = fork();
    if (pid < 0) {
      throw ErrnoException(errno, "fork");
    }
  } catch (...) {
    RestoreTerminal();
    throw;
  }
  if (pid == 0) RunChild(plan);
  m_child_pid = pid;
}

void SpawnProcess::ReadOutput() {
  char chunk[1024];
  for (;;) {
    const ssize_t got = read(m_stdout_fd, chunk, sizeof chunk);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      break;
    }
    m_output.append(chunk, static_cast<std::size_t>(got));
  }
}

int SpawnProcess::Wait() {
  CORVO_ASSERT(m_child_pid);
  // Nothing more can be written once the caller waits; the child needs EOF.
  CloseStdin();
  std::optional<WaitWatchdog> watchdog;
  if (m_flags & kWatchdog) {
    watchdog.emplace(std::chrono::microseconds(s_watchdog_timeout_us.load()), m_child_pid);
  }
  if ((m_flags & kCaptureOutput) && m_stdout_fd >= 0) {
    ReadOutput();
  }
  int status = 0;
  pid_t reaped;
  do {
    reaped = waitpid(m_child_pid, &status, 0);
  } while (reaped < 0 && errno == EINTR);
  if (reaped < 0) {
    throw ErrnoException(errno, "waitpid");
  }
  CloseFd(m_stdout_fd);
  if (m_flags & kForeground) {
    TakeTerminalForeground();
  }
  RestoreTerminal();
  if (WIFEXITED(status)) {
    return WEXITSTATUS(status);
  }
  if (WIFSIGNALED(status)) {
    throw std::runtime_error(
        fmt::sprintf("Child (%s) exited with signal %d", m_program, WTERMSIG(status)));
  }
  throw std::runtime_error(fmt::sprintf("Child (%s) exited abnormally", m_program));
}

}  // namespace corvo
