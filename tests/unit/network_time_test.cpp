#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "apps/steps/network_time.h"
#include "tests/support/memory_registry.h"
#include "tests/unit/fake_system_clock.h"
#include "tests/unit/fake_platform.h"

namespace {

using corvo::test::FakeSystemClock;

constexpr std::int64_t kNow = 1700000000000000;  // microseconds

struct ClockCase {
  const char* name;
  const char* ptp_domain;
  int pmc_status;
  std::int64_t network_us;
  bool sets;
  std::string log;
};

class ClockDecision : public ::testing::TestWithParam<ClockCase> {};

TEST_P(ClockDecision, FollowsPtpStateAndTolerance) {
  const ClockCase& c = GetParam();
  corvo::test::MemoryRegistry registry;
  registry.Set("networking", "ptp_domain", c.ptp_domain);
  corvo::test::FakePlatform fake;
  fake.programs.Script("/bin/sh", {c.pmc_status});
  FakeSystemClock clock;

  testing::internal::CaptureStderr();
  corvo::SetClockFromNetworkTime(c.network_us * 1000 + 999, registry, fake.programs, clock);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), c.log);

  EXPECT_EQ(clock.sets, std::vector<std::int64_t>(c.sets ? 1 : 0, c.network_us));
  ASSERT_EQ(fake.programs.runs.size(), *c.ptp_domain == '\0' ? 0u : 1u);
  for (const auto& run : fake.programs.runs) {
    EXPECT_EQ(run.program, "/bin/sh");
    EXPECT_EQ(run.flags, 0x103u);
    const std::string pmc = "pmc -u -b 0 -d " + std::string(c.ptp_domain) +
                            " \"GET PORT_DATA_SET\" | grep -q -E \"SLAVE|UNCALIBRATED\"";
    EXPECT_EQ(run.args, (std::vector<std::string>{"-c", pmc}));
  }
}

const std::string kBigDifference =
    "Setting clock since we're not a PTP slave and difference is greater than two seconds.\n";
const std::string kSkip = "Skip changing the clock this time - it's too small a difference.\n";

INSTANTIATE_TEST_SUITE_P(
    Cases, ClockDecision,
    ::testing::Values(
        ClockCase{"no_ptp_tiny_difference", "", 0, kNow + 5, true,
                  "Setting system clock to 1700000000.000005\n"},
        ClockCase{"slave_domain_0", "0", 0, kNow + 5000000, false,
                  "Player is a PTP slave so not changing the clock.\n"},
        ClockCase{"not_slave_199999", "12", 1, kNow + 199999, false, kSkip},
        ClockCase{"not_slave_200000", "12", 1, kNow + 200000, true,
                  kBigDifference + "Setting system clock to 1700000000.200000\n"},
        ClockCase{"earlier_network_time", "12", 127, kNow - 200000, true,
                  kBigDifference + "Setting system clock to 1699999999.800000\n"},
        ClockCase{"earlier_within_tolerance", "12", 1, kNow - 199999, false, kSkip}),
    [](const ::testing::TestParamInfo<ClockCase>& param_info) {
      return std::string(param_info.param.name);
    });

TEST(ClockSetting, FailureIsReportedWithErrno) {
  corvo::test::MemoryRegistry registry;
  corvo::test::FakePlatform fake;
  FakeSystemClock clock;
  clock.set_error = EPERM;
  testing::internal::CaptureStderr();
  corvo::SetClockFromNetworkTime(std::int64_t{1600000000} * 1000000000, registry, fake.programs,
                                 clock);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Setting system clock to 1600000000.000000\n"
            "Unable to set system clock: (1) Operation not permitted\n");
}

class FailingRegistry : public corvo::test::MemoryRegistry {
 public:
  std::string Read(const std::string&, const std::string&) override {
    throw std::runtime_error("registry down");
  }
};

TEST(NetworkTimeThread, SetsTheClockFromTheSourceAndPassesRegistryErrors) {
  corvo::test::MemoryRegistry registry;
  FailingRegistry failing;
  corvo::test::FakePlatform fake;
  FakeSystemClock clock;
  const auto now = [] { return std::optional<std::int64_t>(kNow * 1000); };
  testing::internal::CaptureStderr();
  EXPECT_NO_THROW(corvo::NetworkTimeThread(now, registry, fake.programs, clock).Join());
  EXPECT_NO_THROW(corvo::NetworkTimeThread([] { return std::optional<std::int64_t>(); }, registry,
                                           fake.programs, clock)
                      .Join());
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(clock.sets, std::vector<std::int64_t>{kNow});
  EXPECT_THROW(corvo::NetworkTimeThread(now, failing, fake.programs, clock).Join(),
               std::runtime_error);
  EXPECT_EQ(clock.sets.size(), 1u);
}

TEST(SystemClock, TimeCountsAsSetOnlyFromTheBuildTimeOn) {
  const std::int64_t built = corvo::BuildTimeSeconds();
  const std::int64_t now = std::chrono::duration_cast<std::chrono::seconds>(
                               std::chrono::system_clock::now().time_since_epoch())
                               .count();
  EXPECT_GT(built, 1704067200);  // 2024-01-01
  EXPECT_LE(built, now + 86400);  // the compiler's local time may run ahead of UTC
  EXPECT_TRUE(corvo::GetSystemClock().TimeIsSet());
  EXPECT_NEAR(static_cast<double>(corvo::GetSystemClock().RealtimeMicroseconds()),
              static_cast<double>(now) * 1e6, 5e6);
}

}  // namespace
