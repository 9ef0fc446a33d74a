#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fmt/printf.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>

#include "lib/platform/base/errno_exception.h"
#include "lib/platform/system/process_control.h"
#include "lib/platform/system/spawn_process.h"

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

void PrintTo(const PidFileCase& c, std::ostream* os) { *os << c.name; }

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

}  // namespace
