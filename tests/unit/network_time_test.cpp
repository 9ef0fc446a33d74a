#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "apps/steps/network_time.h"
#include "lib/platform/system/real_os.h"
#include "tests/unit/step_test.h"

namespace corvo::test {
namespace {

constexpr std::int64_t kNow = 1700000000000000;  // microseconds

struct ClockCase {
  const char* name;
  const char* ptp_domain;
  int pmc_status;
  std::int64_t network_us;
  std::string log;  // the clock is set when it says so
};

class ClockDecision : public StepTest, public ::testing::WithParamInterface<ClockCase> {};

TEST_P(ClockDecision, FollowsPtpStateAndTolerance) {
  const ClockCase& c = GetParam();
  world.realtime_us = kNow;
  world.exit_codes["/bin/sh"] = {c.pmc_status};
  SetClockFromNetworkTime(c.network_us * 1000 + 999, c.ptp_domain, platform);
  EXPECT_EQ(platform.Log(), c.log);
  const bool sets = c.log.find("Setting system clock") != std::string::npos;
  EXPECT_EQ(world.realtime_us, sets ? c.network_us : kNow);
  // The query itself is run against a real ptp4l by the command tests.
  EXPECT_EQ(world.runs.size(), *c.ptp_domain == '\0' ? 0u : 1u);
}

const std::string kSet = "Setting system clock to ";
const std::string kBigDifference =
    "Setting clock since we're not a PTP slave and difference is greater than two seconds.\n" +
    kSet;
const std::string kSkip = "Skip changing the clock this time - it's too small a difference.\n";
const std::string kSlave = "Player is a PTP slave so not changing the clock.\n";

using C = ClockCase;
INSTANTIATE_TEST_SUITE_P(
    Cases, ClockDecision,
    ::testing::Values(
        C{"no_ptp_tiny_difference", "", 0, kNow + 5, kSet + "1700000000.000005\n"},
        C{"slave_domain_0", "0", 0, kNow + 5000000, kSlave},
        C{"not_slave_199999", "12", 1, kNow + 199999, kSkip},
        C{"not_slave_200000", "12", 1, kNow + 200000, kBigDifference + "1700000000.200000\n"},
        C{"earlier_network_time", "12", 127, kNow - 200000, kBigDifference + "1699999999.800000\n"},
        C{"earlier_within_tolerance", "12", 1, kNow - 199999, kSkip},
        // Past 2038, where a 32-bit long would wrap.
        C{"after_2038", "", 0, 2222222222000001, kSet + "2222222222.000001\n"}),
    NameOf<ClockCase>);

// A registry failure in the thread ends the run as any other would.
TEST_F(StepTest, NetworkTimeThreadSetsTheClockAndPassesRegistryErrors) {
  world.network_time = {kNow * 1000, ""};
  NetworkTimeThread(platform).Join();
  EXPECT_EQ(platform.Effects(),
            (Lines{"clock 1700000000.000000",
                   "write /var/run/linkrig-clock-set (mode 0644) \"1700000000\\n\"",
                   "write /var/run/linkrig-network-time (mode 0644) \"1700000000\\n\""}));
  world.on_read = [](const std::string&, const std::string&) {
    throw std::runtime_error("registry down");
  };
  EXPECT_THROW(NetworkTimeThread(platform).Join(), std::runtime_error);
}

// An update asks again only when no answer came since the device started, or the last one is
// old, or lies ahead of the clock.
TEST_F(StepTest, NetworkTimeIsDueWithoutARecentAnswer) {
  world.realtime_us = kNow;
  const std::int64_t now = kNow / 1000000;
  const std::pair<std::optional<std::string>, bool> cases[] = {
      {std::nullopt, true},
      {std::to_string(now - 3600) + "\n", false},
      {std::to_string(now - 6 * 3600 + 1) + "\n", false},
      {std::to_string(now - 6 * 3600) + "\n", true},
      {std::to_string(now + 60) + "\n", true},
      {"garbage", true},
  };
  for (const auto& [marker, due] : cases) {
    if (marker) world.files[kNetworkTimeMarker] = *marker; else world.files.erase(kNetworkTimeMarker);
    EXPECT_EQ(NetworkTimeIsDue(platform), due) << marker.value_or("(none)");
  }
}

TEST(SystemClock, TimeCountsAsSetOnlyFromTheBuildTimeOn) {
  const std::int64_t built = BuildTimeSeconds();
  const std::int64_t now = std::chrono::duration_cast<std::chrono::seconds>(
                               std::chrono::system_clock::now().time_since_epoch())
                               .count();
  EXPECT_GT(built, 1704067200);   // 2024-01-01
  EXPECT_LE(built, now + 86400);  // the compiler's local time may run ahead of UTC
  RealSystemClock clock;
  EXPECT_TRUE(clock.TimeIsSet());
  EXPECT_NEAR(static_cast<double>(clock.RealtimeMicroseconds()), static_cast<double>(now) * 1e6,
              5e6);
}

}  // namespace
}  // namespace corvo::test
