#pragma once
// A model of the world for the tests of the steps: a Platform whose answers come from what a
// test arranges here, and whose changes change it. Tests wrap it in a RecordingPlatform to see
// the changes as lines and to make any of them fail.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "lib/platform/base/interface_names.h"
#include "lib/platform/bus/bus_error.h"
#include "lib/platform/platform.h"
#include "lib/platform/supplicant/names.h"

namespace corvo {

struct ProgramRun {
  std::string program;
  std::vector<std::string> args;
};

// What the supplicant holds for one interface.
struct SupplicantInterfaceModel : supplicant::Interface {
  std::string state = "disconnected";
  std::vector<supplicant::PropertySet> networks;
  std::map<std::string, supplicant::Bytes> blobs;

  void AddNetwork(const supplicant::PropertySet& properties) override {
    networks.push_back(properties);
  }
  void AddAndSelectNetwork(const supplicant::PropertySet& properties) override {
    networks.push_back(properties);
  }
  void RemoveAllNetworks() override { networks.clear(); }
  void ForEachBSS(const std::function<void(const supplicant::BssInfo&)>&) override {}
  supplicant::SignalInfo GetSignalInfo() override { return {}; }
  std::string GetState() override { return state; }
  bool IsScanning() override { return false; }
  void Scan() override {}
  bool HasNetworks() override { return !networks.empty(); }
  void SetBlob(const std::string& name, const supplicant::Bytes& bytes) override {
    blobs[name] = bytes;
  }
  std::shared_ptr<supplicant::Network> GetCurrentNetwork() override { return nullptr; }
};

class WorldModel : public Programs,
                   public NetworkState,
                   public Files,
                   public Locks,
                   public Clock,
                   public SystemClock,
                   public HostNames,
                   public NetworkTimeSource,
                   public Settings,
                   public HardwareFacts,
                   public supplicant::SupplicantConnector,
                   public supplicant::Supplicant {
 public:
  WorldModel() = default;
  WorldModel(const WorldModel&) = delete;
  WorldModel& operator=(const WorldModel&) = delete;

  Platform& Get() { return m_platform; }
  operator Platform&() { return m_platform; }

  void Set(const std::string& section, const std::string& key, const std::string& value) {
    settings[{section, key}] = value;
  }

  // Programs: exit codes handed out in turn per program (then 0), running daemons by PID file
  // (path -> PID of a process with the expected name).
  std::map<std::string, std::deque<int>> exit_codes;
  std::map<std::string, pid_t> pid_files;
  std::vector<ProgramRun> runs;

  // The kernel's network state.
  std::vector<std::string> ports;  // in directory order
  std::set<std::string> links;     // interfaces with link
  std::set<std::string> ready;     // link and an IPv4 address
  std::set<std::string> default_routes;
  std::map<std::string, std::vector<InterfaceAddress>> addresses;
  bool addresses_fail = false;
  bool nfs_root = false;
  std::map<std::string, std::vector<std::string>> vlans;  // parent -> VLAN link names

  // Files: path -> content.
  std::map<std::string, std::string> files;

  // Clocks: the steady clock moves only when something sleeps.
  std::chrono::steady_clock::time_point now{std::chrono::hours(1)};
  std::int64_t realtime_us = 1700000000000000;
  bool time_is_set = true;

  std::string host_name = "localhost";

  // What a time server answers: the time, or why there is none.
  NetworkTimeResult network_time{std::nullopt, "no reply from the recorded network"};

  // Stored settings: (section, key) -> value; on_read may throw like a failing registry.
  std::map<std::pair<std::string, std::string>, std::string> settings;
  std::function<void(const std::string& section, const std::string& key)> on_read;

  // The supplicant daemon.
  bool supplicant_running = true;
  std::map<std::string, SupplicantInterfaceModel> supplicant_interfaces;

  // Hardware facts.
  std::optional<std::string> wifi_port{kWifiPort};
  std::optional<std::string> ethernet_port{kEthernetPort};
  std::string wifi_driver = "nl80211";
  std::string oem_id;
  std::string oem_model;
  std::string serial_number;
  std::optional<std::string> wifi_mac_address;

  // --- Programs
  int Run(const std::string& program, const std::vector<std::string>& args,
          const ProgramOptions&) override {
    runs.push_back({program, args});
    auto& codes = exit_codes[program];
    if (codes.empty()) return 0;
    const int code = codes.front();
    codes.pop_front();
    return code;
  }
  std::optional<pid_t> ReadPidFile(const std::string& path, const std::string&) override {
    const auto found = pid_files.find(path);
    return found != pid_files.end() ? std::optional<pid_t>(found->second) : std::nullopt;
  }
  void KillProcessAndWait(pid_t pid, int, std::int64_t) override {
    for (auto it = pid_files.begin(); it != pid_files.end();) {
      it = it->second == pid ? pid_files.erase(it) : std::next(it);
    }
  }
  pid_t StartDetached(const std::vector<std::string>&, const std::string& pid_file) override {
    return pid_files[pid_file] = m_next_pid++;
  }
  void RunDetached(const std::function<void()>&) override {}

  // --- NetworkState
  bool InterfaceHasLink(const std::string& ifname) override { return links.count(ifname) != 0; }
  bool InterfaceIsReady(const std::string& ifname) override { return ready.count(ifname) != 0; }
  bool HasDefaultRoute(const std::string& ifname) override {
    return default_routes.count(ifname) != 0;
  }
  void SetIpForwarding(bool) override {}
  std::vector<std::string> NetworkPorts() override { return ports; }
  bool IsBootedFromNfs() override { return nfs_root; }
  std::vector<InterfaceAddress> InterfaceAddresses(const std::string& ifname) override {
    if (addresses_fail) throw std::runtime_error("Failed to get IP address list");
    return addresses[ifname];
  }
  void SetMacAddress(const std::string&, const MacAddress&) override {}
  std::unique_ptr<VlanLinks> OpenVlanLinks() override;
  // A test arranges the addresses it wants after a stop.
  void RemoveAddresses(const std::string&) override {}

  // --- Files
  void Replace(const std::string& path, const std::string& content, mode_t) override {
    files[path] = content;
  }
  std::optional<std::string> Read(const std::string& path) override {
    const auto found = files.find(path);
    return found != files.end() ? std::optional<std::string>(found->second) : std::nullopt;
  }
  std::vector<std::string> List(const std::string& directory) override {
    std::set<std::string> names;
    for (auto it = Below(directory); it != files.end() && Inside(directory, it->first); ++it) {
      const std::size_t start = directory.size() + 1;
      names.insert(it->first.substr(start, it->first.find('/', start) - start));
    }
    return {names.begin(), names.end()};
  }
  void Write(const std::string& path, const std::string& text) override { files[path] = text; }
  // A directory exists when something lies below it.
  bool Exists(const std::string& path) override {
    const std::string directory = path.back() == '/' ? path.substr(0, path.size() - 1) : path;
    const auto below = Below(directory);
    return files.count(path) != 0 || (below != files.end() && Inside(directory, below->first));
  }
  void Remove(const std::string& path) override { files.erase(path); }
  void MakeDirectory(const std::string&, mode_t) override {}

  // --- Locks: no other run holds one.
  std::unique_ptr<HeldLock> Acquire(const std::string&, std::chrono::milliseconds,
                                    const std::function<void()>&) override {
    return std::make_unique<HeldLock>();
  }

  // --- Clock, SystemClock, HostNames, NetworkTimeSource
  std::chrono::steady_clock::time_point Now() override { return now; }
  void Sleep(std::chrono::microseconds duration) override { now += duration; }
  std::int64_t RealtimeMicroseconds() override { return realtime_us; }
  void SetRealtime(std::int64_t seconds, long microseconds) override {
    realtime_us = seconds * 1000000 + microseconds;
    time_is_set = true;
  }
  bool TimeIsSet() override { return time_is_set; }
  std::string GetHostName() override { return host_name; }
  void SetHostName(const std::string& name) override { host_name = name; }
  NetworkTimeResult Query(const std::string&) override { return network_time; }

  // --- Settings
  std::string Read(const std::string& section, const std::string& key) override {
    if (on_read) on_read(section, key);
    const auto found = settings.find({section, key});
    return found != settings.end() ? found->second : "";
  }

  // --- HardwareFacts
  bool IsWifiInterface(const std::string& name) override { return wifi_port == name; }
  bool IsEthernetInterface(const std::string& name) override { return ethernet_port == name; }
  std::optional<std::string> EthernetInterface() override { return ethernet_port; }
  std::string WifiDriver() override { return wifi_driver; }
  std::string OemId() override { return oem_id; }
  std::string OemModel() override { return oem_model; }
  std::string SerialNumber() override { return serial_number; }
  std::optional<std::string> WifiMacAddress() override { return wifi_mac_address; }

  // --- The supplicant: the model is the daemon too.
  std::shared_ptr<supplicant::Supplicant> Connect() override {
    if (!supplicant_running) {
      throw BusServiceUnavailable(bus_errors::kServiceUnknown,
                                  "The name fi.w1.wpa_supplicant1 was not provided by any "
                                  ".service files");
    }
    return Lent<supplicant::Supplicant>(this);
  }
  std::shared_ptr<supplicant::Interface> GetInterface(const std::string& ifname) override {
    const auto found = supplicant_interfaces.find(ifname);
    if (found == supplicant_interfaces.end()) {
      throw supplicant::InterfaceUnknown(supplicant::kInterfaceUnknownError,
                                         "wpa_supplicant knows nothing about this interface.");
    }
    return Lent<supplicant::Interface>(&found->second);
  }
  std::shared_ptr<supplicant::Interface> GetOrCreateInterface(const std::string& ifname) override {
    return Lent<supplicant::Interface>(&supplicant_interfaces[ifname]);
  }
  void SetDebugLevel(bool) override {}

 private:
  struct NullSink : LogSink {
    void Write(const std::string&) noexcept override {}
  };
  // A part of the model handed out as the daemon's objects are; the model keeps it.
  template <typename T>
  static std::shared_ptr<T> Lent(T* part) {
    return std::shared_ptr<T>(std::shared_ptr<void>(), part);
  }
  std::map<std::string, std::string>::iterator Below(const std::string& directory) {
    return files.lower_bound(directory + "/");
  }
  static bool Inside(const std::string& directory, const std::string& path) {
    return path.compare(0, directory.size() + 1, directory + "/") == 0;
  }

  pid_t m_next_pid = 4000;
  NullSink m_nowhere;
  Platform m_platform{*this, *this, *this, *this, *this, *this, *this,
                      *this, *this, *this, *this, m_nowhere, m_nowhere};
};

// The model's VLAN links: those of its ports.
class ModelVlanLinks : public VlanLinks {
 public:
  explicit ModelVlanLinks(WorldModel& world) : m_world(world) {}

  std::vector<std::string> ListVlansOn(const std::string& parent) override {
    Check(parent);
    return m_world.vlans[parent];
  }
  void DeleteLink(const std::string& name) override {
    Check(name);
    for (auto& [parent, names] : m_world.vlans) {
      names.erase(std::remove(names.begin(), names.end(), name), names.end());
    }
  }
  void AddVlan(const std::string& parent, std::uint16_t, const std::string& name) override {
    Check(parent);
    m_world.vlans[parent].push_back(name);
  }
  void SetUp(const std::string& name) override { Check(name); }

 private:
  // A port, or a VLAN of one.
  void Check(const std::string& name) {
    bool known = std::count(m_world.ports.begin(), m_world.ports.end(), name) != 0;
    for (const auto& [parent, names] : m_world.vlans) {
      known = known || std::count(names.begin(), names.end(), name) != 0;
    }
    if (!known) throw std::runtime_error("Link not found");
  }

  WorldModel& m_world;
};

inline std::unique_ptr<VlanLinks> WorldModel::OpenVlanLinks() {
  return std::make_unique<ModelVlanLinks>(*this);
}

}  // namespace corvo
