#include <cctype>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "apps/linkrig/interface_name.h"
#include "apps/linkrig/link_config_command.h"
#include "tests/unit/step_test.h"

namespace corvo::test {
namespace {

// The steps a run took, told by what they changed.
Lines Steps(const Lines& effects) {
  static const std::vector<std::pair<std::string, std::string>> kSteps = {
      {"run /sbin/dhcpcd ", "dhcp"},
      {"run tc qdisc add", "shaper add"},
      {"run tc qdisc del", "shaper remove"},
      {"run /sbin/iptables -t nat -F", "forwarding"},
      {"run /sbin/iptables -t nat -A", "nat"},
      {"supplicant", "supplicant"},
      {"write /var/volatile/etc/ppp-chatscript", "dialup"},
      {"write /sys/class/leds/", "led"},
  };
  Lines steps;
  for (const std::string& effect : effects) {
    for (const auto& [prefix, step] : kSteps) {
      if (effect.rfind(prefix, 0) != 0) continue;
      std::string word = step;
      if (step == "dhcp") {
        word = (effect.find(" -x ") != effect.npos ? "dhcp stop " : "dhcp start ") +
               effect.substr(effect.rfind(' ') + 1);
      }
      if (steps.empty() || steps.back() != word) steps.push_back(word);
    }
  }
  return steps;
}

class Command : public StepTest {
 protected:
  Command() {
    world.ports = {"eth0", "eth1", "wlan0"};
    world.files["/dev/modem"] = "";
    Store({{"dn", "1"}}, ".omba2");
    Store({{"ir", "64"}}, ".net.eth1");
    Store({{"ir", "64"}}, ".omba1");
  }
  int Run(std::vector<const char*> args, const BootEnvironment& environment = kEthernet) {
    args.insert(args.begin(), "linkrig");
    return LinkConfigCommand(environment, platform).Run(static_cast<int>(args.size()), args.data());
  }

  inline static const StaticBootEnvironment kEthernet{
      std::map<std::string, std::string>{{"VL_HWFLAGS", "0x10"}}};
};

struct DispatchCase {
  const char* ifname;
  const char* action;
  int status;
  Lines steps;
};

class Dispatch : public Command, public ::testing::WithParamInterface<DispatchCase> {};

TEST_P(Dispatch, RunsTheStepsInOrder) {
  EXPECT_EQ(Run({GetParam().ifname, GetParam().action}), GetParam().status) << platform.Log();
  EXPECT_EQ(Steps(platform.Effects()), GetParam().steps);
}

const Lines kStopEth1{"dhcp stop eth1", "forwarding"};
const Lines kStartEth1{"dhcp start eth1", "forwarding", "shaper add"};
Lines Join(Lines a, const Lines& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

INSTANTIATE_TEST_SUITE_P(
    Table, Dispatch,
    ::testing::ValuesIn(std::vector<DispatchCase>{
        {"ppp0", "init", 0, {"dialup"}},
        {"ppp0", "add", 0, {"dialup"}},
        {"wlan0", "init", 0, {}},
        {"host", "add", 0, {}},
        {"ppp0", "remove", 0, {"dialup"}},
        {"eth1", "remove", 0, {}},
        {"host", "start", 0, {"forwarding"}},
        {"ppp0", "start", 0, {"dialup"}},
        {"eth1", "start", 0, Join({"dhcp stop eth1", "forwarding"}, kStartEth1)},
        {"wlan0",
         "start",
         0,
         {"supplicant", "dhcp stop wlan0", "forwarding", "dhcp start wlan0", "forwarding",
          "shaper add"}},
        {"host", "stop", 0, {}},
        {"ppp0", "stop", 0, {"dialup"}},
        {"eth1", "stop", 0, Join(kStopEth1, {"shaper remove"})},
        {"host", "reconfigure", 0, {"forwarding"}},
        {"ppp0", "reconfigure", 0, {"dialup"}},
        {"eth1", "reconfigure", 0, Join(Join(kStopEth1, {"shaper remove"}), kStartEth1)},
        {"wlan0",
         "reconfigure",
         0,
         {"dhcp stop wlan0", "forwarding", "shaper remove", "supplicant", "dhcp start wlan0",
          "forwarding", "shaper add"}},
        {"host", "checklink", 1, {}},
        {"eth1", "update", 0, {}},
        {"wlan0", "frobnicate", 1, {}},
        {"eth0", "START", 1, {}}}),
    [](const auto& param_info) {
      std::string name = std::string(param_info.param.ifname) + "_" + param_info.param.action;
      for (auto& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
      return name;
    });

TEST_F(Command, UpdateRunsNatOnlyInNatModeOnTheDefaultRoute) {
  world.default_routes.insert("eth1");
  for (const auto& [mode, nat] : std::vector<std::pair<std::string, bool>>{
           {"2", true}, {"02", true}, {"1", false}, {"3", false}, {"", false}}) {
    platform.ClearEffects();
    Store({{"forwarding", mode}});
    EXPECT_EQ(Run({"eth1", "update"}), 0);
    EXPECT_EQ(Steps(platform.Effects()), nat ? Lines{"nat"} : Lines{}) << "forwarding " << mode;
  }
}

TEST_F(Command, EthernetRefusedAndLinkChecked) {
  const StaticBootEnvironment no_ethernet(std::map<std::string, std::string>{{"VL_HWFLAGS", "0"}});
  EXPECT_EQ(Run({"eth0", "checklink"}, no_ethernet), 1);
  world.links = {"eth1"};
  EXPECT_EQ(Run({"eth0", "checklink"}), 1);
  EXPECT_EQ(Run({"eth1", "checklink"}), 0);
  EXPECT_EQ(Run({"host", "checklink"}), 0);
  EXPECT_EQ(platform.Output(),
            "Ethernet is not supported on this hardware.\neth0: Link is down\neth1: Link is up\n");
  EXPECT_EQ(Run({"eth0"}), 1);
  EXPECT_EQ(platform.Log(), kUsage);
}

TEST_F(Command, EscapingExceptionGivesStatusTwo) {
  world.on_read = [](const std::string&, const std::string& key) {
    if (key == "vlans") throw std::runtime_error("registry went away");
  };
  EXPECT_EQ(Run({"eth1", "start"}), 2);
  EXPECT_EQ(platform.Log(), "linkrig: EXCEPTION: registry went away\n");
  EXPECT_EQ(Steps(platform.Effects()), Lines{});
}

// Bad names and the 15-character limit are run through the program itself.
TEST(InterfaceName, AcceptsVlanAndOneCharacterNames) {
  EXPECT_TRUE(IsUsableInterfaceName("eth0.12"));
  EXPECT_TRUE(IsUsableInterfaceName("a"));
  EXPECT_FALSE(IsUsableInterfaceName("../x"));
}

}  // namespace
}  // namespace corvo::test
