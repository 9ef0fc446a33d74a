#include "tests/support/world_model.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>

#include "lib/platform/base/errno_exception.h"
#include "lib/platform/bus/bus_error.h"
#include "lib/platform/supplicant/names.h"

namespace corvo {

namespace {

bool Contains(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

class HeldNothing : public HeldLock {};

class NullSink : public LogSink {
  void Write(const std::string&) noexcept override {}
};

}  // namespace

class WorldModel::Parts : public Programs,
                          public NetworkState,
                          public Files,
                          public Locks,
                          public Clock,
                          public SystemClock,
                          public HostNames,
                          public NetworkTimeSource,
                          public Settings,
                          public HardwareFacts,
                          public supplicant::SupplicantConnector {
 public:
  explicit Parts(WorldModel& world) : m_world(world) {}

  // --- Programs
  int Run(const std::string& program, const std::vector<std::string>& args,
          const ProgramOptions&) override {
    m_world.runs.push_back({program, args});
    auto& codes = m_world.exit_codes[program];
    if (codes.empty()) return 0;
    const int code = codes.front();
    codes.pop_front();
    return code;
  }
  std::optional<pid_t> ReadPidFile(const std::string& path, const std::string&) override {
    const auto found = m_world.pid_files.find(path);
    if (found == m_world.pid_files.end()) return std::nullopt;
    return found->second;
  }
  void KillProcessAndWait(pid_t pid, int, std::int64_t) override {
    for (auto it = m_world.pid_files.begin(); it != m_world.pid_files.end();) {
      it = it->second == pid ? m_world.pid_files.erase(it) : std::next(it);
    }
  }
  pid_t StartDetached(const std::vector<std::string>&, const std::string& pid_file) override {
    return m_world.pid_files[pid_file] = m_next_pid++;
  }
  void RunDetached(const std::function<void()>&) override {}

  // --- NetworkState
  bool InterfaceHasLink(const std::string& ifname) override {
    return m_world.links.count(ifname) != 0;
  }
  bool InterfaceIsReady(const std::string& ifname) override {
    return m_world.ready.count(ifname) != 0;
  }
  bool HasDefaultRoute(const std::string& ifname) override {
    return m_world.default_routes.count(ifname) != 0;
  }
  void SetIpForwarding(bool on) override { m_world.forwarding = on; }
  std::vector<std::string> NetworkPorts() override { return m_world.ports; }
  bool IsBootedFromNfs() override { return m_world.nfs_root; }
  std::vector<InterfaceAddress> InterfaceAddresses(const std::string& ifname) override {
    if (m_world.addresses_fail) throw std::runtime_error("Failed to get IP address list");
    const auto found = m_world.addresses.find(ifname);
    return found == m_world.addresses.end() ? std::vector<InterfaceAddress>() : found->second;
  }
  void SetMacAddress(const std::string&, const MacAddress&) override {}
  std::unique_ptr<VlanLinks> OpenVlanLinks() override;
  // A test arranges the addresses it wants after a stop.
  void RemoveAddresses(const std::string&) override {}

  // --- Files
  void Replace(const std::string& path, const std::string& content, mode_t mode) override {
    if (m_world.unwritable.count(path) != 0) throw ErrnoException(EACCES, "write " + path);
    m_world.files[path] = content;
    m_world.modes[path] = mode;
  }
  std::optional<std::string> Read(const std::string& path) override {
    const auto found = m_world.files.find(path);
    if (found == m_world.files.end()) return std::nullopt;
    return found->second;
  }
  std::vector<std::string> List(const std::string& directory) override {
    std::set<std::string> names;
    const std::string prefix = directory + "/";
    for (auto it = m_world.files.lower_bound(prefix);
         it != m_world.files.end() && it->first.compare(0, prefix.size(), prefix) == 0; ++it) {
      names.insert(
          it->first.substr(prefix.size(), it->first.find('/', prefix.size()) - prefix.size()));
    }
    return {names.begin(), names.end()};
  }
  void Write(const std::string& path, const std::string& text) override {
    m_world.files[path] = text;
  }
  // A directory exists when something lies below it.
  bool Exists(const std::string& path) override {
    if (m_world.files.count(path) != 0) return true;
    const std::string prefix = path.back() == '/' ? path : path + "/";
    const auto below = m_world.files.lower_bound(prefix);
    return below != m_world.files.end() && below->first.compare(0, prefix.size(), prefix) == 0;
  }
  void Remove(const std::string& path) override {
    m_world.files.erase(path);
    m_world.modes.erase(path);
  }

  // --- Locks: no other run holds one.
  std::unique_ptr<HeldLock> Acquire(const std::string&, std::chrono::milliseconds,
                                    const std::function<void()>&) override {
    return std::make_unique<HeldNothing>();
  }

  // --- Clock
  std::chrono::steady_clock::time_point Now() override { return m_world.now; }
  void Sleep(std::chrono::microseconds duration) override { m_world.now += duration; }

  // --- SystemClock
  std::int64_t RealtimeMicroseconds() override { return m_world.realtime_us; }
  void SetRealtime(std::int64_t seconds, long microseconds) override {
    m_world.realtime_us = seconds * 1000000 + microseconds;
    m_world.time_is_set = true;
  }
  bool TimeIsSet() override { return m_world.time_is_set; }

  // --- HostNames
  std::string GetHostName() override { return m_world.host_name; }
  void SetHostName(const std::string& name) override { m_world.host_name = name; }

  // --- NetworkTimeSource
  NetworkTimeResult Query(const std::string&) override { return m_world.network_time; }

  // --- Settings
  std::string Read(const std::string& section, const std::string& key) override {
    if (m_world.on_read) m_world.on_read(section, key);
    const auto found = m_world.settings.find({section, key});
    return found != m_world.settings.end() ? found->second : "";
  }

  // --- HardwareFacts
  bool IsWifiInterface(const std::string& name) override { return m_world.wifi_port == name; }
  bool IsEthernetInterface(const std::string& name) override {
    return m_world.ethernet_port == name;
  }
  std::optional<std::string> EthernetInterface() override { return m_world.ethernet_port; }
  std::string WifiDriver() override { return m_world.wifi_driver; }
  std::string OemId() override { return m_world.oem_id; }
  std::string OemModel() override { return m_world.oem_model; }
  std::string SerialNumber() override { return m_world.serial_number; }
  std::optional<std::string> WifiMacAddress() override { return m_world.wifi_mac_address; }

  // --- Supplicant
  std::shared_ptr<supplicant::Supplicant> Connect() override;

  WorldModel& m_world;

 private:
  pid_t m_next_pid = 4000;
};

namespace {

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
    if (Contains(m_world.ports, name)) return;
    for (const auto& [parent, names] : m_world.vlans) {
      if (Contains(names, name)) return;
    }
    throw std::runtime_error("Link not found");
  }

