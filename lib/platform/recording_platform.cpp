#include "lib/platform/recording_platform.h"

#include <algorithm>
#include <cctype>
#include <csignal>
#include <netinet/in.h>
#include <cstring>
#include <stdexcept>

#include <fmt/format.h>

#include "lib/platform/base/errno_exception.h"
#include "lib/platform/bus/bus_error.h"
#include "lib/platform/settings/interface_reader.h"
#include "lib/platform/supplicant/names.h"

namespace corvo {

namespace {

std::string SignalName(int signal) {
  if (signal == SIGTERM) return "SIGTERM";
  if (signal == SIGKILL) return "SIGKILL";
  if (signal == SIGHUP) return "SIGHUP";
  if (signal == SIGINT) return "SIGINT";
  return "signal " + std::to_string(signal);
}

std::string Duration(std::chrono::microseconds duration) {
  const auto us = duration.count();
  if (us % 1000000 == 0) return std::to_string(us / 1000000) + " s";
  if (us % 1000 == 0) return std::to_string(us / 1000) + " ms";
  return std::to_string(us) + " us";
}

std::string RenderValue(const supplicant::PropertyValue& value) {
  if (const auto* text = std::get_if<std::string>(&value)) return QuoteText(*text);
  if (const auto* number = std::get_if<std::int32_t>(&value)) return std::to_string(*number);
  if (const auto* number = std::get_if<std::uint32_t>(&value)) return std::to_string(*number);
  const auto& bytes = std::get<supplicant::Bytes>(value);
  std::string hex = "0x";
  for (std::uint8_t byte : bytes) hex += fmt::format("{:02x}", byte);
  return hex;
}

std::string RenderProperties(const supplicant::PropertySet& properties) {
  std::string text = "{";
  for (const auto& [key, value] : properties) {
    if (text.size() > 1) text += ", ";
    text += key + "=" + (PersistentNetworkConfig::IsPassphraseProperty(key) ? std::string("<redacted>") : RenderValue(value));
  }
  return text + "}";
}

bool Contains(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

std::string QuoteArgument(const std::string& argument) {
  if (argument.empty()) return "''";
  const bool plain = std::all_of(argument.begin(), argument.end(), [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || std::strchr("_./:=,+@%-", c) != nullptr;
  });
  if (plain) return argument;
  std::string quoted = "'";
  for (char c : argument) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

std::string QuoteText(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\n') {
      quoted += "\\n";
    } else if (c == '\t') {
      quoted += "\\t";
    } else if (c == '"' || c == '\\') {
      quoted += std::string("\\") + c;
    } else if (byte < 0x20 || byte >= 0x7F) {
      quoted += fmt::format("\\x{:02x}", static_cast<unsigned int>(byte));
    } else {
      quoted += c;
    }
  }
  return quoted + "\"";
}

// The parts of the recorded world, each behind its interface. Without a
// source every question is answered from the model; with one, from the real
// system, except where a recorded change of this run has made the answer.
class RecordingPlatform::Parts : public Programs,
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
  Parts(RecordingPlatform& owner, Platform* source)
      : m_owner(owner), m_world(owner.world), m_source(source) {}

  // --- Programs
  int Run(const std::string& program, const std::vector<std::string>& args,
          const ProgramOptions&) override {
    std::string line = "run " + QuoteArgument(m_owner.Redact(program));
    for (const std::string& arg : args) line += " " + QuoteArgument(m_owner.Redact(arg));
    const std::lock_guard<std::recursive_mutex> lock(m_owner.Mutex());
    m_owner.Record(line);
    m_world.runs.push_back({program, args});
    auto& codes = m_world.exit_codes[program];
    if (codes.empty()) return 0;
    const int code = codes.front();
    codes.pop_front();
    return code;
  }
  std::optional<pid_t> ReadPidFile(const std::string& path, const std::string& name) override {
    std::optional<pid_t> pid;
    const auto found = m_world.pid_files.find(path);
    if (found != m_world.pid_files.end()) {
      pid = found->second;
    } else if (m_source && m_stopped_files.count(path) == 0) {
      pid = m_source->programs.ReadPidFile(path, name);
    }
    if (pid) m_pid_labels[*pid] = name + " of " + path;
    return pid;
  }
  void KillProcessAndWait(pid_t pid, int signal, std::int64_t timeout_us) override {
    Gone(pid, "stop " + Target(pid) + ": " + SignalName(signal) + ", SIGKILL after " +
                  Duration(std::chrono::microseconds(timeout_us)));
  }
  pid_t StartDetached(const std::vector<std::string>& argv, const std::string& pid_file) override {
    std::string line = "start";
    for (const std::string& arg : argv) line += " " + QuoteArgument(m_owner.Redact(arg));
    m_owner.Record(line + " (detached, PID to " + pid_file + ")");
    const pid_t pid = m_next_pid++;
    m_world.pid_files[pid_file] = pid;
    return pid;
  }
  void RunDetached(const std::function<void()>& task) override {
    m_owner.Record("start a detached task");
    if (m_world.run_detached) task();
  }

