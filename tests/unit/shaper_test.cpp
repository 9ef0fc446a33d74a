#include "apps/steps/shaper.h"

#include <stdexcept>

#include "tests/unit/step_test.h"

namespace corvo::test {
namespace {

// What reaches tc is the command tests', with the real one; here what never does.
TEST_F(StepTest, ShaperWithoutARateRunsNothing) {
  for (const char* stored : {"0", "-"}) {
    Store({{"ir", stored}});
    EXPECT_EQ(ConfigureShaper(Reader("eth0"), "eth0", true, platform), 0);
  }
  EXPECT_EQ(platform.Log(),
            "No inbound bandwidth shaping on eth0\nNo inbound bandwidth shaping on eth0\n");
  EXPECT_TRUE(world.runs.empty());
}

TEST_F(StepTest, ShaperLetsNothingEscape) {
  Store({{"ir", "64"}}, ".net.eth1");
  platform.before_effect = [](const std::string&) { throw std::runtime_error("fork: no memory"); };
  EXPECT_EQ(ConfigureShaper(Reader("eth1"), "eth1", true, platform), -1);
  platform.before_effect = [](const std::string&) { throw 42; };
  EXPECT_EQ(ConfigureShaper(Reader("eth1"), "eth1", false, platform), -1);
  EXPECT_EQ(platform.Log(),
            "Adding inbound bandwidth shaping of 100bit/s for eth1\n"
            "ConfigureShaper failed: fork: no memory\n"
            "Removing bandwidth shaper (if present) for eth1\n"
            "ConfigureShaper failed: unknown exception\n");
}

}  // namespace
}  // namespace corvo::test
