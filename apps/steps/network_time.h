#pragma once
// Setting the system clock from a time obtained over the network. A PTP slave's
// clock belongs to the PTP daemon and is left alone.

#include <chrono>
#include <cstdint>
#include <exception>
#include <string>
#include <thread>

#include "lib/platform/platform.h"

namespace corvo {

// Once linkrig has set the clock, this file exists until the device restarts
// (/var/run is in memory). A clock set from a certificate's activation time,
// which may lie before this program's build, thus counts as set and is not set
// back again by a later run.
constexpr char kClockSetMarker[] = "/var/run/linkrig-clock-set";
// The network time of the last answer a time server gave (seconds since the epoch), whether
// or not the clock was set from it; until the device restarts.
constexpr char kNetworkTimeMarker[] = "/var/run/linkrig-network-time";
// Held by the one query that a lease's update starts.
constexpr char kNetworkTimeLock[] = "/var/run/linkrig-time.lock";
// How long an answer serves the updates of a lease before they ask again.
constexpr std::chrono::hours kNetworkTimeRefresh{6};

// Whether the clock holds a real time: linkrig set it since the device started,
// or it reads later than this program's build.
bool ClockIsSet(Platform& platform);

// Sets the clock and leaves the marker; a failure is printed and changes nothing.
void SetClock(Platform& platform, std::int64_t seconds, long microseconds);

// Corrections up to this size are not worth a jump of the clock.
constexpr std::int64_t kClockToleranceMicroseconds = 199999;

// Sets the clock to network_time_ns (nanoseconds since the epoch) unless ptp_domain (as
// stored: empty for none) names a PTP domain whose port is a slave, or the clock is already
// within the tolerance.
void SetClockFromNetworkTime(std::int64_t network_time_ns, const std::string& ptp_domain,
                             Platform& platform);

// The stored time server and PTP domain.
struct NetworkTimeSettings {
  std::string server;
  std::string ptp_domain;
};
NetworkTimeSettings ReadNetworkTimeSettings(Platform& platform);

// Asks the server for the time and sets the clock from the answer. A query that fails prints
// one line and changes nothing.
void SetClockFromTimeServer(const NetworkTimeSettings& settings, Platform& platform);

// Whether an update should ask for the time: never since the device started, or the last
// answer is kNetworkTimeRefresh old (or the clock reads earlier than it).
bool NetworkTimeIsDue(Platform& platform);

// Asks for the time and sets the clock in a process of its own, so that nobody waits for it
// (dhcpcd waits for the hook that runs an update); its lines go to the kernel log. One such
// query at a time. Only for a run with no other thread.
void StartDetachedNetworkTime(Platform& platform);

// Reads the settings and sets the clock beside the command's main thread.
class NetworkTimeThread {
 public:
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