  // --- NetworkState
  bool InterfaceHasLink(const std::string& ifname) override {
    return m_source ? m_source->network.InterfaceHasLink(ifname) : m_world.links.count(ifname) != 0;
  }
  bool InterfaceIsReady(const std::string& ifname) override {
    return m_source ? m_source->network.InterfaceIsReady(ifname) : m_world.ready.count(ifname) != 0;
  }
  bool HasDefaultRoute(const std::string& ifname) override {
    return m_source ? m_source->network.HasDefaultRoute(ifname)
                    : m_world.default_routes.count(ifname) != 0;
  }
  void SetIpForwarding(bool on) override {
    m_owner.Record(std::string("forwarding ") + (on ? "on" : "off"));
    m_world.forwarding = on;
  }
  std::vector<std::string> NetworkPorts() override {
    return m_source ? m_source->network.NetworkPorts() : m_world.ports;
  }
  bool IsBootedFromNfs() override {
    return m_source ? m_source->network.IsBootedFromNfs() : m_world.nfs_root;
  }
  std::vector<InterfaceAddress> InterfaceAddresses(const std::string& ifname) override {
    if (m_source) {
      std::vector<InterfaceAddress> entries = m_source->network.InterfaceAddresses(ifname);
      if (m_addresses_removed.count(ifname) != 0) {
        // What a removal leaves: entries without an address, and IPv6 link-local ones.
        entries.erase(std::remove_if(entries.begin(), entries.end(),
                                     [](const InterfaceAddress& entry) {
                                       return entry.family == AF_INET ||
                                              (entry.family == AF_INET6 &&
                                               !(entry.address[0] == 0xfe &&
                                                 (entry.address[1] & 0xc0) == 0x80));
                                     }),
                      entries.end());
      }
      return entries;
    }
    if (m_world.addresses_fail) throw std::runtime_error("Failed to get IP address list");
    const auto found = m_world.addresses.find(ifname);
    return found == m_world.addresses.end() ? std::vector<InterfaceAddress>() : found->second;
  }
  void SetMacAddress(const std::string& ifname, const MacAddress& address) override {
    m_owner.Record(fmt::format("mac address {} {:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", ifname,
                               address[0], address[1], address[2], address[3], address[4],
                               address[5]));
  }
  std::unique_ptr<VlanLinks> OpenVlanLinks() override;
  void RemoveAddresses(const std::string& ifname) override {
    m_owner.Record("remove addresses of " + ifname);
    // A plan then shows the interface without them (the model's tests arrange their own).
    m_addresses_removed.insert(ifname);
  }

