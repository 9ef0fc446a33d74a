#include "lib/platform/recording_platform.h"

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstring>
#include <sstream>
#include <stdexcept>

#include <fmt/format.h>

#include "lib/platform/base/errno_exception.h"
#include "lib/platform/bus/bus_error.h"
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

bool IsSecretKey(const std::string& key) {
  for (const char* secret : supplicant::kSecretKeys) {
    if (key == secret) return true;
  }
  return false;
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
    text += key + "=" + (IsSecretKey(key) ? std::string("<redacted>") : RenderValue(value));
  }
  return text + "}";
}

std::string NotAvailable() { return "not available to a recorded run"; }

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

// The parts of the recorded world, each behind its interface.
class RecordingPlatform::Parts : public Programs,
                                 public NetworkState,
                                 public Files,
                                 public Locks,
                                 public Clock,
                                 public SystemClock,
                                 public HostNames,
                                 public NetworkTimeSource,
                                 public Registry,
                                 public HardwareFacts,
                                 public supplicant::SupplicantConnector {
 public:
  explicit Parts(RecordingPlatform& owner) : m_owner(owner), m_world(owner.world) {}

  // --- Programs
  int Run(const std::string& program, const std::vector<std::string>& args,
          unsigned int flags) override {
    std::string line = "run " + QuoteArgument(program);
    for (const std::string& arg : args) line += " " + QuoteArgument(arg);
    const std::lock_guard<std::recursive_mutex> lock(m_owner.Mutex());
    m_owner.Record(line);
    m_world.runs.push_back({program, args, flags});
    auto& codes = m_world.exit_codes[program];
    if (codes.empty()) return 0;
    const int code = codes.front();
    codes.pop_front();
    return code;
  }
  std::optional<pid_t> ReadPidFile(const std::string& path, const std::string& name) override {
    const auto found = m_world.pid_files.find(path);
    if (found == m_world.pid_files.end()) return std::nullopt;
    m_pid_labels[found->second] = name + " of " + path;
    return found->second;
  }
  void KillProcessAndWait(pid_t pid, int signal, std::int64_t timeout_us) override {
    const auto label = m_pid_labels.find(pid);
    const std::string target =
        label != m_pid_labels.end() ? label->second : "pid " + std::to_string(pid);
    m_owner.Record("stop " + target + ": " + SignalName(signal) + ", SIGKILL after " +
                   Duration(std::chrono::microseconds(timeout_us)));
    for (auto it = m_world.pid_files.begin(); it != m_world.pid_files.end();) {
      it = it->second == pid ? m_world.pid_files.erase(it) : std::next(it);
    }
  }
  pid_t StartDetached(const std::vector<std::string>& argv, const std::string& pid_file) override {
    std::string line = "start";
    for (const std::string& arg : argv) line += " " + QuoteArgument(arg);
    m_owner.Record(line + " (detached, PID to " + pid_file + ")");
    const pid_t pid = m_next_pid++;
    m_world.pid_files[pid_file] = pid;
    return pid;
  }

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
  void SetIpForwarding(bool on) override {
    m_owner.Record(std::string("forwarding ") + (on ? "on" : "off"));
    m_world.forwarding = on;
  }
  std::vector<std::string> NetworkPorts() override { return m_world.ports; }
  bool IsBootedFromNfs() override { return m_world.nfs_root; }
  std::vector<InterfaceAddress> InterfaceAddresses(const std::string& ifname) override {
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

  // --- Files
  std::unique_ptr<std::ostream> Create(const std::string& path, mode_t mode) override;
  void Write(const std::string& path, const std::string& text) override {
    m_owner.Record("write " + path + " " + QuoteText(text));
    m_world.files[path] = text;
  }
  bool Exists(const std::string& path) override {
    if (m_world.files.count(path) != 0) return true;
    // A directory exists when something lies below it.
    const std::string prefix = path.back() == '/' ? path : path + "/";
    const auto below = m_world.files.lower_bound(prefix);
    return below != m_world.files.end() && below->first.compare(0, prefix.size(), prefix) == 0;
  }
  void Remove(const std::string& path) override {
    m_owner.Record("remove " + path);
    m_world.files.erase(path);
    m_world.modes.erase(path);
  }

  // --- Locks: taking one changes nothing; another run never holds one.
  std::unique_ptr<HeldLock> Acquire(const std::string&, std::chrono::milliseconds,
                                    const std::function<void()>&) override {
    return std::make_unique<HeldLock>();
  }

  // --- Clock
  std::chrono::steady_clock::time_point Now() override { return m_world.now; }
  void Sleep(std::chrono::microseconds duration) override {
    m_owner.Record("sleep " + Duration(duration));
    m_world.now += duration;
    if (m_world.on_sleep) m_world.on_sleep();
  }

  // --- SystemClock
  std::int64_t RealtimeMicroseconds() override { return m_world.realtime_us; }
  int SetRealtime(std::int64_t seconds, long microseconds) override {
    m_owner.Record(fmt::format("clock {}.{:06d}", seconds, microseconds));
    if (m_world.set_realtime_error != 0) return m_world.set_realtime_error;
    m_world.realtime_us = seconds * 1000000 + microseconds;
    m_world.time_is_set = true;
    return 0;
  }
  bool TimeIsSet() override { return m_world.time_is_set; }

  // --- HostNames
  std::string GetHostName() override { return m_world.host_name; }
  void SetHostName(const std::string& name) override {
    m_owner.Record("host name " + QuoteArgument(name));
    m_world.host_name = name;
  }

  // --- NetworkTimeSource
  NetworkTimeResult Query(const std::string&) override { return m_world.network_time; }

  // --- Registry (only reads are ever made)
  std::string Read(const std::string& section, const std::string& key) override {
    if (m_world.on_read) m_world.on_read(section, key);
    const auto found = m_world.settings.find({section, key});
    return found == m_world.settings.end() ? std::string() : found->second;
  }
  std::string ReadAllJson() override { throw std::logic_error(NotAvailable()); }
  void WriteJson(const std::string&) override { throw std::logic_error(NotAvailable()); }
  void Write(const std::string&, const std::string&, const std::string&) override {
    throw std::logic_error(NotAvailable());
  }
  bool KeyExists(const std::string&, const std::string&) override {
    throw std::logic_error(NotAvailable());
  }
  bool SectionExists(const std::string&) override { throw std::logic_error(NotAvailable()); }
  void DeleteKey(const std::string&, const std::string&) override {
    throw std::logic_error(NotAvailable());
  }
  void DeleteSection(const std::string&) override { throw std::logic_error(NotAvailable()); }
  void DeleteAll() override { throw std::logic_error(NotAvailable()); }
  std::vector<std::string> SectionList() override { throw std::logic_error(NotAvailable()); }
  std::map<std::string, std::string> KeyList(const std::string&) override {
    throw std::logic_error(NotAvailable());
  }
  void Flush() override { throw std::logic_error(NotAvailable()); }

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

  RecordingPlatform& m_owner;
  WorldModel& m_world;

 private:
  std::map<pid_t, std::string> m_pid_labels;
  pid_t m_next_pid = 4000;
};

namespace {

// Collects what a step writes; the model and the record get it when the
// stream goes (steps close their streams before going on).
class RecordedStream : public std::ostringstream {
 public:
  explicit RecordedStream(std::function<void(const std::string&)> done) : m_done(std::move(done)) {}
  ~RecordedStream() override { m_done(str()); }

 private:
  std::function<void(const std::string&)> m_done;
};

class RecordedVlanLinks : public VlanLinks {
 public:
  explicit RecordedVlanLinks(RecordingPlatform::Parts& parts) : m_parts(parts) {}

  std::vector<std::string> ListVlansOn(const std::string& parent) override {
    if (!Known(parent)) throw std::runtime_error("Link not found");
    return m_parts.m_world.vlans[parent];
  }
  void DeleteLink(const std::string& name) override {
    if (!Known(name)) throw std::runtime_error("Link not found");
    m_parts.m_owner.Record("link delete " + name);
    for (auto& [parent, names] : m_parts.m_world.vlans) {
      names.erase(std::remove(names.begin(), names.end(), name), names.end());
    }
  }
  void AddVlan(const std::string& parent, std::uint16_t id, const std::string& name) override {
    if (!Known(parent)) throw std::runtime_error("Link not found");
    m_parts.m_owner.Record(fmt::format("link add {} (VLAN {} on {})", name, id, parent));
    m_parts.m_world.vlans[parent].push_back(name);
  }
  void SetUp(const std::string& name) override {
    if (!Known(name)) throw std::runtime_error("Link not found");
    m_parts.m_owner.Record("link up " + name);
  }

 private:
  bool Known(const std::string& name) const {
    const WorldModel& world = m_parts.m_world;
    if (std::find(world.ports.begin(), world.ports.end(), name) != world.ports.end()) return true;
    for (const auto& [parent, names] : world.vlans) {
      if (std::find(names.begin(), names.end(), name) != names.end()) return true;
    }
    return false;
  }

  RecordingPlatform::Parts& m_parts;
};

class RecordedNetwork : public supplicant::Network {
 public:
  explicit RecordedNetwork(std::string mode) : m_mode(std::move(mode)) {}
  supplicant::PropertySet GetProperties() override { return {{supplicant::key::kMode, m_mode}}; }

 private:
  std::string m_mode;
};

class RecordedInterface : public supplicant::Interface {
 public:
  RecordedInterface(RecordingPlatform::Parts& parts, std::string ifname)
      : m_parts(parts), m_ifname(std::move(ifname)) {}

  void AddNetwork(const supplicant::PropertySet& properties) override {
    Record("add network " + RenderProperties(properties));
    Model().networks.push_back(properties);
  }
  void AddAndSelectNetwork(const supplicant::PropertySet& properties) override {
    AddNetwork(properties);
    Record("select network");
  }
  void RemoveAllNetworks() override {
    Record("remove all networks");
    Model().networks.clear();
  }
  void ForEachBSS(const std::function<void(const supplicant::BssInfo&)>& callback) override {
    for (const supplicant::BssInfo& bss : Model().bss) callback(bss);
  }
  supplicant::SignalInfo GetSignalInfo() override { return {}; }
  std::string GetState() override { return Model().state; }
  bool IsScanning() override { return Model().scanning; }
  void Scan() override {
    Record("scan");
    Model().scanning = true;
  }
  bool HasNetworks() override { return !Model().networks.empty(); }
  void SetBlob(const std::string& name, const supplicant::Bytes& bytes) override {
    Record(fmt::format("blob {} ({} bytes)", name, bytes.size()));
    Model().blobs[name] = bytes;
  }
  std::shared_ptr<supplicant::Network> GetCurrentNetwork() override {
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
};

class RecordedSupplicant : public supplicant::Supplicant {
 public:
  explicit RecordedSupplicant(RecordingPlatform::Parts& parts) : m_parts(parts) {}

  std::shared_ptr<supplicant::Interface> GetInterface(const std::string& ifname) override {
    if (m_parts.m_world.supplicant_interfaces.count(ifname) == 0) {
      throw supplicant::InterfaceUnknown(supplicant::kInterfaceUnknownError,
                                         "wpa_supplicant knows nothing about this interface.");
    }
    return std::make_shared<RecordedInterface>(m_parts, ifname);
  }
  std::shared_ptr<supplicant::Interface> GetOrCreateInterface(const std::string& ifname) override {
    if (m_parts.m_world.supplicant_interfaces.count(ifname) == 0) {
      const bool wired = m_parts.m_world.ethernet_port == ifname;
      m_parts.m_owner.Record("supplicant " + ifname + ": create interface (driver " +
                             (wired ? std::string("wired") : m_parts.m_world.wifi_driver) + ")");
      m_parts.m_world.supplicant_interfaces[ifname];
    }
    return std::make_shared<RecordedInterface>(m_parts, ifname);
  }
  void SetDebugLevel(bool verbose) override {
    m_parts.m_owner.Record(std::string("supplicant: debug level ") +
                           (verbose ? "debug" : "warning"));
  }

 private:
  RecordingPlatform::Parts& m_parts;
};

// Standard error and output of the recorded run.
class TextSink : public LogSink {
 public:
  TextSink(std::string& text, std::recursive_mutex& mutex) : m_text(text), m_mutex(mutex) {}
  void Write(const std::string& text) noexcept override {
    try {
      const std::lock_guard<std::recursive_mutex> lock(m_mutex);
      m_text += text;
    } catch (...) {
    }
  }

 private:
  std::string& m_text;
  std::recursive_mutex& m_mutex;
};

}  // namespace

std::unique_ptr<VlanLinks> RecordingPlatform::Parts::OpenVlanLinks() {
  return std::make_unique<RecordedVlanLinks>(*this);
}

std::unique_ptr<std::ostream> RecordingPlatform::Parts::Create(const std::string& path,
                                                               mode_t mode) {
  if (m_world.unwritable.count(path) != 0) {
    auto failed = std::make_unique<std::ostringstream>();
    failed->setstate(std::ios::badbit);
    return failed;
  }
  return std::make_unique<RecordedStream>([this, path, mode](const std::string& content) {
    try {
      m_owner.Record(fmt::format("write {} (mode {:04o}) {}", path, static_cast<unsigned>(mode),
                                 QuoteText(content)));
    } catch (...) {
      // A change that fails leaves the file as it was.
      return;
    }
    m_world.files[path] = content;
    m_world.modes[path] = mode;
  });
}

std::shared_ptr<supplicant::Supplicant> RecordingPlatform::Parts::Connect() {
  if (!m_world.supplicant_running) {
    throw BusServiceUnavailable(bus_errors::kServiceUnknown,
                                "The name fi.w1.wpa_supplicant1 was not provided by any "
                                ".service files");
  }
  return std::make_shared<RecordedSupplicant>(*this);
}

RecordingPlatform::RecordingPlatform() : m_parts(std::make_unique<Parts>(*this)) {
  Parts& p = *m_parts;
  m_log_sink = std::make_unique<TextSink>(m_log, m_mutex);
  m_out_sink = std::make_unique<TextSink>(m_output, m_mutex);
  m_platform.reset(new Platform{p, p, p, p, p, p, p, p, p, p, p, *m_log_sink, *m_out_sink});
}

RecordingPlatform::~RecordingPlatform() = default;

void RecordingPlatform::Record(const std::string& effect) {
  const std::lock_guard<std::recursive_mutex> lock(m_mutex);
  if (before_effect) before_effect(effect);
  m_effects.push_back(effect);
}

}  // namespace corvo
