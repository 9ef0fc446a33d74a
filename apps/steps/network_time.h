#pragma once
// Setting the system clock from a time obtained over the network. A PTP slave's
// clock belongs to the PTP daemon and is left alone.

#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <thread>

#include "lib/platform/platform.h"

namespace corvo {

// Corrections up to this size are not worth a jump of the clock.
constexpr std::int64_t kClockToleranceMicroseconds = 199999;

// Sets the clock to network_time_ns (nanoseconds since the epoch) unless the
// stored "ptp_domain" names a PTP domain whose port is a slave, or the clock
// is already within the tolerance. Registry errors propagate.
void SetClockFromNetworkTime(std::int64_t network_time_ns, Platform& platform);

// Runs the clock decision beside the command's main thread.
class NetworkTimeThread {
 public:
  // The network time in nanoseconds since the epoch, or nothing when none was obtained.
  using TimeSource = std::function<std::optional<std::int64_t>()>;

  NetworkTimeThread(TimeSource source, Platform& platform);
  NetworkTimeThread(const NetworkTimeThread&) = delete;
  NetworkTimeThread& operator=(const NetworkTimeThread&) = delete;
  ~NetworkTimeThread();

  // Waits for the thread and raises what it raised.
  void Join();

 private:
  std::exception_ptr m_error;  // before the thread, which may set it at once
  std::thread m_thread;
};

}  // namespace corvo
