#include "lib/platform/platform.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <ifaddrs.h>
#include <mntent.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/stat.h>
#include <thread>
#include <utility>
#include <unistd.h>

#include "lib/platform/detached_process.h"
#include "lib/platform/host_name.h"
#include "lib/platform/net.h"
#include "lib/platform/network_ports.h"
#include "lib/platform/process_control.h"
#include "lib/platform/route_table.h"
#include "lib/platform/spawn_process.h"

namespace corvo {

namespace {

// The bytes of an IPv4 or IPv6 socket address; other families carry none here.
std::vector<std::uint8_t> AddressBytes(const struct sockaddr* address) {
  if (address == nullptr) return {};
  std::vector<std::uint8_t> bytes;
  if (address->sa_family == AF_INET) {
    struct sockaddr_in in;
    std::memcpy(&in, address, sizeof in);
    const auto* first = reinterpret_cast<const std::uint8_t*>(&in.sin_addr);
    bytes.assign(first, first + sizeof in.sin_addr);
  } else if (address->sa_family == AF_INET6) {
    struct sockaddr_in6 in6;
    std::memcpy(&in6, address, sizeof in6);
    const auto* first = reinterpret_cast<const std::uint8_t*>(&in6.sin6_addr);
    bytes.assign(first, first + sizeof in6.sin6_addr);
  }
  return bytes;
}

class RealPrograms : public Programs {
 public:
  int Run(const std::string& program, const std::vector<std::string>& args,
          unsigned int flags) override {
    SpawnProcess process(program, args);
    process.Execute(flags);
    return process.Wait();
  }
  pid_t ReadPidFile(const std::string& path, const std::string& name) override {
    return corvo::ReadPidFile(path, name);
  }
  int KillProcessAndWait(pid_t pid, int signal, std::int64_t timeout_us) override {
    return corvo::KillProcessAndWait(pid, signal, timeout_us);
  }
  pid_t StartDetached(const std::vector<std::string>& argv,
                      const std::string& pid_file) override {
    return corvo::StartDetached(argv, pid_file);
  }
};

class RealNetworkState : public NetworkState {
 public:
  bool InterfaceHasLink(const std::string& ifname) override {
    return net::InterfaceHasLink(ifname.c_str());
  }
  bool InterfaceIsReady(const std::string& ifname) override {
    return net::InterfaceIsReady(ifname.c_str());
  }
  bool HasDefaultRoute(const std::string& ifname) override {
    return net::FindDefaultGateway(ifname) != 0;
  }
  void SetIpForwarding(bool on) override { net::SetIpForwarding(on); }
  std::vector<std::string> NetworkPorts() override {
    std::vector<std::string> ports;
    ScanNetworkPorts([&](const std::string& name) {
      ports.push_back(name);
      return false;
    });
    return ports;
  }
  bool IsBootedFromNfs() override { return IsRootOnNfs(); }
  std::vector<InterfaceAddress> InterfaceAddresses(const std::string& ifname) override {
    struct ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) throw std::runtime_error("Failed to get IP address list");
    const std::unique_ptr<struct ifaddrs, void (*)(struct ifaddrs*)> owner(list, freeifaddrs);
    std::vector<InterfaceAddress> entries;
    for (const struct ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
      if (entry->ifa_name == nullptr || ifname != entry->ifa_name) continue;
      InterfaceAddress item;
      item.family = entry->ifa_addr != nullptr ? entry->ifa_addr->sa_family : 0;
      item.address = AddressBytes(entry->ifa_addr);
      item.netmask_family = entry->ifa_netmask != nullptr ? entry->ifa_netmask->sa_family : 0;
      item.netmask = AddressBytes(entry->ifa_netmask);
      entries.push_back(std::move(item));
    }
    return entries;
  }
};

// An ofstream on a descriptor created with the wanted permissions.
class RealFiles : public Files {
 public:
  std::unique_ptr<std::ostream> Create(const std::string& path, mode_t mode) override {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    auto out = std::make_unique<std::ofstream>();
    if (fd < 0) {
      out->setstate(std::ios::failbit);
      return out;
    }
    // The file may have existed with wider permissions.
    fchmod(fd, mode);
    close(fd);
    out->open(path, std::ios::out | std::ios::app);
    return out;
  }
  bool Exists(const std::string& path) override {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
  }
  void Remove(const std::string& path) override { unlink(path.c_str()); }
};

class RealClock : public Clock {
 public:
  std::chrono::steady_clock::time_point Now() override { return std::chrono::steady_clock::now(); }
  void Sleep(std::chrono::microseconds duration) override { std::this_thread::sleep_for(duration); }
};

class RealHostNames : public HostNames {
 public:
  std::string GetHostName() override { return corvo::GetHostName(); }
  void SetHostName(const std::string& name) override { corvo::SetHostName(name); }
};

}  // namespace

bool IsRootOnNfs(const std::string& mounts_path) {
  std::FILE* mounts = setmntent(mounts_path.c_str(), "re");
  if (mounts == nullptr) return false;
  bool nfs = false;
  while (const struct mntent* entry = getmntent(mounts)) {
    if (std::string(entry->mnt_dir) == "/" && std::string(entry->mnt_type) == "nfs") {
      nfs = true;
      break;
    }
  }
  endmntent(mounts);
  return nfs;
}

Platform& GetPlatform() {
  static RealPrograms programs;
  static RealNetworkState network;
  static RealFiles files;
  static RealClock clock;
  static RealHostNames host_names;
  static Platform platform{programs, network, files, clock, host_names};
  return platform;
}

}  // namespace corvo
