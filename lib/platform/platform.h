#pragma once
// The outside world as the configuration steps see it: programs, the kernel's
// network state, files, the clock and the host's name. Steps take a Platform
// so that tests (or a mode that only reports) can stand in for the real one.

#include <chrono>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <sys/types.h>
#include <vector>

namespace corvo {

class Programs {
 public:
  virtual ~Programs() = default;
  // Runs the program (searched along PATH unless a path) to its end; returns its exit code.
  virtual int Run(const std::string& program, const std::vector<std::string>& args,
                  unsigned int flags) = 0;
  virtual pid_t ReadPidFile(const std::string& path, const std::string& name) = 0;
  virtual int KillProcessAndWait(pid_t pid, int signal, std::int64_t timeout_us) = 0;
  // Starts argv[0] (a path) detached from the caller: it keeps running after the
  // caller exits and writes its own PID to pid_file. Returns the PID at once.
  virtual pid_t StartDetached(const std::vector<std::string>& argv,
                              const std::string& pid_file) = 0;
};

// One entry of the kernel's address list (getifaddrs) for an interface.
struct InterfaceAddress {
  int family = 0;  // 0 also for an entry that carries no address
  std::vector<std::uint8_t> address;  // 4 bytes for AF_INET, 16 for AF_INET6, else empty
  int netmask_family = 0;  // 0 when the entry has no netmask
  std::vector<std::uint8_t> netmask;
};

class NetworkState {
 public:
  virtual ~NetworkState() = default;
  virtual bool InterfaceHasLink(const std::string& ifname) = 0;
  virtual bool InterfaceIsReady(const std::string& ifname) = 0;
  virtual bool HasDefaultRoute(const std::string& ifname) = 0;
  virtual void SetIpForwarding(bool on) = 0;
  // Network ports in directory order, without loopback and internal links.
  virtual std::vector<std::string> NetworkPorts() = 0;
  virtual bool IsBootedFromNfs() = 0;
  // The address list entries of the interface; raises "Failed to get IP address list".
  virtual std::vector<InterfaceAddress> InterfaceAddresses(const std::string& ifname) = 0;
};

class Files {
 public:
  virtual ~Files() = default;
  // Creates or truncates the file with the given permissions. The stream is in a
  // failed state when the file cannot be created.
  virtual std::unique_ptr<std::ostream> Create(const std::string& path, mode_t mode = 0644) = 0;
  virtual bool Exists(const std::string& path) = 0;
  virtual void Remove(const std::string& path) = 0;
};

class Clock {
 public:
  virtual ~Clock() = default;
  virtual std::chrono::steady_clock::time_point Now() = 0;
  virtual void Sleep(std::chrono::microseconds duration) = 0;
};

class HostNames {
 public:
  virtual ~HostNames() = default;
  virtual std::string GetHostName() = 0;
  // Sets the kernel's host name, then Avahi's (an absent Avahi daemon is ignored).
  virtual void SetHostName(const std::string& name) = 0;
};

struct Platform {
  Programs& programs;
  NetworkState& network;
  Files& files;
  Clock& clock;
  HostNames& host_names;
};

// The wall clock (CLOCK_REALTIME), kept apart from Platform because only the
// clock-setting steps may change it.
class SystemClock {
 public:
  virtual ~SystemClock() = default;
  // Microseconds since the Unix epoch.
  virtual std::int64_t RealtimeMicroseconds() = 0;
  // settimeofday without a time zone; returns 0, or the errno of the failure.
  virtual int SetRealtime(std::int64_t seconds, long microseconds) = 0;
  // False while the clock reads earlier than the time this program was built:
  // such a clock was never set since the device last lost power.
  virtual bool TimeIsSet() = 0;
};

// The real wall clock.
SystemClock& GetSystemClock();

// Seconds since the epoch at which this program was built.
std::int64_t BuildTimeSeconds();

// The real system.
Platform& GetPlatform();

// Whether the root file system is mounted over NFS, from a mounts table.
bool IsRootOnNfs(const std::string& mounts_path = "/proc/mounts");

}  // namespace corvo
