#include <stdexcept>

#include "apps/steps/interface_configuration.h"
#include "tests/unit/step_test.h"

namespace corvo::test {
namespace {

class InterfaceConfiguration : public StepTest {
 protected:
  InterfaceConfiguration() { world.ports = {"eth0"}; }

  // The link changes, the DHCP clients as "start IF"/"stop IF" and the
  // forwarding step as "forwarding".
  Lines Configure(const char* ifname, bool start) {
    ConfigureInterface(nullptr, Reader(ifname), ifname, start, platform);
    Lines steps;
    for (const std::string& line : platform.Effects()) {
      if (line.rfind("run /sbin/dhcpcd ", 0) == 0) {
        const bool stop = line.find(" -x ") != std::string::npos;
        steps.push_back((stop ? "stop " : "start ") + line.substr(line.rfind(' ') + 1));
      } else if (line == "run /sbin/iptables -t nat -F POSTROUTING") {
        steps.push_back("forwarding");
      } else if (line.rfind("link ", 0) == 0) {
        steps.push_back(line);
      }
    }
    return steps;
  }
};

// Existing VLANs go first, each client before its link; a stop starts none of the stored ones.
TEST_F(InterfaceConfiguration, StopTakesDownTheExistingVlansOnly) {
  world.vlans["eth0"] = {"eth0.12", "eth0.7"};
  Store({{"vlans", "12,0"}});
  EXPECT_EQ(Configure("eth0", false), (Lines{"stop eth0.12", "link delete eth0.12", "stop eth0.7",
                                             "link delete eth0.7", "stop eth0", "forwarding"}));
}

TEST_F(InterfaceConfiguration, FailedVlanReportedAndSkipped) {
  Store({{"vlans", "7,12,30"}});
  platform.before_effect = [](const std::string& effect) {
    if (effect.rfind("link add eth0.7 ", 0) == 0) throw std::runtime_error("no 802.1Q here");
  };
  // The VLAN reads its own section: a broken static address fails that VLAN only.
  Store({{"ip", "c0a8010a"}}, ".net.eth0.12");
  const Lines steps = Configure("eth0", true);
  EXPECT_EQ(platform.Log(),
            "Unable to configure VLAN 7 for eth0: no 802.1Q here\n"
            "Unable to configure VLAN 12 for eth0: Invalid static IP configuration\n");
  EXPECT_EQ(steps, (Lines{"link up eth0", "link add eth0.12 (VLAN 12 on eth0)",
                          "link add eth0.30 (VLAN 30 on eth0)", "start eth0.30", "forwarding"}));
}

TEST_F(InterfaceConfiguration, NonNumericVlanFailsWholeStep) {
  Store({{"vlans", "12,x"}});
  world.vlans["eth0"] = {"eth0.12"};
  EXPECT_THROW(Configure("eth0", true), std::invalid_argument);
  // The old VLAN is gone already; nothing else ran.
  EXPECT_EQ(platform.Effects().back(), "link delete eth0.12");
}

}  // namespace
}  // namespace corvo::test