  WorldModel& m_world;
};

class ModelInterface : public supplicant::Interface {
 public:
  explicit ModelInterface(SupplicantInterfaceModel& model) : m_model(model) {}

  void AddNetwork(const supplicant::PropertySet& properties) override {
    m_model.networks.push_back(properties);
  }
  void AddAndSelectNetwork(const supplicant::PropertySet& properties) override {
    AddNetwork(properties);
  }
  void RemoveAllNetworks() override { m_model.networks.clear(); }
  void ForEachBSS(const std::function<void(const supplicant::BssInfo&)>&) override {}
  supplicant::SignalInfo GetSignalInfo() override { return {}; }
  std::string GetState() override { return m_model.state; }
  bool IsScanning() override { return false; }
  void Scan() override {}
  bool HasNetworks() override { return !m_model.networks.empty(); }
  void SetBlob(const std::string& name, const supplicant::Bytes& bytes) override {
    m_model.blobs[name] = bytes;
  }
  std::shared_ptr<supplicant::Network> GetCurrentNetwork() override { return nullptr; }

 private:
  SupplicantInterfaceModel& m_model;
};

class ModelSupplicant : public supplicant::Supplicant {
 public:
  explicit ModelSupplicant(WorldModel& world) : m_world(world) {}

  std::shared_ptr<supplicant::Interface> GetInterface(const std::string& ifname) override {
    const auto found = m_world.supplicant_interfaces.find(ifname);
    if (found == m_world.supplicant_interfaces.end()) {
      throw supplicant::InterfaceUnknown(supplicant::kInterfaceUnknownError,
                                         "wpa_supplicant knows nothing about this interface.");
    }
    return std::make_shared<ModelInterface>(found->second);
  }
  std::shared_ptr<supplicant::Interface> GetOrCreateInterface(const std::string& ifname) override {
    return std::make_shared<ModelInterface>(m_world.supplicant_interfaces[ifname]);
  }
  void SetDebugLevel(bool) override {}

 private:
  WorldModel& m_world;
};

}  // namespace

std::unique_ptr<VlanLinks> WorldModel::Parts::OpenVlanLinks() {
  return std::make_unique<ModelVlanLinks>(m_world);
}

std::shared_ptr<supplicant::Supplicant> WorldModel::Parts::Connect() {
  if (!m_world.supplicant_running) {
    throw BusServiceUnavailable(bus_errors::kServiceUnknown,
                                "The name fi.w1.wpa_supplicant1 was not provided by any "
                                ".service files");
  }
  return std::make_shared<ModelSupplicant>(m_world);
}

WorldModel::WorldModel() : m_parts(std::make_unique<Parts>(*this)) {
  static NullSink s_nowhere;
  Parts& p = *m_parts;
  m_platform.reset(new Platform{p, p, p, p, p, p, p, p, p, p, p, s_nowhere, s_nowhere});
}

WorldModel::~WorldModel() = default;

}  // namespace corvo
