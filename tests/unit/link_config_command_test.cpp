#include <gtest/gtest.h>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "apps/linkrig/command_steps.h"
#include "apps/linkrig/interface_name.h"
#include "apps/linkrig/link_config_command.h"
#include "lib/hardware/led_status.h"
#include "lib/platform/interface_reader.h"
#include "tests/support/memory_registry.h"

namespace {

using Vars = std::map<std::string, std::string>;

using corvo::InterfaceReader;
using corvo::LedNetworkStatusObserver;
using corvo::PersistentNetworkConfig::HostReader;

// Records the steps the front end runs, in order.
class RecordingSteps : public corvo::CommandSteps {
 public:
  std::unique_ptr<InterfaceReader> MakeReader(const std::string& ifname) override {
    Record("reader " + ifname);
    return std::make_unique<InterfaceReader>(ifname, registry);
  }
  int ModemStartCheck(const std::string& ifname) override {
    return Record("modem-check " + ifname, dialup_status);
  }
  int ConfigureDialup(const std::string& ifname, int action) override {
    return Record("dialup " + ifname + " " + std::to_string(action), dialup_status);
  }
  void ConfigureHostForwarding(bool apply) override {
    Record(std::string("host-forwarding ") + (apply ? "apply" : "reset"));
  }
  void InitialiseWifi(LedNetworkStatusObserver* observer, const InterfaceReader& reader,
                      const std::string& ifname) override {
    Check(observer, reader, ifname);
    Record("initialise-wifi " + ifname);
  }
  void ConfigureWifiOrDot1x(LedNetworkStatusObserver* observer, const InterfaceReader& reader,
                            const std::string& ifname) override {
    Check(observer, reader, ifname);
    Record("configure-wifi " + ifname);
  }
  void ConfigureInterface(LedNetworkStatusObserver* observer, const InterfaceReader& reader,
                          const std::string& ifname, bool start) override {
    Check(observer, reader, ifname);
    Record("interface " + ifname + (start ? " start" : " stop"));
    if (throw_in_interface) throw std::runtime_error("registry went away");
  }
  void ConfigureShaper(const InterfaceReader& reader, const std::string& ifname,
                       bool add) override {
    EXPECT_EQ(reader.InterfaceName(), ifname);
    Record("shaper " + ifname + (add ? " add" : " remove"));
  }
  bool CheckLink(const std::string& ifname) override { return Record("checklink " + ifname, link); }
  bool AnyNetworkPortHasLink() override { return Record("host-link", link); }
  void UpdateLed(LedNetworkStatusObserver* observer) override {
    Record("update-led " + observer->InterfaceName());
  }
  int HostForwardingMode() override {
    return Record("forwarding-mode", HostReader(registry).Forwarding());
  }
  void ConfigureNat(const std::string& ifname) override { Record("nat " + ifname); }

  template <typename T = int>
  T Record(const std::string& step, T result = T()) {
    steps.push_back(step);
    return result;
  }
  void Check(LedNetworkStatusObserver* observer, const InterfaceReader& reader,
             const std::string& ifname) {
    ASSERT_NE(observer, nullptr);
    EXPECT_EQ(observer->InterfaceName(), ifname);
    EXPECT_EQ(reader.InterfaceName(), ifname);
  }

