#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fmt/printf.h>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "lib/platform/base/errno_exception.h"
#include "lib/platform/system/async_signals.h"
#include "lib/platform/system/process_control.h"
#include "lib/platform/system/spawn_process.h"
#include "tests/unit/private_kernel_log.h"

namespace {

using corvo::SpawnProcess;
using Clock = std::chrono::steady_clock;

// The PID of a process that has exited and been reaped.
pid_t GonePid() {
  SpawnProcess process("/bin/true");
  process.Execute(SpawnProcess::kNullOutput);
  process.Wait();
  return process.Pid();
}

// Waits until the process runs `name` (it has passed exec).
void AwaitComm(pid_t pid, const std::string& name) {
  const auto deadline = Clock::now() + std::chrono::seconds(10);
  for (;;) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/comm");
    std::string comm;
    if ((std::getline(in, comm) && comm == name) || Clock::now() > deadline) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

// Escalating to SIGKILL is the dial-up command test's, with a pppd that ignores SIGTERM.
TEST(KillProcessAndWaitErrorTest, MissingProcessThrows) {
  const pid_t pid = GonePid();
  testing::internal::CaptureStderr();
  EXPECT_THAT([pid] { corvo::KillProcessAndWait(pid, SIGTERM, 1000000); },
              testing::ThrowsMessage<corvo::ErrnoException>("KillProcessAndWait: No such process"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Failed to send signal 15 to " + std::to_string(pid) + ".\n");
}

TEST(KillProcessAndWaitDeathTest, GroupPidsAreRefused) {
  // In a group of its own, a wrongly accepted 0 would only hit the test child.
  EXPECT_EXIT(
      {
        setpgid(0, 0);
        try {
          corvo::KillProcessAndWait(0, SIGTERM, 0);
        } catch (const corvo::ErrnoException&) {
          std::_Exit(0);
        }
        std::_Exit(1);
      },
      testing::ExitedWithCode(0), "Failed to send signal 15 to 0.");
}

struct PidFileCase {
  const char* name;
  const char* content;  // nullptr: no file; "live": a running sleep; "gone": a reaped PID
  const char* process;  // the name asked for
  int error;            // errno with the -1 returned
  const char* message;  // %s: the name asked for
};

class ReadPidFileTest : public testing::TestWithParam<PidFileCase> {
 protected:
  void SetUp() override {
    m_daemon.Execute(SpawnProcess::kNullOutput);
    AwaitComm(m_daemon.Pid(), "sleep");
  }
  void TearDown() override {
    kill(m_daemon.Pid(), SIGKILL);
    EXPECT_THAT([this] { m_daemon.Wait(); }, testing::ThrowsMessage<std::runtime_error>(
                                                 "Child (/bin/sleep) exited with signal 9"));
    unlink(m_path.c_str());
  }
  SpawnProcess m_daemon{"/bin/sleep", {"30"}};
  const std::string m_path = testing::TempDir() + "pidfile_test." + std::to_string(getpid());
};

TEST_P(ReadPidFileTest, RefusesAllButALiveProcessOfTheName) {
  const PidFileCase& c = GetParam();
  unlink(m_path.c_str());
  if (c.content) {
    const std::string content = c.content;
    std::ofstream(m_path) << (content == "live"   ? std::to_string(m_daemon.Pid()) + "\n"
                              : content == "gone" ? std::to_string(GonePid()) + "\n"
                                                  : content);
  }
  testing::internal::CaptureStderr();
  const pid_t pid = corvo::ReadPidFile(m_path, c.process);
  const int error = errno;
  EXPECT_EQ(testing::internal::GetCapturedStderr(), fmt::sprintf(c.message, c.process));
  EXPECT_EQ(pid, -1);
  EXPECT_EQ(error, c.error);
}

// A live process of another name, or of the name, is the command tests'.
const char* const kNotRunning = "PID file exists but %s not running\n";

INSTANTIATE_TEST_SUITE_P(
    Cases, ReadPidFileTest,
    testing::Values(
        PidFileCase{"NoFile", nullptr, "sleep", ENOENT, ""},
        PidFileCase{"DeadProcess", "gone", "sleep", ESRCH,
                    "PID file exists but %s process does not exist: No such file or directory\n"},
        PidFileCase{"NamePrefix", "live", "slee", ESRCH, kNotRunning},
        PidFileCase{"Zero", "0\n", "sleep", ESRCH, kNotRunning},
        PidFileCase{"Garbage", "pid\n", "sleep", ESRCH, kNotRunning},
        PidFileCase{"Negative", "-1\n", "sleep", ESRCH, kNotRunning}),
    [](const testing::TestParamInfo<PidFileCase>& case_info) { return case_info.param.name; });

std::string ReadFile(const std::string& path) {
  std::ifstream in(path);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// What a forked child left: exit status, standard output and error, /dev/kmsg.
struct Outcome {
  int status = 0;
  std::string out, err, kmsg;
};

// Runs `body` in a forked child whose /dev/kmsg is a plain file and whose input is one line.
Outcome Isolated(const std::function<int()>& body) {
  std::string path = "/tmp/spawn_test.XXXXXX";
  if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("mkdtemp");
  std::ofstream(path + "/in") << "parent-stdin\n";
  for (const char* name : {"/out", "/err", "/kmsg"}) std::ofstream{path + name};
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    if (!corvo::KeepKernelLogPrivate((path + "/kmsg").c_str())) _exit(200);
    dup2(open((path + "/in").c_str(), O_RDONLY), 0);
    dup2(open((path + "/out").c_str(), O_WRONLY), 1);
    dup2(open((path + "/err").c_str(), O_WRONLY), 2);
    try {
      _exit(body());
    } catch (const std::exception& e) {
      std::fprintf(stderr, "exception: %s\n", e.what());
      std::fflush(stderr);
      _exit(201);
    }
  }
  int status = 0;
  EXPECT_EQ(waitpid(pid, &status, 0), pid);
  const Outcome outcome{status, ReadFile(path + "/out"), ReadFile(path + "/err"),
                        ReadFile(path + "/kmsg")};
  std::filesystem::remove_all(path);
  return outcome;
}

struct StreamCase {
  const char* name;
  const char* script;
  unsigned int flags;
  int status;
  const char* out;
  const char* err;
  const char* kmsg;
};

class SpawnStreamsTest : public testing::TestWithParam<StreamCase> {};

TEST_P(SpawnStreamsTest, ChildRunsWithTheStreamsAndGroupTheFlagsSay) {
  if (geteuid() != 0) GTEST_SKIP() << "a private /dev/kmsg needs root";
  const StreamCase& c = GetParam();
  // Forked, because the foreground flag also moves the caller into a new group.
  const Outcome result = Isolated([&c] {
    SpawnProcess process("/bin/sh", {"-c", c.script});
    process.Execute(c.flags);
    return process.Wait();
  });
  ASSERT_TRUE(WIFEXITED(result.status)) << result.status;
  EXPECT_EQ(WEXITSTATUS(result.status), c.status) << result.err;
  EXPECT_EQ(result.out, c.out);
  EXPECT_EQ(result.err, c.err);
  EXPECT_EQ(result.kmsg, c.kmsg);
}

// Exits with read's status: 1 when standard input is empty.
const char* const kEcho =
    "IFS= read -r line; rc=$?; echo \"in:$line\"; echo \"err:$line\" >&2; exit $rc";
const char* const kGroup =
    "read -r _ _ _ _ pgrp sid _ < /proc/$$/stat; [ $pgrp = $$ ] && echo group; "
    "[ $sid = $$ ] && echo session; true";

// The command tests run every tool with kSystemToolFlags, PATH, exec failures and hangs.
INSTANTIATE_TEST_SUITE_P(
    Flags, SpawnStreamsTest,
    testing::Values(
        StreamCase{"Inherited", kEcho, 0, 0, "in:parent-stdin\n", "err:parent-stdin\n", ""},
        StreamCase{"NullDevice", kEcho, SpawnProcess::kNullOutput, 1, "", "", ""},
        StreamCase{"KernelLog", kEcho, SpawnProcess::kKernelLogOutput, 1, "", "", "in:\nerr:\n"},
        StreamCase{"StderrToStdout", kEcho, SpawnProcess::kStderrToStdout, 0,
                   "in:parent-stdin\nerr:parent-stdin\n", "", ""},
        StreamCase{"Foreground", kGroup, SpawnProcess::kForeground, 0, "group\n", "", ""},
        StreamCase{"NewSession", kGroup, SpawnProcess::kNewSession, 0, "group\nsession\n", "", ""}),
    [](const testing::TestParamInfo<StreamCase>& case_info) { return case_info.param.name; });

class SpawnCaptureTest : public testing::TestWithParam<int> {};

TEST_P(SpawnCaptureTest, CapturesAllOutput) {
  const std::string size = std::to_string(GetParam());
  SpawnProcess process("/bin/sh",
                       {"-c", "head -c " + size + " /dev/zero | tr '\\0' x; echo e >&2"});
  process.Execute(SpawnProcess::kNullOutput | SpawnProcess::kCaptureOutput);
  EXPECT_EQ(process.Wait(), 0);
  EXPECT_EQ(process.CapturedOutput(), std::string(static_cast<std::size_t>(GetParam()), 'x'));
}

// Around the 1024-byte read size and beyond a pipe's 64 KiB buffer.
INSTANTIATE_TEST_SUITE_P(Sizes, SpawnCaptureTest, testing::Values(0, 1, 1024, 1025, 70000));

TEST(SpawnProcessTest, StdinPipeFeedsTheChild) {
  SpawnProcess process("/bin/cat");
  process.Execute(SpawnProcess::kNullOutput | SpawnProcess::kStdinPipe |
                  SpawnProcess::kCaptureOutput);
  ASSERT_EQ(write(process.StdinFd(), "first\nsecond\n", 13), 13);
  EXPECT_EQ(process.Wait(), 0);
  EXPECT_EQ(process.CapturedOutput(), "first\nsecond\n");
}

TEST(SpawnProcessTest, ChildStartsWithTheAsyncSignalsUnblocked) {
  const int signals[] = {SIGTERM, SIGINT, SIGHUP, SIGCHLD, SIGRTMIN + 1, SIGRTMIN + 2};
  corvo::ConfigureSignals(corvo::kBlockSignals);
  sigset_t blocked;
  pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  // Not through a shell: dash clears its signal mask when it starts.
  SpawnProcess process("grep", {"SigBlk", "/proc/self/status"});
  process.Execute(SpawnProcess::kNullOutput | SpawnProcess::kCaptureOutput);
  const int rc = process.Wait();
  corvo::ConfigureSignals(corvo::kUnblockSignals);
  unsigned long long child = 0;
  ASSERT_EQ(rc, 0);
  ASSERT_EQ(std::sscanf(process.CapturedOutput().c_str(), "SigBlk: %llx", &child), 1);
  for (const int signal : signals) {
    EXPECT_TRUE(sigismember(&blocked, signal)) << signal;
    EXPECT_EQ(child & (1ULL << (signal - 1)), 0u) << signal;
  }
}

TEST(SpawnProcessTest, ChangedIdentityKeepsOnlyBindService) {
  if (geteuid() != 0) GTEST_SKIP() << "changing identity needs root";
  SpawnProcess process("/bin/sh",
                       {"-c", "id -u; id -g; id -G; grep -E 'Cap(Eff|Amb)' /proc/self/status"});
  process.SetIdentity(65534, 65534, {65534});
  process.Execute(SpawnProcess::kNullOutput | SpawnProcess::kCaptureOutput);
  EXPECT_EQ(process.Wait(), 0);
  EXPECT_EQ(process.CapturedOutput(),
            "65534\n65534\n65534\nCapEff:\t0000000000000400\nCapAmb:\t0000000000000400\n");
}

}  // namespace
