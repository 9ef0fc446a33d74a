#include "apps/steps/network_time.h"

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "lib/platform/log.h"

namespace corvo {

namespace {

// Kernel log output under the watchdog: pmc can hang on a silent network.
constexpr unsigned int kPmcFlags = 0x103;

bool IsPtpSlave(int domain, Programs& programs) {
  const std::string command = fmt::format(
      "pmc -u -b 0 -d {} \"GET PORT_DATA_SET\" | grep -q -E \"SLAVE|UNCALIBRATED\"", domain);
  return programs.Run("/bin/sh", {"-c", command}, kPmcFlags) == 0;
}

}  // namespace

void SetClockFromNetworkTime(std::int64_t network_time_ns, Registry& registry, Programs& programs,
                             SystemClock& clock) {
  const std::int64_t network_us = network_time_ns / 1000;
  const std::int64_t now_us = clock.RealtimeMicroseconds();

  const std::string domain = registry.Read("networking", "ptp_domain");
  if (!domain.empty()) {
    if (IsPtpSlave(std::stoi(domain, nullptr, 10), programs)) {
      Log("Player is a PTP slave so not changing the clock.\n");
      return;
    }
    const std::int64_t difference =
        network_us > now_us ? network_us - now_us : now_us - network_us;
    if (difference <= kClockToleranceMicroseconds) {
      Log("Skip changing the clock this time - it's too small a difference.\n");
      return;
    }
    Log("Setting clock since we're not a PTP slave and difference is greater than two seconds.\n");
  }

  const std::int64_t seconds = network_us / 1000000;
  const long microseconds = static_cast<long>(network_us % 1000000);
  Log("Setting system clock to %ld.%06ld\n", static_cast<long>(seconds), microseconds);
  const int error = clock.SetRealtime(seconds, microseconds);
  if (error != 0) Log("Unable to set system clock: (%d) %s\n", error, std::strerror(error));
}

NetworkTimeThread::NetworkTimeThread(TimeSource source, Registry& registry, Programs& programs,
                                     SystemClock& clock)
    : m_thread([this, source = std::move(source), &registry, &programs, &clock] {
        try {
          const std::optional<std::int64_t> network_time = source();
          if (network_time) SetClockFromNetworkTime(*network_time, registry, programs, clock);
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
