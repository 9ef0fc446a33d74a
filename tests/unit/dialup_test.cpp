#include <sys/wait.h>

#include "apps/steps/dialup.h"
#include "lib/platform/system/detached_process.h"
#include "tests/unit/step_test.h"

namespace corvo::test {
namespace {

// The files' fixed lines and running pppd are the command tests'; here the stored values.
class Dialup : public StepTest {
 protected:
  Dialup() { world.files["/dev/modem"] = ""; }

  // ConfigureDialup's result and standard error.
  std::pair<int, std::string> Configure(int action) {
    const int result = ConfigureDialup(Context("ppp0"), static_cast<DialupAction>(action));
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
  std::string chat;  // the lines after ATZ; empty: nothing may be written
  std::string credentials;
  std::string error;
};

class DialupFiles : public Dialup, public ::testing::WithParamInterface<FilesCase> {};

TEST_P(DialupFiles, WritesBothFilesOrNeither) {
  const FilesCase& c = GetParam();
  Store(c.settings, ".omba2");
  const auto [result, log] = Configure(2);
  if (c.chat.empty()) {
    EXPECT_EQ(std::make_pair(result, log),
              std::make_pair(1, "Failed to configure dialup: " + c.error + "\n"));
    EXPECT_EQ(platform.Effects(), Lines{});  // no file, and pppd is left as it is
    return;
  }
  EXPECT_EQ(std::make_pair(result, log), std::make_pair(0, std::string()));
  const std::string& chat = world.files["/var/volatile/etc/ppp-chatscript"];
  EXPECT_EQ(chat.substr(chat.find("\"\" ATZ\n") + 7), c.chat + "CONNECT \"\"\n");
  EXPECT_NE(world.files["/etc/ppp/peers/peer"].find(c.credentials), std::string::npos);
}

const std::string kBadUser = "Dialup user contains invalid character";
const std::string kBadPassword = "Dialup password contains invalid character";
using F = FilesCase;

INSTANTIATE_TEST_SUITE_P(
    Cases, DialupFiles,
    ::testing::Values(
        F{"EmptyValues", {}, "OK ATDT\n", "\nuser ''\npassword ''\n", ""},
        F{"QuotesInPassword", {{"du", "me"}, {"dp", "say \"hi\" now"}}, "OK ATDT\n",
          "\nuser 'me'\npassword 'say \"hi\" now'\n", ""},
        F{"InitEscaped", {{"di", "AT&F \"x\\y\"\x7f\t\xc3\xa9~"}, {"dn", "1"}},
          "OK \"AT&F \\042x\\134y\\042\\177\\011\\303\\251~\"\nOK ATDT1\n", "", ""},
        F{"NewlineInUser", {{"du", "a\nb"}}, "", "", kBadUser},
        F{"UserBeforePassword", {{"du", "\r"}, {"dp", "'"}, {"dn", "x"}}, "", "", kBadUser},
        F{"PasswordBeforeNumber", {{"dp", "it's"}, {"dn", "x"}}, "", "", kBadPassword},
        F{"CarriageReturnInPassword", {{"dp", "a\r"}}, "", "", kBadPassword},
        F{"NumberWithDash", {{"dn", "5-1"}}, "", "", "Dialup number contains invalid character"},
        F{"LinkParameterNotNumber", {{"im", "ten"}}, "", "", "Invalid dialup link parameter"}),
    NameOf<FilesCase>);

struct ActionCase {
  const char* name;
  int action;
  const char* number;
  pid_t running;  // PID the PID file names, -1 for none
  Lines actions;
};

class DialupActions : public Dialup, public ::testing::WithParamInterface<ActionCase> {};

TEST_P(DialupActions, StopsAndStartsPppd) {
  Store({{"dn", GetParam().number}}, ".omba2");
  if (GetParam().running > 0) world.pid_files["/var/run/dialup.pid"] = GetParam().running;
  EXPECT_EQ(Configure(GetParam().action), std::make_pair(0, std::string()));
  EXPECT_EQ(Actions(), GetParam().actions);
}

const Lines kStop{"stop pppd of /var/run/dialup.pid: SIGTERM, SIGKILL after 5 s",
                  "remove /var/run/dialup.pid"};

INSTANTIATE_TEST_SUITE_P(Cases, DialupActions,
                         ::testing::Values(ActionCase{"StartWithoutNumber", 1, "", 77, {}},
                                           ActionCase{"StopNotRunning", 2, "1", -1, {}},
                                           ActionCase{"RestartWithoutNumber", 3, "", 77, kStop},
                                           ActionCase{"UnknownAction", 4, "1", 77, {}}),
                         NameOf<ActionCase>);

// A program that cannot be run ends the real launcher's child with 127.
TEST(DetachedProcess, FailedExecExitsWith127) {
  const pid_t pid = StartDetached({"/nonexistent/pppd"}, "/dev/null");
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 127) << status;
}

}  // namespace
}  // namespace corvo::test