  // --- Files
  void Replace(const std::string& path, const std::string& content, mode_t mode) override {
    if (m_world.unwritable.count(path) != 0) throw ErrnoException(EACCES, "write " + path);
    m_owner.Record(fmt::format("write {} (mode {:04o}) {}", path, static_cast<unsigned>(mode),
                               QuoteText(m_owner.Redact(content))));
    m_world.files[path] = content;
    m_world.modes[path] = mode;
    m_removed_files.erase(path);
  }
  std::optional<std::string> Read(const std::string& path) override {
    const auto found = m_world.files.find(path);
    if (found != m_world.files.end()) return found->second;
    if (m_removed_files.count(path) != 0 || !m_source) return std::nullopt;
    return m_source->files.Read(path);
  }
  std::vector<std::string> List(const std::string& directory) override {
    std::set<std::string> names;
    if (m_source) {
      for (const std::string& name : m_source->files.List(directory)) {
        if (m_removed_files.count(directory + "/" + name) == 0) names.insert(name);
      }
    }
    const std::string prefix = directory + "/";
    for (auto it = m_world.files.lower_bound(prefix);
         it != m_world.files.end() && it->first.compare(0, prefix.size(), prefix) == 0; ++it) {
      names.insert(it->first.substr(prefix.size(), it->first.find('/', prefix.size()) - prefix.size()));
    }
    return {names.begin(), names.end()};
  }
  void Write(const std::string& path, const std::string& text) override {
    m_owner.Record("write " + path + " " + QuoteText(m_owner.Redact(text)));
    m_world.files[path] = text;
    m_removed_files.erase(path);
  }
  bool Exists(const std::string& path) override {
    if (m_world.files.count(path) != 0) return true;
    if (m_removed_files.count(path) != 0) return false;
    if (m_source) return m_source->files.Exists(path);
    // A directory exists when something lies below it.
    const std::string prefix = path.back() == '/' ? path : path + "/";
    const auto below = m_world.files.lower_bound(prefix);
    return below != m_world.files.end() && below->first.compare(0, prefix.size(), prefix) == 0;
  }
  void Remove(const std::string& path) override {
    m_owner.Record("remove " + path);
    m_world.files.erase(path);
    m_world.modes.erase(path);
    m_removed_files.insert(path);
  }

  // --- Locks: taking one changes nothing; no other run holds one here.
  std::unique_ptr<HeldLock> Acquire(const std::string&, std::chrono::milliseconds,
                                    const std::function<void()>&) override {
    return std::make_unique<HeldLock>();
  }

  // --- Clock: a recorded run waits for nothing.
  std::chrono::steady_clock::time_point Now() override { return m_world.now; }
  void Sleep(std::chrono::microseconds duration) override {
    m_owner.Record("sleep " + Duration(duration));
    m_world.now += duration;
    if (m_world.on_sleep) m_world.on_sleep();
  }

  // --- SystemClock
  std::int64_t RealtimeMicroseconds() override {
    return m_source && !m_clock_set ? m_source->system_clock.RealtimeMicroseconds()
                                    : m_world.realtime_us;
  }
  int SetRealtime(std::int64_t seconds, long microseconds) override {
    m_owner.Record(fmt::format("clock {}.{:06d}", seconds, microseconds));
    if (m_world.set_realtime_error != 0) return m_world.set_realtime_error;
    m_world.realtime_us = seconds * 1000000 + microseconds;
    m_world.time_is_set = true;
    m_clock_set = true;
    return 0;
  }
  bool TimeIsSet() override {
    return m_source && !m_clock_set ? m_source->system_clock.TimeIsSet() : m_world.time_is_set;
  }

  // --- HostNames
  std::string GetHostName() override {
    return m_source && !m_host_name_set ? m_source->host_names.GetHostName() : m_world.host_name;
  }
  void SetHostName(const std::string& name) override {
    m_owner.Record("host name " + QuoteArgument(name));
    m_world.host_name = name;
    m_host_name_set = true;
  }

  // --- NetworkTimeSource: a recorded run asks no server.
  NetworkTimeResult Query(const std::string&) override { return m_world.network_time; }

  // --- Settings
  std::string Read(const std::string& section, const std::string& key) override {
    if (m_world.on_read) m_world.on_read(section, key);
    std::string value;
    if (m_source) {
      value = m_source->settings.Read(section, key);
    } else {
      const auto found = m_world.settings.find({section, key});
      if (found != m_world.settings.end()) value = found->second;
    }
    if (m_world.on_value) m_world.on_value(section, key, value);
    return value;
  }

