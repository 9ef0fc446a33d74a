// The steps that set up a link and the host around it: VLANs, shaper, forwarding.

#include <stdexcept>

#include "apps/steps/host_forwarding.h"
#include "apps/steps/interface_configuration.h"
#include "apps/steps/shaper.h"
#include "tests/unit/step_test.h"

namespace corvo::test {
namespace {

class InterfaceConfiguration : public StepTest {
 protected:
  InterfaceConfiguration() { world.ports = {"eth0"}; }

  Lines Configure(const char* ifname, bool start) {
    ConfigureInterface(Context(ifname), start ? Phase::kStart : Phase::kStop);
    return Steps(platform.Effects());
  }
};

// Existing VLANs go first, each client before its link; a stop starts none of the stored ones.
TEST_F(InterfaceConfiguration, StopTakesDownTheExistingVlansOnly) {
  world.vlans["eth0"] = {"eth0.12", "eth0.7"};
  Store({{"vlans", "12,0"}});
  EXPECT_EQ(Configure("eth0", false),
            (Lines{"dhcp stop eth0.12", "link delete eth0.12", "dhcp stop eth0.7",
                   "link delete eth0.7", "dhcp stop eth0", "forwarding"}));
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
                          "link add eth0.30 (VLAN 30 on eth0)", "dhcp start eth0.30",
                          "forwarding"}));
}

TEST_F(InterfaceConfiguration, NonNumericVlanFailsWholeStep) {
  Store({{"vlans", "12,x"}});
  world.vlans["eth0"] = {"eth0.12"};
  EXPECT_THROW(Configure("eth0", true), std::invalid_argument);
  // The old VLAN is gone already; nothing else ran.
  EXPECT_EQ(platform.Effects().back(), "link delete eth0.12");
}

// What reaches tc is the command tests', with the real one; here what never does.
TEST_F(StepTest, ShaperWithoutARateRunsNothing) {
  for (const char* stored : {"0", "-"}) {
    Store({{"ir", stored}});
    ConfigureShaper(Context("eth0"), Phase::kStart);
  }
  EXPECT_EQ(platform.Log(),
            "No inbound bandwidth shaping on eth0\nNo inbound bandwidth shaping on eth0\n");
  EXPECT_TRUE(world.runs.empty());
}

TEST_F(StepTest, ShaperLetsNothingEscape) {
  Store({{"ir", "64"}}, ".net.eth1");
  platform.before_effect = [](const std::string&) { throw std::runtime_error("fork: no memory"); };
  ConfigureShaper(Context("eth1"), Phase::kStart);
  platform.before_effect = [](const std::string&) { throw 42; };
  ConfigureShaper(Context("eth1"), Phase::kStop);
  EXPECT_EQ(platform.Log(),
            "Adding inbound bandwidth shaping of 100bit/s for eth1\n"
            "ConfigureShaper failed: fork: no memory\n"
            "Removing bandwidth shaper (if present) for eth1\n"
            "ConfigureShaper failed: unknown exception\n");
}

const std::string kFlush = "run /sbin/iptables -t nat -F POSTROUTING";
const Lines kNat{"forwarding off", "run /sbin/iptables -t nat -D POSTROUTING -o eth0 -j MASQUERADE",
                 "run /sbin/iptables -t nat -A POSTROUTING -o eth0 -j MASQUERADE", "forwarding on"};

// The messages and the rules themselves are the command tests', with the real iptables.
class HostForwarding : public StepTest {
 protected:
  HostForwarding() {
    Store({{"hn", "player"}});
    world.host_name = "player";
    world.ports = {"eth0", "wlan0"};
    world.default_routes.insert("eth0");
  }
};

// iptables failing (a rule not there, or no iptables at all) changes nothing.
TEST_F(HostForwarding, NatGoesOnWhateverIptablesSays) {
  world.exit_codes["/sbin/iptables"] = {1, 127};
  ConfigureNat("eth0", platform);
  EXPECT_EQ(platform.Effects(), kNat);
}

// Only applying names the host, and does so first; resetting only flushes.
TEST_F(HostForwarding, ResetOnlyFlushesApplyNamesTheHostFirst) {
  Store({{"forwarding", "2"}, {"hn", "lobby-screen"}});
  ConfigureHostForwarding(Phase::kStop, platform);
  EXPECT_EQ(platform.Effects(), (Lines{"forwarding off", kFlush}));
  platform.ClearEffects();
  ConfigureHostForwarding(Phase::kStart, platform);
  EXPECT_EQ(platform.Effects(), Join({"host name lobby-screen", "forwarding off", kFlush}, kNat));
  // Without forwarding, applying is a reset too.
  Store({{"forwarding", "0"}});
  platform.ClearEffects();
  ConfigureHostForwarding(Phase::kStart, platform);
  EXPECT_EQ(platform.Effects(), (Lines{"forwarding off", kFlush}));
}

// A name that differs is set by the command tests.
TEST_F(HostForwarding, SameHostNameIsNotSetAgain) {
  ApplyStoredHostName(platform);
  EXPECT_TRUE(platform.Effects().empty());
}

}  // namespace
}  // namespace corvo::test
