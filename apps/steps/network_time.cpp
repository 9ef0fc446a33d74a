#include "apps/steps/network_time.h"

#include <cstdlib>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "lib/platform/base/errno_exception.h"
#include "lib/platform/settings/interface_reader.h"

namespace corvo {

namespace {

bool IsPtpSlave(int domain, Programs& programs) {
  const std::string command = fmt::format(
      "pmc -u -b 0 -d {} \"GET PORT_DATA_SET\" | grep -q -E \"SLAVE|UNCALIBRATED\"", domain);
  // In a session of its own, under the watchdog: pmc can hang on a silent network.
  ProgramOptions options;
  options.new_session = true;
  return programs.Run("/bin/sh", {"-c", command}, options) == 0;
}

// The markers are read by later runs: written whole, and a failure is said but changes
// nothing else.
void WriteMarker(Platform& platform, const char* path, std::int64_t seconds) {
  try {
    platform.files.Replace(path, std::to_string(seconds) + "\n", 0644);
  } catch (const std::exception& e) {
    platform.log.Print("linkrig: %s\n", e.what());
  }
}

}  // namespace

bool ClockIsSet(Platform& platform) {
  return platform.files.Exists(kClockSetMarker) || platform.system_clock.TimeIsSet();
}

void SetClock(Platform& platform, std::int64_t seconds, long microseconds) {
  try {
    platform.system_clock.SetRealtime(seconds, microseconds);
  } catch (const ErrnoException& e) {
    platform.log.Print("Unable to set system clock: (%d) %s\n", e.Errno(),
                       std::strerror(e.Errno()));
    return;
  }
  // The time that was set, for whoever looks.
  WriteMarker(platform, kClockSetMarker, seconds);
}

void SetClockFromNetworkTime(std::int64_t network_time_ns, const std::string& ptp_domain,
                             Platform& platform) {
  SystemClock& clock = platform.system_clock;
  LogSink& log = platform.log;
  const std::int64_t network_us = network_time_ns / 1000;
  const std::int64_t now_us = clock.RealtimeMicroseconds();

  if (!ptp_domain.empty()) {
    if (IsPtpSlave(std::stoi(ptp_domain, nullptr, 10), platform.programs)) {
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
  SetClock(platform, seconds, microseconds);
}

NetworkTimeSettings ReadNetworkTimeSettings(Platform& platform) {
  const PersistentNetworkConfig::NetworkingReader networking(platform.settings);
  NetworkTimeSettings settings;
  settings.server = networking.TimeServer();
  settings.ptp_domain = networking.PtpDomain();
  return settings;
}

void SetClockFromTimeServer(const NetworkTimeSettings& settings, Platform& platform) {
  const NetworkTimeResult result = platform.network_time.Query(settings.server);
  if (!result.time_ns) {
    platform.log.Print("linkrig: No network time: %s\n", result.error);
    return;
  }
  SetClockFromNetworkTime(*result.time_ns, settings.ptp_domain, platform);
  WriteMarker(platform, kNetworkTimeMarker, *result.time_ns / 1000000000);
}

bool NetworkTimeIsDue(Platform& platform) {
  const std::optional<std::string> text = platform.files.Read(kNetworkTimeMarker);
  if (!text) return true;
  char* end = nullptr;
  const long long answered = std::strtoll(text->c_str(), &end, 10);
  if (end == text->c_str()) return true;
  const std::int64_t now = platform.system_clock.RealtimeMicroseconds() / 1000000;
  const auto refresh = std::chrono::duration_cast<std::chrono::seconds>(kNetworkTimeRefresh);
  return now < answered || now - answered >= refresh.count();
}

void StartDetachedNetworkTime(Platform& platform) {
  const NetworkTimeSettings settings = ReadNetworkTimeSettings(platform);
  platform.programs.RunDetached([settings, &platform] {
    const auto only = platform.locks.Acquire(kNetworkTimeLock, std::chrono::milliseconds(0), [] {});
    if (!only) return;  // another update's query is under way
    try {
      SetClockFromTimeServer(settings, platform);
    } catch (const std::exception& e) {
      platform.log.Print("linkrig: EXCEPTION: %s\n", e.what());
    }
  });
}

NetworkTimeThread::NetworkTimeThread(Platform& platform)
    : m_thread([this, &platform] {
        try {
          SetClockFromTimeServer(ReadNetworkTimeSettings(platform), platform);
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
