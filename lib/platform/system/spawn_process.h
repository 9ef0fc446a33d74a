#pragma once
// Runs one outside program with an explicit argument vector (never through a
// shell unless the vector names one): construct, Execute(flags), Wait().

#include <chrono>
#include <string>
#include <sys/types.h>
#include <termios.h>
#include <vector>

namespace corvo {

class SpawnProcess {
 public:
  // Bits 0-3 of the flags word: where the child's standard streams go.
  //   0: stdin a copy of ours, stdout and stderr inherited;
  //   1: as 0, after making our descriptor 0 a raw 115200 baud 8N1 line;
  //   2: stdin, stdout and stderr on /dev/null;
  //   3: stdin on /dev/null, stdout and stderr to the kernel log.
  static constexpr unsigned int kModeMask = 0xF;
  static constexpr unsigned int kInheritOutput = 0;
  static constexpr unsigned int kSerialConsole = 1;
  static constexpr unsigned int kNullOutput = 2;
  static constexpr unsigned int kKernelLogOutput = 3;
  static constexpr unsigned int kForeground = 0x10;  // own process group, terminal foreground
  static constexpr unsigned int kNewSession = 0x20;  // setsid instead of a process group
  static constexpr unsigned int kRestoreTerminal = 0x40;
  static constexpr unsigned int kStderrToStdout = 0x80;
  static constexpr unsigned int kWatchdog = 0x100;  // Wait aborts the process after 300 s
  static constexpr unsigned int kStdinPipe = 0x200;
  static constexpr unsigned int kCaptureOutput = 0x400;
  // Every program the steps run (Programs::Run): output to the kernel log, under the watchdog.
  static constexpr unsigned int kSystemToolFlags = kKernelLogOutput | kWatchdog;

  explicit SpawnProcess(std::string program, std::vector<std::string> args = {});
  ~SpawnProcess();
  SpawnProcess(const SpawnProcess&) = delete;
  SpawnProcess& operator=(const SpawnProcess&) = delete;

  void AddArgument(const std::string& arg);
  // The child drops to this user and group, keeping only CAP_NET_BIND_SERVICE.
  void SetIdentity(uid_t uid, gid_t gid, std::vector<gid_t> groups = {});

  // Starts the child and returns at once. Throws ErrnoException when a step on
  // this side fails; the child's own failures end in exit code 127.
  void Execute(unsigned int flags);
  // Waits for the child and returns its exit code; throws when it was killed
  // by a signal or ended abnormally.
  int Wait();

  pid_t Pid() const { return m_child_pid; }
  // Write end of the child's standard input (kStdinPipe), -1 when none. Wait
  // closes it first so the child sees end of file.
  int StdinFd() const { return m_stdin_fd; }
  void CloseStdin();
  // Everything the child wrote to standard output (kCaptureOutput).
  const std::string& CapturedOutput() const { return m_output; }

  static void SetWatchdogTimeoutForTesting(std::chrono::microseconds timeout);

 private:
  void ReadOutput();
  void RestoreTerminal();

  pid_t m_child_pid = 0;
  int m_stdin_fd = -1;
  int m_stdout_fd = -1;
  bool m_termios_valid = false;
  struct termios m_termios {};
  unsigned int m_flags = 0;
  uid_t m_uid = 0;
  gid_t m_gid = 0;
  bool m_change_identity = false;
  std::vector<gid_t> m_groups;
  std::string m_program;
  std::vector<std::string> m_args;
  std::string m_output;
};

}  // namespace corvo
