#include "apps/steps/shaper.h"

#include <stdexcept>
#include <string>
#include <vector>

#include "tests/unit/step_test.h"

namespace corvo::test {
namespace {

using Words = std::vector<std::string>;

const Words kAddQdisc{"qdisc", "add", "dev", "eth0", "handle", "ffff:", "ingress"};
const Words kDelQdisc{"qdisc", "del", "dev", "eth0", "ingress"};
const Words kFilter1M{
    "filter", "add",     "dev",   "eth0",    "parent", "ffff:",  "protocol",  "ip",
    "prio",   "50",      "u32",   "match",   "ip",     "src",    "0.0.0.0/0", "police",
    "rate",   "1000000", "burst", "1000000", "drop",   "flowid", ":1"};

struct ShaperCase {
  const char* name;
  const char* stored_rate;
  bool add;
  std::deque<int> tc_codes;
  std::vector<Words> runs;
  std::string log;
  int result;
};

class Shaper : public StepTest, public ::testing::WithParamInterface<ShaperCase> {};

TEST_P(Shaper, RunsTcAndReports) {
  Store({{"ir", GetParam().stored_rate}});
  world.exit_codes["tc"] = GetParam().tc_codes;
  EXPECT_EQ(ConfigureShaper(Reader("eth0"), "eth0", GetParam().add, platform), GetParam().result);
  EXPECT_EQ(platform.Log(), GetParam().log);
  EXPECT_EQ(Runs("tc"), GetParam().runs);
  for (const auto& run : world.runs) EXPECT_EQ(run.flags, 259u);
}

const std::string kAdding = "Adding inbound bandwidth shaping of 1000000bit/s for eth0\n";
const std::string kRemoving = "Removing bandwidth shaper (if present) for eth0\n";
const std::string kNone = "No inbound bandwidth shaping on eth0\n";
const std::string kFailed = "ConfigureShaper failed: Shaper(eth0): Failed to add ";
using C = ShaperCase;

INSTANTIATE_TEST_SUITE_P(
    Cases, Shaper,
    ::testing::Values(
        C{"Add", "f4240", true, {}, {kAddQdisc, kFilter1M}, kAdding, 0},
        C{"NoRate", "0", true, {}, {}, kNone, 0}, C{"NoneStored", "-", true, {}, {}, kNone, 0},
        C{"Remove", "f4240", false, {}, {kDelQdisc}, kRemoving, 0},
        C{"RemoveWhenAbsent", "0", false, {2}, {kDelQdisc}, kRemoving, 0},
        C{"QdiscFails", "f4240", true, {2}, {kAddQdisc}, kAdding + kFailed + "qdisc: 2\n", -1},
        C{"TcMissing", "f4240", true, {127}, {kAddQdisc}, kAdding + kFailed + "qdisc: 127\n", -1},
        C{"FilterFailsWithoutRollback",
          "f4240",
          true,
          {0, 2},
          {kAddQdisc, kFilter1M},
          kAdding + kFailed + "filter: 2\n",
          -1}),
    NameOf<ShaperCase>);

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
