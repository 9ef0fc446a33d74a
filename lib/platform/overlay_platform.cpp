#include "lib/platform/overlay_platform.h"

#include <algorithm>
#include <map>
#include <netinet/in.h>
#include <set>
#include <stdexcept>

namespace corvo {

namespace {

bool Contains(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

// What a removal of the interface's addresses leaves: entries without an address, and IPv6
// link-local ones.
bool Removed(const InterfaceAddress& entry) {
  return entry.family == AF_INET ||
         (entry.family == AF_INET6 &&
          !(entry.address[0] == 0xfe && (entry.address[1] & 0xc0) == 0x80));
}

// The supplicant's interface as the run changed it.
struct InterfaceChanges {
  bool created = false;
  bool networks_changed = false;
  std::size_t networks = 0;
};

}  // namespace

class OverlayPlatform::Parts : public Programs,
                               public NetworkState,
                               public Files,
                               public Locks,
                               public Clock,
                               public SystemClock,
                               public HostNames,
                               public supplicant::SupplicantConnector {
 public:
  explicit Parts(Platform& below) : m_below(below) {}

  // --- Programs
  int Run(const std::string&, const std::vector<std::string>&, const ProgramOptions&) override {
    return 0;
  }
  std::optional<pid_t> ReadPidFile(const std::string& path, const std::string& name) override {
    const auto started = m_started.find(path);
    if (started != m_started.end()) return started->second;
    if (m_stopped.count(path) != 0 || m_removed.count(path) != 0) return std::nullopt;
    const std::optional<pid_t> pid = m_below.programs.ReadPidFile(path, name);
    if (pid) m_pid_files[*pid] = path;
    return pid;
  }
  void KillProcessAndWait(pid_t pid, int, std::int64_t) override {
    for (const auto& [path, started] : m_started) {
      if (started == pid) m_pid_files[pid] = path;
    }
    const auto found = m_pid_files.find(pid);
    if (found == m_pid_files.end()) return;
    m_started.erase(found->second);
    m_stopped.insert(found->second);
  }
  pid_t StartDetached(const std::vector<std::string>&, const std::string& pid_file) override {
    m_stopped.erase(pid_file);
    return m_started[pid_file] = m_next_pid++;
  }
  void RunDetached(const std::function<void()>&) override {}

  // --- NetworkState
  bool InterfaceHasLink(const std::string& ifname) override {
    return m_below.network.InterfaceHasLink(ifname);
  }
  bool InterfaceIsReady(const std::string& ifname) override {
    return m_below.network.InterfaceIsReady(ifname);
  }
  bool HasDefaultRoute(const std::string& ifname) override {
    return m_below.network.HasDefaultRoute(ifname);
  }
  void SetIpForwarding(bool) override {}
  std::vector<std::string> NetworkPorts() override { return m_below.network.NetworkPorts(); }
  bool IsBootedFromNfs() override { return m_below.network.IsBootedFromNfs(); }
  std::vector<InterfaceAddress> InterfaceAddresses(const std::string& ifname) override {
    std::vector<InterfaceAddress> entries = m_below.network.InterfaceAddresses(ifname);
    if (m_addresses_removed.count(ifname) != 0) {
      entries.erase(std::remove_if(entries.begin(), entries.end(), Removed), entries.end());
    }
    return entries;
  }
  void SetMacAddress(const std::string&, const MacAddress&) override {}
  std::unique_ptr<VlanLinks> OpenVlanLinks() override;
  void RemoveAddresses(const std::string& ifname) override { m_addresses_removed.insert(ifname); }

  // --- Files
  void Replace(const std::string& path, const std::string& content, mode_t) override {
    Write(path, content);
  }
  std::optional<std::string> Read(const std::string& path) override {
    const auto found = m_files.find(path);
    if (found != m_files.end()) return found->second;
    if (m_removed.count(path) != 0) return std::nullopt;
    return m_below.files.Read(path);
  }
  std::vector<std::string> List(const std::string& directory) override {
    std::set<std::string> names;
    for (const std::string& name : m_below.files.List(directory)) {
      if (m_removed.count(directory + "/" + name) == 0) names.insert(name);
    }
    const std::string prefix = directory + "/";
    for (auto it = m_files.lower_bound(prefix);
         it != m_files.end() && it->first.compare(0, prefix.size(), prefix) == 0; ++it) {
      names.insert(
          it->first.substr(prefix.size(), it->first.find('/', prefix.size()) - prefix.size()));
    }
    return {names.begin(), names.end()};
  }
  void Write(const std::string& path, const std::string& text) override {
    m_files[path] = text;
    m_removed.erase(path);
  }
  bool Exists(const std::string& path) override {
    if (m_files.count(path) != 0) return true;
    if (m_removed.count(path) != 0) return false;
    return m_below.files.Exists(path);
  }
  void Remove(const std::string& path) override {
    m_files.erase(path);
    m_removed.insert(path);
  }
  // A file kept here needs no directory below.
  void MakeDirectory(const std::string&, mode_t) override {}

  // --- Locks: no other run's lock is waited for, and none is taken.
  std::unique_ptr<HeldLock> Acquire(const std::string&, std::chrono::milliseconds,
                                    const std::function<void()>&) override {
    return std::make_unique<HeldLock>();
  }

  // --- Clock: only the run's own sleeps move it.
  std::chrono::steady_clock::time_point Now() override { return m_now; }
  void Sleep(std::chrono::microseconds duration) override { m_now += duration; }

  // --- SystemClock
  std::int64_t RealtimeMicroseconds() override {
    return m_clock_set ? *m_clock_set : m_below.system_clock.RealtimeMicroseconds();
  }
  void SetRealtime(std::int64_t seconds, long microseconds) override {
    m_clock_set = seconds * 1000000 + microseconds;
  }
  bool TimeIsSet() override { return m_clock_set || m_below.system_clock.TimeIsSet(); }

  // --- HostNames
  std::string GetHostName() override {
    return m_host_name ? *m_host_name : m_below.host_names.GetHostName();
  }
  void SetHostName(const std::string& name) override { m_host_name = name; }

  // --- Supplicant
  std::shared_ptr<supplicant::Supplicant> Connect() override;

  Platform& m_below;
  // VLAN links the run deleted and added, kept across VlanLinks handles.
  std::vector<std::string> m_vlans_deleted;
  std::map<std::string, std::vector<std::string>> m_vlans_added;
  std::map<std::string, InterfaceChanges> m_interfaces;

 private:
  std::map<std::string, pid_t> m_started;  // PID file -> PID of a daemon the run started
  std::set<std::string> m_stopped;         // PID files of processes the run stopped
  std::map<pid_t, std::string> m_pid_files;
  pid_t m_next_pid = 4000;
  std::set<std::string> m_addresses_removed;
  std::map<std::string, std::string> m_files;
  std::set<std::string> m_removed;
  std::chrono::steady_clock::time_point m_now{std::chrono::hours(1)};
  std::optional<std::int64_t> m_clock_set;
  std::optional<std::string> m_host_name;
};

namespace {

// The links below with the run's changes on top.
class OverlayVlanLinks : public VlanLinks {
 public:
  explicit OverlayVlanLinks(OverlayPlatform::Parts& parts) : m_parts(parts) {}