  // --- HardwareFacts
  bool IsWifiInterface(const std::string& name) override {
    return m_source ? m_source->hardware.IsWifiInterface(name) : m_world.wifi_port == name;
  }
  bool IsEthernetInterface(const std::string& name) override {
    return m_source ? m_source->hardware.IsEthernetInterface(name) : m_world.ethernet_port == name;
  }
  std::optional<std::string> EthernetInterface() override {
    return m_source ? m_source->hardware.EthernetInterface() : m_world.ethernet_port;
  }
  std::string WifiDriver() override {
    return m_source ? m_source->hardware.WifiDriver() : m_world.wifi_driver;
  }
  std::string OemId() override { return m_source ? m_source->hardware.OemId() : m_world.oem_id; }
  std::string OemModel() override {
    return m_source ? m_source->hardware.OemModel() : m_world.oem_model;
  }
  std::string SerialNumber() override {
    return m_source ? m_source->hardware.SerialNumber() : m_world.serial_number;
  }
  std::optional<std::string> WifiMacAddress() override {
    return m_source ? m_source->hardware.WifiMacAddress() : m_world.wifi_mac_address;
  }

  // --- Supplicant
  std::shared_ptr<supplicant::Supplicant> Connect() override;

  RecordingPlatform& m_owner;
  WorldModel& m_world;
  Platform* const m_source;
  // VLAN links this run deleted and added, kept across VlanLinks handles.
  std::vector<std::string> m_vlans_deleted;
  std::map<std::string, std::vector<std::string>> m_vlans_added;

 private:
  std::string Target(pid_t pid) const {
    const auto label = m_pid_labels.find(pid);
    return label != m_pid_labels.end() ? label->second : "pid " + std::to_string(pid);
  }
  // Records the line; from then on the process's PID file names nothing.
  void Gone(pid_t pid, const std::string& line) {
    m_owner.Record(line);
    const auto label = m_pid_labels.find(pid);
    if (label != m_pid_labels.end())
      m_stopped_files.insert(label->second.substr(label->second.find(" of ") + 4));
    for (auto it = m_world.pid_files.begin(); it != m_world.pid_files.end();) {
      it = it->second == pid ? m_world.pid_files.erase(it) : std::next(it);
    }
  }

  std::map<pid_t, std::string> m_pid_labels;
  std::set<std::string> m_stopped_files;
  std::set<std::string> m_removed_files;
  std::set<std::string> m_addresses_removed;
  pid_t m_next_pid = 4000;
  bool m_clock_set = false;
  bool m_host_name_set = false;
};

namespace {

// The links of the source (or the model) with this run's changes on top.
class RecordedVlanLinks : public VlanLinks {
 public:
  explicit RecordedVlanLinks(RecordingPlatform::Parts& parts) : m_parts(parts) {}

  std::vector<std::string> ListVlansOn(const std::string& parent) override {
    std::vector<std::string> names;
    if (m_parts.m_source) {
      for (const std::string& name : Source().ListVlansOn(parent)) {
        if (!Contains(m_deleted, name)) names.push_back(name);
      }
    } else if (!Known(parent)) {
      throw std::runtime_error("Link not found");
    } else {
      names = m_parts.m_world.vlans[parent];
    }
    for (const std::string& name : m_added[parent]) names.push_back(name);
    return names;
  }
  void DeleteLink(const std::string& name) override {
    if (!Known(name)) throw std::runtime_error("Link not found");
    m_parts.m_owner.Record("link delete " + name);
    m_deleted.push_back(name);
    for (auto* lists : {&m_parts.m_world.vlans, &m_added}) {
      for (auto& [parent, names] : *lists) {
        names.erase(std::remove(names.begin(), names.end(), name), names.end());
      }
    }
  }
  void AddVlan(const std::string& parent, std::uint16_t id, const std::string& name) override {
    if (!Known(parent)) throw std::runtime_error("Link not found");
    m_parts.m_owner.Record(fmt::format("link add {} (VLAN {} on {})", name, id, parent));
    m_added[parent].push_back(name);
    m_deleted.erase(std::remove(m_deleted.begin(), m_deleted.end(), name), m_deleted.end());
  }
  void SetUp(const std::string& name) override {
    if (!Known(name)) throw std::runtime_error("Link not found");
    m_parts.m_owner.Record("link up " + name);
  }

