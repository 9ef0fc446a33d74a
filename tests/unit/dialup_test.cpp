#include <string>
#include <sys/wait.h>
#include <vector>

#include "apps/steps/dialup.h"
#include "lib/platform/system/detached_process.h"
#include "tests/unit/step_test.h"

namespace corvo::test {
namespace {

const char kPid[] = "/var/run/dialup.pid";
const char kChat[] = "/var/volatile/etc/ppp-chatscript";
const char kPeer[] = "/etc/ppp/peers/peer";
const std::string kStart = "start /sbin/pppd call peer (detached, PID to /var/run/dialup.pid)";

std::string Join(const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

std::string Chat(const Lines& init_and_dial) {
  Lines lines{"ABORT BUSY",
              "ABORT VOICE",
              "ABORT \"NO CARRIER\"",
              "ABORT \"NO DIALTONE\"",
              "ABORT \"NO DIAL TONE\"",
              "ABORT \"ERROR\"",
              "\"\" ATZ"};
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

class Dialup : public StepTest {
 protected:
  Dialup() { world.files["/dev/modem"] = ""; }

  // ConfigureDialup's result and standard error.
  std::pair<int, std::string> Configure(int action) {
    const int result = ConfigureDialup("ppp0", static_cast<DialupAction>(action), platform);
    return {result, platform.Log()};
  }
  // What was done to pppd.
  Lines Actions() const {
    Lines actions;
    for (const std::string& line : platform.Effects()) {
      if (line.rfind("write ", 0) != 0) actions.push_back(line);
    }
    return actions;
  }
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
  Store(GetParam().settings, ".omba2");
  const auto [result, log] = Configure(2);
  if (GetParam().chat.empty()) {
    EXPECT_EQ(result, 1);
    EXPECT_EQ(log, "Failed to configure dialup: " + GetParam().error + "\n");
    EXPECT_TRUE(world.modes.empty());
    EXPECT_EQ(Actions(), Lines{});  // pppd is left as it is
    return;
  }
  EXPECT_EQ(result, 0);
  EXPECT_EQ(log, "");
  EXPECT_EQ(world.files[kChat], GetParam().chat);
  EXPECT_EQ(world.files[kPeer], GetParam().peer);
  // The peer file holds the password.
  EXPECT_EQ(world.modes[kChat], 0600u);
  EXPECT_EQ(world.modes[kPeer], 0600u);
}

const std::string kBadUser = "Dialup user contains invalid character";
const std::string kBadPassword = "Dialup password contains invalid character";

INSTANTIATE_TEST_SUITE_P(
    Cases, DialupFiles,
    ::testing::Values(
        FilesCase{"EmptyValues", {}, Chat({"OK ATDT"}), Peer(), ""},
        FilesCase{"NumberAndCredentials",
                  {{"dn", "0,555*1#"}, {"du", "me"}, {"dp", "say \"hi\" now"}},
                  Chat({"OK ATDT0,555*1#"}),
                  Peer("me", "say \"hi\" now"),
                  ""},
        FilesCase{"InitEscaped",
                  {{"di", "AT&F \"x\\y\"\x7f\t\xc3\xa9~"}, {"dn", "1"}},
                  Chat({"OK \"AT&F \\042x\\134y\\042\\177\\011\\303\\251~\"", "OK ATDT1"}),
                  Peer(),
                  ""},
        FilesCase{"NewlineInUser", {{"du", "a\nb"}}, "", "", kBadUser},
        FilesCase{"UserBeforePassword", {{"du", "\r"}, {"dp", "'"}, {"dn", "x"}}, "", "", kBadUser},
        FilesCase{"PasswordBeforeNumber", {{"dp", "it's"}, {"dn", "x"}}, "", "", kBadPassword},
        FilesCase{"CarriageReturnInPassword", {{"dp", "a\r"}}, "", "", kBadPassword},
        FilesCase{"NumberWithDash",
                  {{"dn", "555-1234"}},
                  "",
                  "",
                  "Dialup number contains invalid character"},
        FilesCase{
            "LinkParameterNotNumber", {{"im", "ten"}}, "", "", "Invalid dialup link parameter"}),
    NameOf<FilesCase>);

struct ActionCase {
  const char* name;
  int action;
  std::string number;
  pid_t running;  // PID the PID file names, -1 for none
  Lines actions;
};

class DialupActions : public Dialup, public ::testing::WithParamInterface<ActionCase> {};

TEST_P(DialupActions, StopsAndStartsPppd) {
  Store({{"dn", GetParam().number}}, ".omba2");
  if (GetParam().running > 0) world.pid_files[kPid] = GetParam().running;
  EXPECT_EQ(Configure(GetParam().action), std::make_pair(0, std::string()));
  EXPECT_EQ(Actions(), GetParam().actions);
}

const std::string kStop = "stop pppd of /var/run/dialup.pid: SIGTERM, SIGKILL after 5 s";

INSTANTIATE_TEST_SUITE_P(
    Cases, DialupActions,
    ::testing::Values(
        ActionCase{"Start", 1, "1", -1, {kStart}},
        ActionCase{
            "StartReplacesRunning", 1, "1", 77, {kStop, "remove /var/run/dialup.pid", kStart}},
        ActionCase{"StartWithoutNumber", 1, "", 77, {}},
        ActionCase{"Stop", 2, "1", 77, {kStop, "remove /var/run/dialup.pid"}},
        ActionCase{"StopNotRunning", 2, "1", -1, {}},
        ActionCase{
            "RestartReplacesRunning", 3, "1", 77, {kStop, "remove /var/run/dialup.pid", kStart}},
        ActionCase{"RestartWithoutNumber", 3, "", 77, {kStop, "remove /var/run/dialup.pid"}},
        ActionCase{"UnknownAction", 4, "1", 77, {}}),
    NameOf<ActionCase>);

TEST_F(Dialup, ModemStartCheck) {
  EXPECT_EQ(ModemStartCheck("ppp0", platform), 0);
  world.links.insert("ppp0");
  EXPECT_EQ(ModemStartCheck("ppp0", platform), 2);
  world.files.erase("/dev/modem");
  EXPECT_EQ(ModemStartCheck("ppp0", platform), 1);
  EXPECT_EQ(ConfigureDialup("ppp0", kDialupStop, platform), 1);
  EXPECT_EQ(platform.Log(), "linkrig: Interface already connected\nlinkrig: Modem not found\n");
}

// A program that cannot be run ends the real launcher's child with 127.
TEST(DetachedProcess, FailedExecExitsWith127) {
  const pid_t pid = StartDetached({"/nonexistent/pppd"}, "/dev/null");
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 127) << status;
}

}  // namespace
}  // namespace corvo::test
