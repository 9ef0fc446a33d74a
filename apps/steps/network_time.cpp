#include "apps/steps/network_time.h"

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "lib/platform/system/sntp.h"
#include "lib/platform/system/spawn_process.h"

namespace corvo {

namespace {

// In a session of its own, with the kernel log as output and under the
// watchdog: pmc can hang on a silent network.
constexpr unsigned int kPmcFlags = SpawnProcess::kSystemToolFlags | SpawnProcess::kNewSession;

bool IsPtpSlave(int domain, Programs& programs) {
  const std::string command = fmt::format(
      "pmc -u -b 0 -d {} \"GET PORT_DATA_SET\" | grep -q -E \"SLAVE|UNCALIBRATED\"", domain);
  return programs.Run("/bin/sh", {"-c", command}, kPmcFlags) == 0;
}

}  // namespace

bool ClockIsSet(Platform& platform) {
  return platform.files.Exists(kClockSetMarker) || platform.system_clock.TimeIsSet();
}

int SetClock(Platform& platform, std::int64_t seconds, long microseconds) {
  const int error = platform.system_clock.SetRealtime(seconds, microseconds);
  // The time that was set, for whoever looks.
  if (error == 0) platform.files.Write(kClockSetMarker, std::to_string(seconds) + "\n");
  return error;
}

void SetClockFromNetworkTime(std::int64_t network_time_ns, Platform& platform) {
  SystemClock& clock = platform.system_clock;
  LogSink& log = platform.log;
  const std::int64_t network_us = network_time_ns / 1000;
  const std::int64_t now_us = clock.RealtimeMicroseconds();

  const std::string domain = platform.registry.Read("networking", "ptp_domain");
  if (!domain.empty()) {
    if (IsPtpSlave(std::stoi(domain, nullptr, 10), platform.programs)) {
      log.Print("Player is a PTP slave so not changing the clock.\n");
      return;
    }
    const std::int64_t difference = network_us > now_us ? network_us - now_us : now_us - network_us;
    if (difference <= kClockToleranceMicroseconds) {
      log.Print("Skip changing the clock this time - it's too small a difference.\n");
      return;
    }
    log.Print(
        "Setting clock since we're not a PTP slave and difference is greater than two seconds.\n");
  }

  const std::int64_t seconds = network_us / 1000000;
  const long microseconds = static_cast<long>(network_us % 1000000);
  // The whole value: long is 32 bits wide on the player.
  log.Print("Setting system clock to %lld.%06ld\n", static_cast<long long>(seconds), microseconds);
  const int error = SetClock(platform, seconds, microseconds);
  if (error != 0) log.Print("Unable to set system clock: (%d) %s\n", error, std::strerror(error));
}

std::optional<std::int64_t> ObtainNetworkTime(Platform& platform) {
  std::string server = platform.registry.Read("networking", "ntp_server");
  if (server.empty()) server = kDefaultNtpServer;
  const NetworkTimeResult result = platform.network_time.Query(server);
  if (!result.time_ns) platform.log.Print("linkrig: No network time: %s\n", result.error);
  return result.time_ns;
}

NetworkTimeThread::NetworkTimeThread(Platform& platform)
    : NetworkTimeThread([&platform] { return ObtainNetworkTime(platform); }, platform) {}

NetworkTimeThread::NetworkTimeThread(TimeSource source, Platform& platform)
    : m_thread([this, source = std::move(source), &platform] {
        try {
          const std::optional<std::int64_t> network_time = source();
          if (network_time) SetClockFromNetworkTime(*network_time, platform);
        } catch (...) {
          m_error = std::current_exception();
        }
      }) {}

NetworkTimeThread::~NetworkTimeThread() {
  if (m_thread.joinable()) m_thread.join();
}

void NetworkTimeThread::Join() {
  if (m_thread.joinable()) m_thread.join();
  if (m_error) std::rethrow_exception(std::exchange(m_error, nullptr));
}

}  // namespace corvo