 private:
  VlanLinks& Source() {
    if (!m_source) m_source = m_parts.m_source->network.OpenVlanLinks();
    return *m_source;
  }
  bool Known(const std::string& name) {
    if (Contains(m_deleted, name)) return false;
    for (const auto& [parent, names] : m_added) {
      if (Contains(names, name)) return true;
    }
    if (m_parts.m_source) {
      // A link the kernel has: a port, or a VLAN of one.
      if (Contains(m_parts.m_source->network.NetworkPorts(), name)) return true;
      const std::string parent = name.substr(0, name.find('.'));
      try {
        return parent != name && Contains(Source().ListVlansOn(parent), name);
      } catch (const std::exception&) {
        return false;
      }
    }
    const WorldModel& world = m_parts.m_world;
    if (Contains(world.ports, name)) return true;
    for (const auto& [parent, names] : world.vlans) {
      if (Contains(names, name)) return true;
    }
    return false;
  }

  RecordingPlatform::Parts& m_parts;
  std::unique_ptr<VlanLinks> m_source;
  // The run's changes outlive this handle: the next one sees them.
  std::vector<std::string>& m_deleted = m_parts.m_vlans_deleted;
  std::map<std::string, std::vector<std::string>>& m_added = m_parts.m_vlans_added;
};

class RecordedNetwork : public supplicant::Network {
 public:
  explicit RecordedNetwork(std::string mode) : m_mode(std::move(mode)) {}
  supplicant::PropertySet GetProperties() override { return {{supplicant::key::kMode, m_mode}}; }

 private:
  std::string m_mode;
};

// An interface of the supplicant: what it tells comes from the real one when
// there is one; what would change it is recorded.
class RecordedInterface : public supplicant::Interface {
 public:
  RecordedInterface(RecordingPlatform::Parts& parts, std::string ifname,
                    std::shared_ptr<supplicant::Interface> real)
      : m_parts(parts), m_ifname(std::move(ifname)), m_real(std::move(real)) {}

  void AddNetwork(const supplicant::PropertySet& properties) override {
    Record("add network " + m_parts.m_owner.Redact(RenderProperties(properties)));
    Model().networks.push_back(properties);
    m_changed = true;
  }
  void AddAndSelectNetwork(const supplicant::PropertySet& properties) override {
    AddNetwork(properties);
    Record("select network");
  }
  void RemoveAllNetworks() override {
    Record("remove all networks");
    Model().networks.clear();
    m_changed = true;
  }
  void ForEachBSS(const std::function<void(const supplicant::BssInfo&)>& callback) override {
    if (m_real) return m_real->ForEachBSS(callback);
    for (const supplicant::BssInfo& bss : Model().bss) callback(bss);
  }
  supplicant::SignalInfo GetSignalInfo() override {
    return m_real ? m_real->GetSignalInfo() : supplicant::SignalInfo();
  }
  std::string GetState() override { return m_real ? m_real->GetState() : Model().state; }
  bool IsScanning() override { return m_real ? m_real->IsScanning() : Model().scanning; }
  void Scan() override {
    Record("scan");
    Model().scanning = true;
  }
  bool HasNetworks() override {
    return m_real && !m_changed ? m_real->HasNetworks() : !Model().networks.empty();
  }
  void SetBlob(const std::string& name, const supplicant::Bytes& bytes) override {
    Record(fmt::format("blob {} ({} bytes)", name, bytes.size()));
    Model().blobs[name] = bytes;
  }
  std::shared_ptr<supplicant::Network> GetCurrentNetwork() override {
    if (m_real) return m_real->GetCurrentNetwork();
    const auto& mode = Model().current_mode;
    if (!mode) return nullptr;
    return std::make_shared<RecordedNetwork>(*mode);
  }

 private:
  SupplicantInterfaceModel& Model() { return m_parts.m_world.supplicant_interfaces[m_ifname]; }
  void Record(const std::string& what) {
    m_parts.m_owner.Record("supplicant " + m_ifname + ": " + what);
  }

  RecordingPlatform::Parts& m_parts;
  std::string m_ifname;
  std::shared_ptr<supplicant::Interface> m_real;
  bool m_changed = false;
};

class RecordedSupplicant : public supplicant::Supplicant {
 public:
  RecordedSupplicant(RecordingPlatform::Parts& parts, std::shared_ptr<Supplicant> real)
      : m_parts(parts), m_real(std::move(real)) {}

