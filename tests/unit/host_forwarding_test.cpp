#include "apps/steps/host_forwarding.h"

#include "tests/unit/step_test.h"

namespace corvo::test {
namespace {

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
  ConfigureHostForwarding(false, platform);
  EXPECT_EQ(platform.Effects(), (Lines{"forwarding off", kFlush}));
  platform.ClearEffects();
  ConfigureHostForwarding(true, platform);
  EXPECT_EQ(platform.Effects(), Join({"host name lobby-screen", "forwarding off", kFlush}, kNat));
  // Without forwarding, applying is a reset too.
  Store({{"forwarding", "0"}});
  platform.ClearEffects();
  ConfigureHostForwarding(true, platform);
  EXPECT_EQ(platform.Effects(), (Lines{"forwarding off", kFlush}));
}

// A name that differs is set by the command tests.
TEST_F(HostForwarding, SameHostNameIsNotSetAgain) {
  ApplyStoredHostName(platform);
  EXPECT_TRUE(platform.Effects().empty());
}

}  // namespace
}  // namespace corvo::test
