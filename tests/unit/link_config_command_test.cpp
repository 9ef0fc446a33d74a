#include "apps/linkrig/interface_name.h"
#include "apps/linkrig/link_config_command.h"
#include "tests/unit/step_test.h"

namespace corvo::test {
namespace {

class Command : public StepTest {
 protected:
  Command() {
    world.ports = {"eth0", "eth1", "wlan0"};
    Store({{"ir", "64"}}, ".net.eth1");
    Store({{"ir", "64"}}, ".omba1");
  }
  int Run(const char* ifname, const char* action) {
    const char* args[] = {"linkrig", ifname, action};
    return LinkConfigCommand(platform).Run(3, args);
  }
};

struct DispatchCase {
  const char* name;
  const char* ifname;
  const char* action;
  Lines steps;
};

class Dispatch : public Command, public ::testing::WithParamInterface<DispatchCase> {};

// The order of the steps; each step's own effects are pinned by its own tests.
TEST_P(Dispatch, RunsTheStepsInOrder) {
  EXPECT_EQ(Run(GetParam().ifname, GetParam().action), 0) << platform.Log();
  EXPECT_EQ(Steps(platform.Effects()), GetParam().steps);
}

const Lines kStop{"dhcp stop eth1", "forwarding", "shaper remove"};
const Lines kStart{"dhcp start eth1", "forwarding", "shaper add"};
const Lines kWlanStart{"dhcp start wlan0", "forwarding", "shaper add"};

INSTANTIATE_TEST_SUITE_P(
    Table, Dispatch,
    ::testing::Values(
        DispatchCase{"Eth1Start", "eth1", "start", Join({"dhcp stop eth1", "forwarding"}, kStart)},
        DispatchCase{"Eth1Stop", "eth1", "stop", kStop},
        DispatchCase{"Eth1Reconfigure", "eth1", "reconfigure", Join(kStop, kStart)},
        DispatchCase{"Wlan0Start", "wlan0", "start",
                     Join({"supplicant", "dhcp stop wlan0", "forwarding"}, kWlanStart)},
        DispatchCase{"Wlan0Reconfigure", "wlan0", "reconfigure",
                     Join({"dhcp stop wlan0", "forwarding", "shaper remove", "supplicant"},
                          kWlanStart)}),
    NameOf<DispatchCase>);

// NAT on an update in mode 2 is the NAT command test's; mode 1 only routes.
TEST_F(Command, UpdateRunsNoNatOutsideNatMode) {
  world.default_routes.insert("eth1");
  Store({{"forwarding", "1"}});
  EXPECT_EQ(Run("eth1", "update"), 0);
  EXPECT_EQ(Steps(platform.Effects()), Lines{});
}

// Bad names and the 15-character limit are run through the program itself.
TEST(InterfaceName, AcceptsOneCharacterNames) { EXPECT_TRUE(IsUsableInterfaceName("a")); }

}  // namespace
}  // namespace corvo::test
