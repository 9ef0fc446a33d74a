#include "apps/steps/host_forwarding.h"

#include <string>
#include <vector>

#include "tests/unit/step_test.h"

namespace corvo::test {
namespace {

const std::string kFlush = "run /sbin/iptables -t nat -F POSTROUTING";
const Lines kNat{"forwarding off", "run /sbin/iptables -t nat -D POSTROUTING -o eth0 -j MASQUERADE",
                 "run /sbin/iptables -t nat -A POSTROUTING -o eth0 -j MASQUERADE", "forwarding on"};

// The messages and the rules themselves are pinned by the command tests with
// the real iptables.
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

struct ModeCase {
  const char* name;
  const char* stored;
  Lines after_flush;
};

class ForwardingMode : public HostForwarding, public ::testing::WithParamInterface<ModeCase> {};

TEST_P(ForwardingMode, AppliedAfterResetAndFlush) {
  Store({{"forwarding", GetParam().stored}});
  ConfigureHostForwarding(true, platform);
  Lines expected{"forwarding off", kFlush};
  expected.insert(expected.end(), GetParam().after_flush.begin(), GetParam().after_flush.end());
  EXPECT_EQ(platform.Effects(), expected);
}

using M = ModeCase;
INSTANTIATE_TEST_SUITE_P(StoredValues, ForwardingMode,
                         ::testing::Values(M{"NatLeadingZero", "02", kNat}, M{"Off", "0", {}},
                                           M{"Three", "3", {}}, M{"Sixteen", "10", {}},
                                           M{"TrailingText", "2x", {}}, M{"Empty", "", {}}),
                         NameOf<ModeCase>);

// Only applying names the host, and does so first; resetting only flushes.
TEST_F(HostForwarding, ResetOnlyFlushesApplyNamesTheHostFirst) {
  Store({{"forwarding", "2"}, {"hn", "lobby-screen"}});
  ConfigureHostForwarding(false, platform);
  EXPECT_EQ(platform.Effects(), (Lines{"forwarding off", kFlush}));
  platform.ClearEffects();
  ConfigureHostForwarding(true, platform);
  EXPECT_EQ(platform.Effects().front(), "host name lobby-screen");
}

TEST_F(HostForwarding, HostNameSetOnlyWhenTheBytesDiffer) {
  ApplyStoredHostName(platform);
  EXPECT_TRUE(platform.Effects().empty());
  for (const char* current : {"player ", "playe"}) {
    world.host_name = current;
    ApplyStoredHostName(platform);
  }
  EXPECT_EQ(platform.Effects(), Lines(2, "host name player"));
}

}  // namespace
}  // namespace corvo::test
