#include <gtest/gtest.h>

#include <map>
#include <string>
#include <sys/wait.h>
#include <vector>

#include "apps/steps/dialup.h"
#include "lib/platform/detached_process.h"
#include "tests/support/memory_registry.h"
#include "tests/unit/fake_platform.h"

namespace {

using Lines = std::vector<std::string>;
using Settings = std::map<std::string, std::string>;

const char kPid[] = "/var/run/dialup.pid";
const char kChat[] = "/var/volatile/etc/ppp-chatscript";
const char kPeer[] = "/etc/ppp/peers/peer";
const std::string kStart = "start-detached /sbin/pppd call peer > /var/run/dialup.pid";

std::string Join(const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

std::string Chat(const Lines& init_and_dial) {
  Lines lines{"ABORT BUSY", "ABORT VOICE", "ABORT \"NO CARRIER\"", "ABORT \"NO DIALTONE\"",
              "ABORT \"NO DIAL TONE\"", "ABORT \"ERROR\"", "\"\" ATZ"};
  lines.insert(lines.end(), init_and_dial.begin(), init_and_dial.end());
  lines.push_back("CONNECT \"\"");
  return Join(lines);
}

std::string Peer(const std::string& user = "", const std::string& password = "") {
  return Join({"/dev/modem", "115200",
               "connect \"/sbin/chat -s 2>/dev/kmsg -v -f /var/volatile/etc/ppp-chatscript\"",
               "noipdefault", "usepeerdns", "noauth", "user '" + user + "'",
               "password '" + password + "'", "nodetach", "unit 0", "logfile /dev/kmsg",
               "linkname peer", "lock", "persist", "holdoff 15", "maxfail 0", "ipparam 0"});
}

class Dialup : public ::testing::Test {
 protected:
  Dialup() { m_fake.files.contents["/dev/modem"] = ""; }

  void Store(const Settings& settings) {
    for (const auto& [key, value] : settings) m_registry.Set(".omba2", key, value);
  }
  // ConfigureDialup's result and standard error.
  std::pair<int, std::string> Configure(int action) {
    testing::internal::CaptureStderr();
    const int result = corvo::ConfigureDialup(
        "ppp0", action, m_fake, [this]() -> corvo::Registry& { return m_registry; });
    return {result, testing::internal::GetCapturedStderr()};
  }
  // The journal without the file writes.
  Lines Actions() const {
    Lines actions;
    for (const std::string& line : m_fake.journal) {
      if (line.rfind("create ", 0) != 0) actions.push_back(line);
    }
    return actions;
  }

  corvo::test::MemoryRegistry m_registry;
  corvo::test::FakePlatform m_fake;
};

struct FilesCase {
  const char* name;
  Settings settings;
  std::string chat;  // empty: nothing may be written
  std::string peer;
  std::string error;
};

class DialupFiles : public Dialup, public ::testing::WithParamInterface<FilesCase> {};

TEST_P(DialupFiles, WritesBothFilesOrNeither) {
  Store(GetParam().settings);
  const auto [result, log] = Configure(2);
  if (GetParam().chat.empty()) {
    EXPECT_EQ(result, 1);
    EXPECT_EQ(log, "Failed to configure dialup: " + GetParam().error + "\n");
    EXPECT_TRUE(m_fake.files.modes.empty());
    EXPECT_EQ(Actions(), Lines{});  // pppd is left as it is
    return;
  }
  EXPECT_EQ(result, 0);
  EXPECT_EQ(log, "");
  EXPECT_EQ(m_fake.files.contents[kChat], GetParam().chat);
  EXPECT_EQ(m_fake.files.contents[kPeer], GetParam().peer);
  // The peer file holds the password.
  EXPECT_EQ(m_fake.files.modes[kChat], 0600u);
  EXPECT_EQ(m_fake.files.modes[kPeer], 0600u);
}

const auto CaseName = [](const auto& case_info) { return std::string(case_info.param.name); };
const std::string kBadUser = "Dialup user contains invalid character";
const std::string kBadPassword = "Dialup password contains invalid character";

INSTANTIATE_TEST_SUITE_P(
    Cases, DialupFiles,
    ::testing::Values(
        FilesCase{"EmptyValues", {}, Chat({"OK ATDT"}), Peer(), ""},
        FilesCase{"NumberAndCredentials",
                  {{"dn", "0,555*1#"}, {"du", "me"}, {"dp", "say \"hi\" now"}},
                  Chat({"OK ATDT0,555*1#"}), Peer("me", "say \"hi\" now"), ""},
        FilesCase{"InitEscaped",
                  {{"di", "AT&F \"x\\y\"\x7f\t\xc3\xa9~"}, {"dn", "1"}},
                  Chat({"OK \"AT&F \\042x\\134y\\042\\177\\011\\303\\251~\"", "OK ATDT1"}),
                  Peer(), ""},
        FilesCase{"NewlineInUser", {{"du", "a\nb"}}, "", "", kBadUser},
        FilesCase{"UserBeforePassword", {{"du", "\r"}, {"dp", "'"}, {"dn", "x"}}, "", "", kBadUser},
        FilesCase{"PasswordBeforeNumber", {{"dp", "it's"}, {"dn", "x"}}, "", "", kBadPassword},
        FilesCase{"CarriageReturnInPassword", {{"dp", "a\r"}}, "", "", kBadPassword},
        FilesCase{"NumberWithDash", {{"dn", "555-1234"}}, "", "",
                  "Dialup number contains invalid character"},
        FilesCase{"LinkParameterNotNumber", {{"im", "ten"}}, "", "",
                  "Invalid dialup link parameter"}),
    CaseName);

struct ActionCase {
  const char* name;
  int action;
  std::string number;
  pid_t running;  // PID the PID file names, -1 for none
  Lines actions;
};

class DialupActions : public Dialup, public ::testing::WithParamInterface<ActionCase> {};

TEST_P(DialupActions, StopsAndStartsPppd) {
  Store({{"dn", GetParam().number}});
  if (GetParam().running > 0) m_fake.programs.pid_files[kPid] = GetParam().running;
  EXPECT_EQ(Configure(GetParam().action), std::make_pair(0, std::string()));
  EXPECT_EQ(Actions(), GetParam().actions);
  for (const auto& kill : m_fake.programs.kills) EXPECT_EQ(kill.timeout_us, 5000000);
}

const std::string kReadPid = "read-pid /var/run/dialup.pid pppd";

INSTANTIATE_TEST_SUITE_P(
    Cases, DialupActions,
    ::testing::Values(
        ActionCase{"Start", 1, "1", -1, {kReadPid, kStart}},
        ActionCase{"StartReplacesRunning", 1, "1", 77,
                   {kReadPid, "kill 77 15", "remove /var/run/dialup.pid", kStart}},
        ActionCase{"StartWithoutNumber", 1, "", 77, {}},
        ActionCase{"Stop", 2, "1", 77, {kReadPid, "kill 77 15", "remove /var/run/dialup.pid"}},
        ActionCase{"StopNotRunning", 2, "1", -1, {kReadPid}},
        ActionCase{"Restart", 3, "1", -1, {kReadPid, kReadPid, kStart}},
        ActionCase{"RestartWithoutNumber", 3, "", -1, {kReadPid}},
        ActionCase{"UnknownAction", 4, "1", 77, {}}),
    CaseName);

// A program that cannot be run ends the real launcher's child with 127.
TEST(DetachedProcess, FailedExecExitsWith127) {
  const pid_t pid = corvo::StartDetached({"/nonexistent/pppd"}, "/dev/null");
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 127) << status;
}

}  // namespace
