#pragma once
// The operating system as the configuration steps see it: programs, the
// kernel's network state and links, files, clocks and the host's name. Each is
// an interface, so that tests, and a mode that only reports, can stand in for
// the real system (real_os.h).

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "lib/platform/system/mac_address.h"

namespace corvo {

// How a program run to its end is started. Its standard input is /dev/null and its output goes
// to the kernel log; a watchdog kills it, and aborts the caller, after 300 s.
struct ProgramOptions {
  // A session of its own rather than a process group of its own.
  bool new_session = false;
};

class Programs {
 public:
  virtual ~Programs() = default;
  // Runs the program (searched along PATH unless a path) to its end; returns its exit code.
  virtual int Run(const std::string& program, const std::vector<std::string>& args,
                  const ProgramOptions& options) = 0;
  int Run(const std::string& program, const std::vector<std::string>& args) {
    return Run(program, args, ProgramOptions());
  }
  // The PID recorded in the file when a process of that name runs under it.
  virtual std::optional<pid_t> ReadPidFile(const std::string& path, const std::string& name) = 0;
  // Sends the signal and waits up to the timeout for the process to go; then SIGKILL.
  virtual void KillProcessAndWait(pid_t pid, int signal, std::int64_t timeout_us) = 0;
  // Starts argv[0] (a path) detached from the caller: it keeps running after the
  // caller exits and writes its own PID to pid_file. Returns the PID at once.
  virtual pid_t StartDetached(const std::vector<std::string>& argv,
                              const std::string& pid_file) = 0;
  // Runs the task in a process of its own that outlives the caller: a new session, none of the
  // caller's descriptors (its locks stay with the caller), output to the kernel log. Only for a
  // caller with no other thread.
  virtual void RunDetached(const std::function<void()>& task) = 0;
};

// One entry of the kernel's address list (getifaddrs) for an interface.
struct InterfaceAddress {
  int family = 0;                     // 0 also for an entry that carries no address
  std::vector<std::uint8_t> address;  // 4 bytes for AF_INET, 16 for AF_INET6, else empty
  int netmask_family = 0;             // 0 when the entry has no netmask
  std::vector<std::uint8_t> netmask;
};

// The VLAN links of the kernel, by name, over one open netlink socket.
class VlanLinks {
 public:
  virtual ~VlanLinks() = default;
  // Names of the VLAN links on the parent; raises "Link not found" when there
  // is no such parent.
  virtual std::vector<std::string> ListVlansOn(const std::string& parent) = 0;
  virtual void DeleteLink(const std::string& name) = 0;
  virtual void AddVlan(const std::string& parent, std::uint16_t id, const std::string& name) = 0;
  virtual void SetUp(const std::string& name) = 0;
};

class NetworkState {
 public:
  virtual ~NetworkState() = default;
  // May raise ErrnoException (EOPNOTSUPP: the driver cannot tell).
  virtual bool InterfaceHasLink(const std::string& ifname) = 0;
  // Link and an IPv4 address.
  virtual bool InterfaceIsReady(const std::string& ifname) = 0;
  virtual bool HasDefaultRoute(const std::string& ifname) = 0;
  virtual void SetIpForwarding(bool on) = 0;
  // Network ports in directory order, without loopback and internal links.
  virtual std::vector<std::string> NetworkPorts() = 0;
  virtual bool IsBootedFromNfs() = 0;
  // The address list entries of the interface; raises "Failed to get IP address list".
  virtual std::vector<InterfaceAddress> InterfaceAddresses(const std::string& ifname) = 0;
  virtual void SetMacAddress(const std::string& ifname, const MacAddress& address) = 0;
  virtual std::unique_ptr<VlanLinks> OpenVlanLinks() = 0;
  // Removes every IPv4 address of the interface and every IPv6 one but the link-local ones;
  // nothing when the interface is gone.
  virtual void RemoveAddresses(const std::string& ifname) = 0;
};

class Files {
 public:
  virtual ~Files() = default;
  // Replaces the file with one that holds the content, whole or not at all, even across a
  // power cut: written beside it with the given permissions from the first byte, synced, then
  // renamed over it. Raises ErrnoException; the file is then as it was.
  virtual void Replace(const std::string& path, const std::string& content, mode_t mode) = 0;
  // The content of a file; nothing when it cannot be read.
  virtual std::optional<std::string> Read(const std::string& path) = 0;
  // The names in a directory; none when it cannot be read.
  virtual std::vector<std::string> List(const std::string& directory) = 0;
  // Replaces the content of a file that exists (a kernel attribute, say), or
  // creates it; best effort.
  virtual void Write(const std::string& path, const std::string& text) = 0;
  virtual bool Exists(const std::string& path) = 0;
  virtual void Remove(const std::string& path) = 0;
  // Makes the directory (its parent must exist); raises ErrnoException, also when it exists.
  virtual void MakeDirectory(const std::string& path, mode_t mode) = 0;
};

// An exclusive lock, held until the object goes. The kernel lets go of it
// when the process ends, however it ends.
class HeldLock {
 public:
  virtual ~HeldLock() = default;
};

class Locks {
 public:
  virtual ~Locks() = default;
  // Takes the lock named by path (a file, made when missing). When another
  // process holds it, waiting is called once and the lock is waited for at
  // most `limit`; nothing is returned when the limit passes. A lock this
  // process holds already is taken again at once.
  virtual std::unique_ptr<HeldLock> Acquire(const std::string& path,
                                            std::chrono::milliseconds limit,
                                            const std::function<void()>& waiting) = 0;
};

// The steady clock, for deadlines and waits.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual std::chrono::steady_clock::time_point Now() = 0;
  virtual void Sleep(std::chrono::microseconds duration) = 0;
};

// The wall clock (CLOCK_REALTIME); only the clock-setting steps change it.
class SystemClock {
 public:
  virtual ~SystemClock() = default;
  // Microseconds since the Unix epoch.
  virtual std::int64_t RealtimeMicroseconds() = 0;
  // settimeofday without a time zone; raises ErrnoException.
  virtual void SetRealtime(std::int64_t seconds, long microseconds) = 0;
  // False while the clock reads earlier than the time this program was built:
  // such a clock was never set since the device last lost power.
  virtual bool TimeIsSet() = 0;
};

struct NetworkTimeResult {
  // Nanoseconds since the Unix epoch, as of the moment the query returned.
  std::optional<std::int64_t> time_ns;
  // Without a time: one short reason, such as "no reply from pool.ntp.org".
  std::string error;
};

// The time as a server on the network tells it.
class NetworkTimeSource {
 public:
  virtual ~NetworkTimeSource() = default;
  // server: a host name or an IPv4 address. Never throws.
  virtual NetworkTimeResult Query(const std::string& server) = 0;
};

class HostNames {
 public:
  virtual ~HostNames() = default;
  virtual std::string GetHostName() = 0;
  // Sets the kernel's host name, then Avahi's (an absent Avahi daemon is ignored).
  virtual void SetHostName(const std::string& name) = 0;
};

}  // namespace corvo
