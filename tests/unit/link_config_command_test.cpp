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

namespace {

using Vars = std::map<std::string, std::string>;

using corvo::InterfaceReader;
using corvo::LedNetworkStatusObserver;

class EmptyRegistry : public corvo::Registry {
 public:
  std::string ReadAllJson() override { return "{}"; }
  void WriteJson(const std::string&) override {}
  std::string Read(const std::string& section, const std::string& key) override {
    return section == ".omba" && key == "forwarding" ? forwarding : "";
  }
  void Write(const std::string&, const std::string&, const std::string&) override {}
  bool KeyExists(const std::string&, const std::string&) override { return false; }
  bool SectionExists(const std::string&) override { return false; }
  void DeleteKey(const std::string&, const std::string&) override {}
  void DeleteSection(const std::string&) override {}
  void DeleteAll() override {}
  std::vector<std::string> SectionList() override { return {}; }
  std::map<std::string, std::string> KeyList(const std::string&) override { return {}; }
  void Flush() override {}

  std::string forwarding;
};

// Records the steps the front end runs, in order.
class RecordingSteps : public corvo::CommandSteps {
 public:
  std::unique_ptr<InterfaceReader> MakeReader(const std::string& ifname) override {
    Record("reader " + ifname);
    return std::make_unique<InterfaceReader>(ifname, registry);
  }
  int ModemStartCheck(const std::string& ifname) override {
    Record("modem-check " + ifname);
    return dialup_status;
  }
  int ConfigureDialup(const std::string& ifname, int action) override {
    Record("dialup " + ifname + " " + std::to_string(action));
    return dialup_status;
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
  bool CheckLink(const std::string& ifname) override {
    Record("checklink " + ifname);
    return link;
  }
  bool AnyNetworkPortHasLink() override {
    Record("host-link");
    return link;
  }
  void UpdateLed(LedNetworkStatusObserver* observer) override {
    Record("update-led " + observer->InterfaceName());
  }
  int HostForwardingMode() override {
    Record("forwarding-mode");
    return corvo::PersistentNetworkConfig::HostReader(registry).Forwarding();
  }
  void ConfigureNat(const std::string& ifname) override { Record("nat " + ifname); }

  void Record(const std::string& step) { steps.push_back(step); }
  void Check(LedNetworkStatusObserver* observer, const InterfaceReader& reader,
             const std::string& ifname) {
    ASSERT_NE(observer, nullptr);
    EXPECT_EQ(observer->InterfaceName(), ifname);
    EXPECT_EQ(reader.InterfaceName(), ifname);
  }

  EmptyRegistry registry;
  std::vector<std::string> steps;
  int dialup_status = 0;
  bool link = true;
  bool throw_in_interface = false;
};

struct DispatchCase {
  const char* ifname;
  const char* action;
  std::vector<std::string> steps;
  int status;
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
    ::testing::Values(
        DispatchCase{"ppp0", "init", V{"modem-check ppp0"}, 7},
        DispatchCase{"ppp0", "add", V{"modem-check ppp0"}, 7},
        DispatchCase{"wlan0", "init", V{}, 0}, DispatchCase{"host", "add", V{}, 0},
        DispatchCase{"ppp0", "remove", V{"dialup ppp0 2"}, 7},
        DispatchCase{"eth1", "remove", V{}, 0},
        DispatchCase{"host", "start", V{"host-forwarding apply"}, 0},
        DispatchCase{"ppp0", "start", V{"dialup ppp0 1"}, 7},
        DispatchCase{"eth0", "start",
                     V{"reader eth0", "initialise-wifi eth0", "interface eth0 stop",
                       "interface eth0 start", "shaper eth0 add"},
                     0},
        DispatchCase{"eth1", "start",
                     V{"reader eth1", "interface eth1 stop", "interface eth1 start",
                       "shaper eth1 add"},
                     0},
        DispatchCase{"host", "stop", V{}, 0}, DispatchCase{"ppp0", "stop", V{"dialup ppp0 2"}, 7},
        DispatchCase{"eth0", "stop", V{"reader eth0", "interface eth0 stop", "shaper eth0 remove"},
                     0},
        DispatchCase{"host", "reconfigure", V{"host-forwarding apply"}, 0},
        DispatchCase{"ppp0", "reconfigure", V{"dialup ppp0 3"}, 7},
        DispatchCase{"eth0", "reconfigure",
                     V{"reader eth0", "interface eth0 stop", "shaper eth0 remove",
                       "configure-wifi eth0", "interface eth0 start", "shaper eth0 add"},
                     0},
        DispatchCase{"eth1", "reconfigure",
                     V{"reader eth1", "interface eth1 stop", "shaper eth1 remove",
                       "interface eth1 start", "shaper eth1 add"},
                     0},
        DispatchCase{"host", "checklink", V{"host-link"}, 0},
        DispatchCase{"ppp0", "checklink", V{"checklink ppp0"}, 0},
        DispatchCase{"eth0", "update", V{"update-led eth0", "forwarding-mode"}, 0},
        DispatchCase{"wlan0", "frobnicate", V{}, 1}, DispatchCase{"eth0", "START", V{}, 1}),
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
    steps.registry.forwarding = mode;
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

TEST(Dispatch, EthernetRefusedWithoutTheFeatureForEveryAction) {
  const corvo::StaticBootEnvironment env(Vars{{"VL_HWFLAGS", "0"}});
  for (const char* action : {"init", "start", "stop", "checklink", "update", "bogus"}) {
    RecordingSteps steps;
    testing::internal::CaptureStdout();
    EXPECT_EQ(RunCommand(steps, env, {"eth0", action}), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Ethernet is not supported on this hardware.\n");
    EXPECT_TRUE(steps.steps.empty()) << action;
  }
}

TEST(Dispatch, WrongArgumentCountPrintsUsage) {
  const corvo::StaticBootEnvironment env;
  RecordingSteps steps;
  testing::internal::CaptureStderr();
  EXPECT_EQ(RunCommand(steps, env, {"eth0", "start", "extra"}), 1);
  EXPECT_EQ(RunCommand(steps, env, {}), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            std::string(corvo::kUsage) + corvo::kUsage);
  EXPECT_TRUE(steps.steps.empty());
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

TEST(InterfaceName, RefusesNamesTheKernelCouldNeverHave) {
  for (const char* good : {"eth0", "wlan0", "eth0.12", "host", "ppp0", "a", "abcdefghijklmno"}) {
    EXPECT_TRUE(corvo::IsUsableInterfaceName(good)) << good;
  }
  for (const char* bad :
       {"", ".", "..", "a/b", "x:y", "has space", "tab\there", "abcdefghijklmnop", "../x"}) {
    EXPECT_FALSE(corvo::IsUsableInterfaceName(bad)) << bad;
  }
}

}  // namespace
