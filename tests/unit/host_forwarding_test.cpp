#include "apps/steps/host_forwarding.h"

#include <string>
#include <vector>

#include "tests/unit/step_test.h"

namespace corvo::test {
namespace {

const std::string kDelete = "run /sbin/iptables -t nat -D POSTROUTING -o eth0 -j MASQUERADE";
const std::string kAppend = "run /sbin/iptables -t nat -A POSTROUTING -o eth0 -j MASQUERADE";
const std::string kFlush = "run /sbin/iptables -t nat -F POSTROUTING";
const Lines kNat{"forwarding off", kDelete, kAppend, "forwarding on"};

class HostForwarding : public StepTest {
 protected:
  HostForwarding() {
    Store({{"hn", "player"}});
    world.host_name = "player";
    world.ports = {"eth0", "wlan0"};
  }
};

TEST_F(HostForwarding, NatOnlyOnTheDefaultRouteWithForwardingOffMeanwhile) {
  ConfigureNat("eth0", platform);
  EXPECT_EQ(platform.Log(), "Interface 'eth0' has no default route (yet).\n");
  EXPECT_TRUE(platform.Effects().empty());
  world.default_routes.insert("eth0");
  // iptables failing (a rule not there, or no iptables at all) changes nothing.
  world.exit_codes["/sbin/iptables"] = {1, 127};
  ConfigureNat("eth0", platform);
  EXPECT_EQ(platform.Log(),
            "Interface 'eth0' has no default route (yet).\n"
            "Interface 'eth0' has a default route.  Configuring it for NAT.\n");
  EXPECT_EQ(platform.Effects(), kNat);
}

struct ModeCase {
  const char* name;
  const char* stored;
  Lines after_flush;
};

class ForwardingMode : public HostForwarding, public ::testing::WithParamInterface<ModeCase> {};

TEST_P(ForwardingMode, AppliedAfterResetAndFlush) {
  Store({{"forwarding", GetParam().stored}});
  world.default_routes.insert("eth0");
  ConfigureHostForwarding(true, platform);
  Lines expected{"forwarding off", kFlush};
  expected.insert(expected.end(), GetParam().after_flush.begin(), GetParam().after_flush.end());
  EXPECT_EQ(platform.Effects(), expected);
  for (const auto& run : world.runs) EXPECT_EQ(run.flags, 259u);
}

using M = ModeCase;
INSTANTIATE_TEST_SUITE_P(StoredValues, ForwardingMode,
                         ::testing::Values(M{"Nat", "2", kNat}, M{"NatLeadingZero", "02", kNat},
                                           M{"Routing", "1", {"forwarding on"}}, M{"Off", "0", {}},
                                           M{"Three", "3", {}}, M{"Sixteen", "10", {}},
                                           M{"TrailingText", "2x", {}}, M{"Empty", "", {}}),
                         NameOf<ModeCase>);

// Only applying names the host, and does so first; resetting only flushes.
TEST_F(HostForwarding, ResetOnlyFlushesApplyNamesTheHostFirst) {
  Store({{"forwarding", "2"}, {"hn", "lobby-screen"}});
  world.default_routes.insert("eth0");
  ConfigureHostForwarding(false, platform);
  EXPECT_EQ(platform.Effects(), (Lines{"forwarding off", kFlush}));
  platform.ClearEffects();
  ConfigureHostForwarding(true, platform);
  Lines expected{"host name lobby-screen", "forwarding off", kFlush};
  expected.insert(expected.end(), kNat.begin(), kNat.end());
  EXPECT_EQ(platform.Effects(), expected);
}

TEST_F(HostForwarding, HostNameSetOnlyWhenTheBytesDiffer) {
  ApplyStoredHostName(platform);
  EXPECT_TRUE(platform.Effects().empty());
  for (const char* current : {"Player", "player ", "playe"}) {
    world.host_name = current;
    ApplyStoredHostName(platform);
  }
  EXPECT_EQ(platform.Effects(), Lines(3, "host name player"));
}

}  // namespace
}  // namespace corvo::test
