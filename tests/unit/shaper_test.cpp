#include "apps/steps/shaper.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "lib/platform/interface_reader.h"
#include "tests/support/memory_registry.h"
#include "tests/unit/fake_platform.h"

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
  std::vector<int> tc_codes;
  std::vector<Words> runs;
  std::string log;
  int result;
};

class Shaper : public ::testing::TestWithParam<ShaperCase> {};

TEST_P(Shaper, RunsTcAndReports) {
  corvo::test::MemoryRegistry registry;
  registry.Set(".omba", "ir", GetParam().stored_rate);
  corvo::test::FakePlatform fake;
  fake.programs.Script("tc", GetParam().tc_codes);
  const corvo::PersistentNetworkConfig::InterfaceReader reader("eth0", registry);

  testing::internal::CaptureStderr();
  const int result = corvo::ConfigureShaper(reader, "eth0", GetParam().add, fake.programs);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), GetParam().log);

  std::vector<Words> runs;
  for (const auto& run : fake.programs.runs) {
    EXPECT_EQ(run.program, "tc");
    EXPECT_EQ(run.flags, 259u);
    runs.push_back(run.args);
  }
  EXPECT_EQ(runs, GetParam().runs);
  EXPECT_EQ(result != 0, GetParam().result != 0);
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
        C{"FilterFailsWithoutRollback", "f4240", true, {0, 2}, {kAddQdisc, kFilter1M},
          kAdding + kFailed + "filter: 2\n", -1}),
    [](const ::testing::TestParamInfo<ShaperCase>& case_info) { return case_info.param.name; });

TEST(ShaperFailures, NothingEscapes) {
  corvo::test::MemoryRegistry registry;
  registry.Set(".net.eth1", "ir", "64");
  const corvo::PersistentNetworkConfig::InterfaceReader reader("eth1", registry);
  corvo::test::FakePlatform fake;

  fake.programs.on_run = [](const corvo::test::ProgramRun&) {
    throw std::runtime_error("fork: out of memory");
  };
  testing::internal::CaptureStderr();
  EXPECT_NE(corvo::ConfigureShaper(reader, "eth1", true, fake.programs), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Adding inbound bandwidth shaping of 100bit/s for eth1\n"
            "ConfigureShaper failed: fork: out of memory\n");

  fake.programs.on_run = [](const corvo::test::ProgramRun&) { throw 42; };
  testing::internal::CaptureStderr();
  EXPECT_NO_THROW(corvo::ConfigureShaper(reader, "eth1", false, fake.programs));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Removing bandwidth shaper (if present) for eth1\n"
            "ConfigureShaper failed: unknown exception\n");
}

}  // namespace
