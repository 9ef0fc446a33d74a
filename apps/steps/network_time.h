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

// Once linkrig has set the clock, this file exists until the device restarts
// (/var/run is in memory). A clock set from a certificate's activation time,
// which may lie before this program's build, thus counts as set and is not set
// back again by a later run.
constexpr char kClockSetMarker[] = "/var/run/linkrig-clock-set";

// Whether the clock holds a real time: linkrig set it since the device started,
// or it reads later than this program's build.
bool ClockIsSet(Platform& platform);

// Sets the clock and leaves the marker; returns 0, or the errno of the failure.
int SetClock(Platform& platform, std::int64_t seconds, long microseconds);

// Corrections up to this size are not worth a jump of the clock.
constexpr std::int64_t kClockToleranceMicroseconds = 199999;

// Sets the clock to network_time_ns (nanoseconds since the epoch) unless the
// stored "ptp_domain" names a PTP domain whose port is a slave, or the clock
// is already within the tolerance. Registry errors propagate.
void SetClockFromNetworkTime(std::int64_t network_time_ns, Platform& platform);

// Asks the stored time server ("ntp_server" of "networking"; "pool.ntp.org"
// when empty) for the time, in nanoseconds since the epoch. A query that fails
// prints one line and gives nothing.
std::optional<std::int64_t> ObtainNetworkTime(Platform& platform);

// Runs the clock decision beside the command's main thread.
class NetworkTimeThread {
 public:
  // The network time in nanoseconds since the epoch, or nothing when none was obtained.
  using TimeSource = std::function<std::optional<std::int64_t>()>;

  NetworkTimeThread(TimeSource source, Platform& platform);
  // The time from the stored server.
  explicit NetworkTimeThread(Platform& platform);
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