  corvo::test::MemoryRegistry registry;
  std::vector<std::string> steps;
  int dialup_status = 0;
  bool link = true;
  bool throw_in_interface = false;
};

struct DispatchCase {
  const char* ifname;
  const char* action;
  int status;
  std::vector<std::string> steps;
};

class DispatchTest : public ::testing::TestWithParam<DispatchCase> {};

int RunCommand(RecordingSteps& steps, const corvo::BootEnvironment& env,
               std::vector<const char*> args) {
  args.insert(args.begin(), "linkrig");
  return corvo::LinkConfigCommand(env, steps).Run(static_cast<int>(args.size()), args.data());
}

TEST_P(DispatchTest, RunsTheStepsInOrder) {
  const auto& c = GetParam();
  RecordingSteps steps;
  steps.dialup_status = 7;
  const corvo::StaticBootEnvironment env(Vars{{"VL_HWFLAGS", "0x10"}});
  EXPECT_EQ(RunCommand(steps, env, {c.ifname, c.action}), c.status);
  EXPECT_EQ(steps.steps, c.steps);
}

using V = std::vector<std::string>;
INSTANTIATE_TEST_SUITE_P(
    Table, DispatchTest,
    ::testing::ValuesIn(std::vector<DispatchCase>{
        {"ppp0", "init", 7, {"modem-check ppp0"}},
        {"ppp0", "add", 7, {"modem-check ppp0"}},
        {"wlan0", "init", 0, {}},
        {"host", "add", 0, {}},
        {"ppp0", "remove", 7, {"dialup ppp0 2"}},
        {"eth1", "remove", 0, {}},
        {"host", "start", 0, {"host-forwarding apply"}},
        {"ppp0", "start", 7, {"dialup ppp0 1"}},
        {"eth0", "start", 0, {"reader eth0", "initialise-wifi eth0", "interface eth0 stop",
                              "interface eth0 start", "shaper eth0 add"}},
        {"eth1", "start", 0,
         {"reader eth1", "interface eth1 stop", "interface eth1 start", "shaper eth1 add"}},
        {"host", "stop", 0, {}},
        {"ppp0", "stop", 7, {"dialup ppp0 2"}},
        {"eth0", "stop", 0, {"reader eth0", "interface eth0 stop", "shaper eth0 remove"}},
        {"host", "reconfigure", 0, {"host-forwarding apply"}},
        {"ppp0", "reconfigure", 7, {"dialup ppp0 3"}},
        {"eth0", "reconfigure", 0, {"reader eth0", "interface eth0 stop", "shaper eth0 remove",
                                    "configure-wifi eth0", "interface eth0 start",
                                    "shaper eth0 add"}},
        {"eth1", "reconfigure", 0, {"reader eth1", "interface eth1 stop", "shaper eth1 remove",
                                    "interface eth1 start", "shaper eth1 add"}},
        {"host", "checklink", 0, {"host-link"}},
        {"ppp0", "checklink", 0, {"checklink ppp0"}},
        {"eth0", "update", 0, {"update-led eth0", "forwarding-mode"}},
        {"wlan0", "frobnicate", 1, {}},
        {"eth0", "START", 1, {}}}),
    [](const auto& case_info) {
      std::string name = std::string(case_info.param.ifname) + "_" + case_info.param.action;
      for (auto& ch : name) {
        if (!isalnum(static_cast<unsigned char>(ch))) ch = '_';
      }
      return name;
    });

TEST(Dispatch, UpdateRunsNatOnlyInNatMode) {
  const corvo::StaticBootEnvironment env;
  for (const auto& [mode, nat] : std::vector<std::pair<std::string, bool>>{
           {"2", true}, {"02", true}, {"1", false}, {"3", false}, {"", false}}) {
    RecordingSteps steps;
    steps.registry.Set(".omba", "forwarding", mode);
    EXPECT_EQ(RunCommand(steps, env, {"host", "update"}), 0);
    const V expected = nat ? V{"update-led host", "forwarding-mode", "nat host"}
                           : V{"update-led host", "forwarding-mode"};
    EXPECT_EQ(steps.steps, expected) << "forwarding " << mode;
  }
}

TEST(Dispatch, LinkCheckStatus) {
  const corvo::StaticBootEnvironment env;
  RecordingSteps steps;
  steps.link = false;
  EXPECT_EQ(RunCommand(steps, env, {"eth0", "checklink"}), 1);
  EXPECT_EQ(RunCommand(steps, env, {"host", "checklink"}), 1);
}

TEST(Dispatch, EscapingExceptionGivesStatusTwo) {
  const corvo::StaticBootEnvironment env;
  RecordingSteps steps;
  steps.throw_in_interface = true;
  testing::internal::CaptureStderr();
  EXPECT_EQ(RunCommand(steps, env, {"eth1", "start"}), 2);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "linkrig: EXCEPTION: registry went away\n");
  EXPECT_EQ(steps.steps, (V{"reader eth1", "interface eth1 stop"}));
}

// Bad names and the 15-character limit are run through the program itself.
TEST(InterfaceName, AcceptsVlanAndOneCharacterNames) {
  EXPECT_TRUE(corvo::IsUsableInterfaceName("eth0.12"));
  EXPECT_TRUE(corvo::IsUsableInterfaceName("a"));
  EXPECT_FALSE(corvo::IsUsableInterfaceName("../x"));
}

}  // namespace
