#pragma once
// The real operating system behind the interfaces of os.h.

#include <cstdint>
#include <string>
#include <utility>

#include "lib/platform/system/os.h"

namespace corvo {

class RealPrograms : public Programs {
 public:
  int Run(const std::string& program, const std::vector<std::string>& args,
          const ProgramOptions& options) override;
  std::optional<pid_t> ReadPidFile(const std::string& path, const std::string& name) override;
  void KillProcessAndWait(pid_t pid, int signal, std::int64_t timeout_us) override;
  pid_t StartDetached(const std::vector<std::string>& argv, const std::string& pid_file) override;
  void RunDetached(const std::function<void()>& task) override;
};

class RealNetworkState : public NetworkState {
 public:
  bool InterfaceHasLink(const std::string& ifname) override;
  bool InterfaceIsReady(const std::string& ifname) override;
  bool HasDefaultRoute(const std::string& ifname) override;
  void SetIpForwarding(bool on) override;
  std::vector<std::string> NetworkPorts() override;
  bool IsBootedFromNfs() override;
  std::vector<InterfaceAddress> InterfaceAddresses(const std::string& ifname) override;
  void SetMacAddress(const std::string& ifname, const MacAddress& address) override;
  std::unique_ptr<VlanLinks> OpenVlanLinks() override;
  void RemoveAddresses(const std::string& ifname) override;
};

class RealFiles : public Files {
 public:
  void Replace(const std::string& path, const std::string& content, mode_t mode) override;
  std::optional<std::string> Read(const std::string& path) override;
  std::vector<std::string> List(const std::string& directory) override;
  void Write(const std::string& path, const std::string& text) override;
  bool Exists(const std::string& path) override;
  void Remove(const std::string& path) override;
  void MakeDirectory(const std::string& path, mode_t mode) override;
};

// flock(2) on the lock file; taken again by the same process, it only counts.
class RealLocks : public Locks {
 public:
  std::unique_ptr<HeldLock> Acquire(const std::string& path, std::chrono::milliseconds limit,
                                    const std::function<void()>& waiting) override;
};

class RealClock : public Clock {
 public:
  std::chrono::steady_clock::time_point Now() override;
  void Sleep(std::chrono::microseconds duration) override;
};

class RealSystemClock : public SystemClock {
 public:
  std::int64_t RealtimeMicroseconds() override;
  void SetRealtime(std::int64_t seconds, long microseconds) override;
  bool TimeIsSet() override;
};

class RealNetworkTimeSource : public NetworkTimeSource {
 public:
  NetworkTimeResult Query(const std::string& server) override;
};

class RealHostNames : public HostNames {
 public:
  std::string GetHostName() override;
  void SetHostName(const std::string& name) override;
};

// Seconds since the epoch at which this program was built.
std::int64_t BuildTimeSeconds();

// Whether the root file system is mounted over NFS, from a mounts table.
bool IsRootOnNfs(const std::string& mounts_path = "/proc/mounts");

// The kernel's links over one netlink socket, held until the object goes.
std::unique_ptr<VlanLinks> OpenNetlinkVlanLinks();

// Removes the interface's addresses as NetworkState::RemoveAddresses says.
void RemoveNetlinkAddresses(const std::string& ifname);

}  // namespace corvo