  std::shared_ptr<supplicant::Interface> GetInterface(const std::string& ifname) override {
    if (m_parts.m_world.supplicant_interfaces.count(ifname) != 0) {
      return std::make_shared<RecordedInterface>(m_parts, ifname, nullptr);
    }
    if (m_real) {
      return std::make_shared<RecordedInterface>(m_parts, ifname, m_real->GetInterface(ifname));
    }
    throw supplicant::InterfaceUnknown(supplicant::kInterfaceUnknownError,
                                       "wpa_supplicant knows nothing about this interface.");
  }
  std::shared_ptr<supplicant::Interface> GetOrCreateInterface(const std::string& ifname) override {
    try {
      return GetInterface(ifname);
    } catch (const supplicant::InterfaceUnknown&) {
    }
    m_parts.m_owner.Record("supplicant " + ifname + ": create interface (driver " +
                           m_parts.SupplicantDriver(ifname) + ")");
    m_parts.m_world.supplicant_interfaces[ifname];
    return std::make_shared<RecordedInterface>(m_parts, ifname, nullptr);
  }
  void SetDebugLevel(bool verbose) override {
    m_parts.m_owner.Record(std::string("supplicant: debug level ") +
                           (verbose ? "debug" : "warning"));
  }

 private:
  RecordingPlatform::Parts& m_parts;
  std::shared_ptr<Supplicant> m_real;
};

// Standard error and output of the recorded run.
class TextSink : public LogSink {
 public:
  TextSink(RecordingPlatform& owner, std::string& text) : m_owner(owner), m_text(text) {}
  void Write(const std::string& text) noexcept override {
    try {
      const std::lock_guard<std::recursive_mutex> lock(m_owner.Mutex());
      m_text += m_owner.Redact(text);
    } catch (...) {
    }
  }

 private:
  RecordingPlatform& m_owner;
  std::string& m_text;
};

}  // namespace

std::unique_ptr<VlanLinks> RecordingPlatform::Parts::OpenVlanLinks() {
  return std::make_unique<RecordedVlanLinks>(*this);
}

std::shared_ptr<supplicant::Supplicant> RecordingPlatform::Parts::Connect() {
  if (m_source) return std::make_shared<RecordedSupplicant>(*this, m_source->supplicant.Connect());
  if (!m_world.supplicant_running) {
    throw BusServiceUnavailable(bus_errors::kServiceUnknown,
                                "The name fi.w1.wpa_supplicant1 was not provided by any "
                                ".service files");
  }
  return std::make_shared<RecordedSupplicant>(*this, nullptr);
}

RecordingPlatform::RecordingPlatform(Platform* source)
    : m_parts(std::make_unique<Parts>(*this, source)) {
  Parts& p = *m_parts;
  m_log_sink = std::make_unique<TextSink>(*this, m_log);
  m_out_sink = std::make_unique<TextSink>(*this, m_output);
  m_platform.reset(new Platform{p, p, p, p, p, p, p, p, p, p, p, *m_log_sink, *m_out_sink});
}

RecordingPlatform::~RecordingPlatform() = default;

void RecordingPlatform::Record(const std::string& effect) {
  const std::lock_guard<std::recursive_mutex> lock(m_mutex);
  if (before_effect) before_effect(effect);
  m_effects.push_back(Redact(effect));
}

void RecordingPlatform::AddSecret(const std::string& secret) {
  const std::lock_guard<std::recursive_mutex> lock(m_mutex);
  if (!secret.empty()) m_secrets.insert(secret);
}

std::string RecordingPlatform::Redact(std::string text) const {
  // Longer secrets first: one may contain another.
  std::vector<std::string> secrets(m_secrets.begin(), m_secrets.end());
  std::sort(secrets.begin(), secrets.end(),
            [](const std::string& a, const std::string& b) { return a.size() > b.size(); });
  for (const std::string& secret : secrets) {
    for (auto at = text.find(secret); at != std::string::npos;
         at = text.find(secret, at + sizeof kRedacted - 1)) {
      text.replace(at, secret.size(), kRedacted);
    }
  }
  return text;
}

}  // namespace corvo