  std::vector<std::string> ListVlansOn(const std::string& parent) override {
    std::vector<std::string> names;
    for (const std::string& name : Below().ListVlansOn(parent)) {
      if (!Contains(m_deleted, name)) names.push_back(name);
    }
    for (const std::string& name : m_added[parent]) names.push_back(name);
    return names;
  }
  void DeleteLink(const std::string& name) override {
    if (!Known(name)) throw std::runtime_error("Link not found");
    m_deleted.push_back(name);
    for (auto& [parent, names] : m_added) {
      names.erase(std::remove(names.begin(), names.end(), name), names.end());
    }
  }
  void AddVlan(const std::string& parent, std::uint16_t, const std::string& name) override {
    if (!Known(parent)) throw std::runtime_error("Link not found");
    m_added[parent].push_back(name);
    m_deleted.erase(std::remove(m_deleted.begin(), m_deleted.end(), name), m_deleted.end());
  }
  void SetUp(const std::string& name) override {
    if (!Known(name)) throw std::runtime_error("Link not found");
  }

 private:
  VlanLinks& Below() {
    if (!m_below) m_below = m_parts.m_below.network.OpenVlanLinks();
    return *m_below;
  }
  // A link the run added, or one the kernel has that the run did not delete: a port, or a
  // VLAN of one.
  bool Known(const std::string& name) {
    if (Contains(m_deleted, name)) return false;
    for (const auto& [parent, names] : m_added) {
      if (Contains(names, name)) return true;
    }
    if (Contains(m_parts.m_below.network.NetworkPorts(), name)) return true;
    const std::string parent = name.substr(0, name.find('.'));
    try {
      return parent != name && Contains(Below().ListVlansOn(parent), name);
    } catch (const std::exception&) {
      return false;
    }
  }

  OverlayPlatform::Parts& m_parts;
  std::unique_ptr<VlanLinks> m_below;
  std::vector<std::string>& m_deleted = m_parts.m_vlans_deleted;
  std::map<std::string, std::vector<std::string>>& m_added = m_parts.m_vlans_added;
};

// An interface of the supplicant below, or one the run created, with the run's changes.
class OverlayInterface : public supplicant::Interface {
 public:
  OverlayInterface(InterfaceChanges& changes, std::shared_ptr<supplicant::Interface> below)
      : m_changes(changes), m_below(std::move(below)) {}

  void AddNetwork(const supplicant::PropertySet&) override { Networks(m_changes.networks + 1); }
  void AddAndSelectNetwork(const supplicant::PropertySet&) override {
    Networks(m_changes.networks + 1);
  }
  void RemoveAllNetworks() override { Networks(0); }
  void ForEachBSS(const std::function<void(const supplicant::BssInfo&)>& callback) override {
    if (m_below) m_below->ForEachBSS(callback);
  }
  supplicant::SignalInfo GetSignalInfo() override {
    return m_below ? m_below->GetSignalInfo() : supplicant::SignalInfo();
  }
  // An interface the run created has not joined anything yet.
  std::string GetState() override { return m_below ? m_below->GetState() : "disconnected"; }
  bool IsScanning() override { return m_below && m_below->IsScanning(); }
  void Scan() override {}
  bool HasNetworks() override {
    return m_changes.networks_changed ? m_changes.networks > 0 : m_below->HasNetworks();
  }
  void SetBlob(const std::string&, const supplicant::Bytes&) override {}
  std::shared_ptr<supplicant::Network> GetCurrentNetwork() override {
    return m_below ? m_below->GetCurrentNetwork() : nullptr;
  }

 private:
  void Networks(std::size_t count) {
    m_changes.networks_changed = true;
    m_changes.networks = count;
  }

  InterfaceChanges& m_changes;
  std::shared_ptr<supplicant::Interface> m_below;
};

class OverlaySupplicant : public supplicant::Supplicant {
 public:
  OverlaySupplicant(OverlayPlatform::Parts& parts, std::shared_ptr<Supplicant> below)
      : m_parts(parts), m_below(std::move(below)) {}

  std::shared_ptr<supplicant::Interface> GetInterface(const std::string& ifname) override {
    InterfaceChanges& changes = m_parts.m_interfaces[ifname];
    return std::make_shared<OverlayInterface>(
        changes, changes.created ? nullptr : m_below->GetInterface(ifname));
  }
  std::shared_ptr<supplicant::Interface> GetOrCreateInterface(const std::string& ifname) override {
    try {
      return GetInterface(ifname);
    } catch (const supplicant::InterfaceUnknown&) {
    }
    InterfaceChanges& changes = m_parts.m_interfaces[ifname];
    changes.created = true;
    changes.networks_changed = true;
    return std::make_shared<OverlayInterface>(changes, nullptr);
  }
  void SetDebugLevel(bool) override {}

 private:
  OverlayPlatform::Parts& m_parts;
  std::shared_ptr<Supplicant> m_below;
};

}  // namespace

std::unique_ptr<VlanLinks> OverlayPlatform::Parts::OpenVlanLinks() {
  return std::make_unique<OverlayVlanLinks>(*this);
}

std::shared_ptr<supplicant::Supplicant> OverlayPlatform::Parts::Connect() {
  return std::make_shared<OverlaySupplicant>(*this, m_below.supplicant.Connect());
}

OverlayPlatform::OverlayPlatform(Platform& below) : m_parts(std::make_unique<Parts>(below)) {
  Parts& p = *m_parts;
  // The stored settings, the hardware and the time servers are only asked.
  m_platform.reset(new Platform{p, p, p, p, p, p, p, below.network_time, below.settings, p,
                                below.hardware, below.log, below.out});
}

OverlayPlatform::~OverlayPlatform() = default;

}  // namespace corvo
