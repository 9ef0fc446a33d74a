#include "lib/platform/recording_platform.h"

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstring>
#include <type_traits>

#include <fmt/format.h>

#include "lib/platform/settings/interface_reader.h"

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

// A property that carries the passphrase is hidden whatever it holds.
std::string RenderProperties(const supplicant::PropertySet& properties) {
  std::string text = "{";
  for (const auto& [key, value] : properties) {
    if (text.size() > 1) text += ", ";
    text += key + "=" +
            (PersistentNetworkConfig::IsPassphraseProperty(key) ? kRedacted : RenderValue(value));
  }
  return text + "}";
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

// Each change goes the same way: the failure hook, the change itself on the inner platform,
// then its line (a change that fails leaves none). Questions go straight to the inner one.
class RecordingPlatform::Parts : public Programs,
                                 public NetworkState,
                                 public Files,
                                 public Clock,
                                 public SystemClock,
                                 public HostNames,
                                 public Settings,
                                 public supplicant::SupplicantConnector {
 public:
  Parts(RecordingPlatform& owner, Platform& inner) : m_owner(owner), m_inner(inner) {}

  template <typename Apply>
  auto Change(const std::vector<std::string>& lines, Apply apply) -> decltype(apply()) {
    const std::lock_guard<std::recursive_mutex> lock(m_owner.m_mutex);
    if (m_owner.before_effect) {
      for (const std::string& line : lines) m_owner.before_effect(line);
    }
    if constexpr (std::is_void_v<decltype(apply())>) {
      apply();
      Record(lines);
    } else {
      auto result = apply();
      Record(lines);
      return result;
    }
  }
  std::string Redact(const std::string& text) const { return m_owner.Redact(text); }
  Platform& Inner() { return m_inner; }

  // --- Programs
  int Run(const std::string& program, const std::vector<std::string>& args,
          const ProgramOptions& options) override {
    std::string line = "run " + QuoteArgument(Redact(program));
    for (const std::string& arg : args) line += " " + QuoteArgument(Redact(arg));
    return Change({line}, [&] { return m_inner.programs.Run(program, args, options); });
  }
  std::optional<pid_t> ReadPidFile(const std::string& path, const std::string& name) override {
    const std::optional<pid_t> pid = m_inner.programs.ReadPidFile(path, name);
    const std::lock_guard<std::recursive_mutex> lock(m_owner.m_mutex);
    if (pid) m_pid_labels[*pid] = name + " of " + path;
    return pid;
  }
  void KillProcessAndWait(pid_t pid, int signal, std::int64_t timeout_us) override {
    const std::lock_guard<std::recursive_mutex> lock(m_owner.m_mutex);
    const auto label = m_pid_labels.find(pid);
    const std::string target =
        label != m_pid_labels.end() ? label->second : "pid " + std::to_string(pid);
    Change({"stop " + target + ": " + SignalName(signal) + ", SIGKILL after " +
            Duration(std::chrono::microseconds(timeout_us))},
           [&] { m_inner.programs.KillProcessAndWait(pid, signal, timeout_us); });
  }
  pid_t StartDetached(const std::vector<std::string>& argv, const std::string& pid_file) override {
    std::string line = "start";
    for (const std::string& arg : argv) line += " " + QuoteArgument(Redact(arg));
    return Change({line + " (detached, PID to " + pid_file + ")"},
                  [&] { return m_inner.programs.StartDetached(argv, pid_file); });
  }
  void RunDetached(const std::function<void()>& task) override {
    Change({"start a detached task"}, [&] { m_inner.programs.RunDetached(task); });
  }

  // --- NetworkState
  bool InterfaceHasLink(const std::string& ifname) override {
    return m_inner.network.InterfaceHasLink(ifname);
  }
  bool InterfaceIsReady(const std::string& ifname) override {
    return m_inner.network.InterfaceIsReady(ifname);
  }
  bool HasDefaultRoute(const std::string& ifname) override {
    return m_inner.network.HasDefaultRoute(ifname);
  }
  void SetIpForwarding(bool on) override {
    Change({std::string("forwarding ") + (on ? "on" : "off")},
           [&] { m_inner.network.SetIpForwarding(on); });
  }
  std::vector<std::string> NetworkPorts() override { return m_inner.network.NetworkPorts(); }
  bool IsBootedFromNfs() override { return m_inner.network.IsBootedFromNfs(); }
  std::vector<InterfaceAddress> InterfaceAddresses(const std::string& ifname) override {
    return m_inner.network.InterfaceAddresses(ifname);
  }
  void SetMacAddress(const std::string& ifname, const MacAddress& address) override {
    Change({fmt::format("mac address {} {:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", ifname,
                        address[0], address[1], address[2], address[3], address[4], address[5])},
           [&] { m_inner.network.SetMacAddress(ifname, address); });
  }
  std::unique_ptr<VlanLinks> OpenVlanLinks() override;
  void RemoveAddresses(const std::string& ifname) override {
    Change({"remove addresses of " + ifname}, [&] { m_inner.network.RemoveAddresses(ifname); });
  }

  // --- Files
  void Replace(const std::string& path, const std::string& content, mode_t mode) override {
    Change({fmt::format("write {} (mode {:04o}) {}", path, static_cast<unsigned>(mode),
                        QuoteText(Redact(content)))},
           [&] { m_inner.files.Replace(path, content, mode); });
  }
  std::optional<std::string> Read(const std::string& path) override {
    return m_inner.files.Read(path);
  }
  std::vector<std::string> List(const std::string& directory) override {
    return m_inner.files.List(directory);
  }
  void Write(const std::string& path, const std::string& text) override {
    Change({"write " + path + " " + QuoteText(Redact(text))},
           [&] { m_inner.files.Write(path, text); });
  }
  bool Exists(const std::string& path) override { return m_inner.files.Exists(path); }
  void Remove(const std::string& path) override {
    Change({"remove " + path}, [&] { m_inner.files.Remove(path); });
  }
  void MakeDirectory(const std::string& path, mode_t mode) override {
    Change({fmt::format("make directory {} (mode {:04o})", path, static_cast<unsigned>(mode))},
           [&] { m_inner.files.MakeDirectory(path, mode); });
  }

  // --- Clock
  std::chrono::steady_clock::time_point Now() override { return m_inner.clock.Now(); }
  void Sleep(std::chrono::microseconds duration) override {
    Change({"sleep " + Duration(duration)}, [&] { m_inner.clock.Sleep(duration); });
  }

  // --- SystemClock
  std::int64_t RealtimeMicroseconds() override {
    return m_inner.system_clock.RealtimeMicroseconds();
  }
  void SetRealtime(std::int64_t seconds, long microseconds) override {
    Change({fmt::format("clock {}.{:06d}", seconds, microseconds)},
           [&] { m_inner.system_clock.SetRealtime(seconds, microseconds); });
  }
  bool TimeIsSet() override { return m_inner.system_clock.TimeIsSet(); }

  // --- HostNames
  std::string GetHostName() override { return m_inner.host_names.GetHostName(); }
  void SetHostName(const std::string& name) override {
    Change({"host name " + QuoteArgument(name)}, [&] { m_inner.host_names.SetHostName(name); });
  }

  // --- Settings: the secrets among the values read are hidden from then on.
  std::string Read(const std::string& section, const std::string& key) override {
    const std::string value = m_inner.settings.Read(section, key);
    for (const std::string& secret :
         PersistentNetworkConfig::SecretForms(section, key, value, m_inner.settings)) {
      m_owner.AddSecret(secret);
    }
    return value;
  }

  // --- Supplicant
  std::shared_ptr<supplicant::Supplicant> Connect() override;

 private:
  void Record(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) m_owner.m_effects.push_back(Redact(line));
  }

  RecordingPlatform& m_owner;
  Platform& m_inner;
  // What a stop line calls a process: its name and PID file, as it was found.
  std::map<pid_t, std::string> m_pid_labels;
};

namespace {

class RecordedVlanLinks : public VlanLinks {
 public:
  RecordedVlanLinks(RecordingPlatform::Parts& parts, std::unique_ptr<VlanLinks> inner)
      : m_parts(parts), m_inner(std::move(inner)) {}

  std::vector<std::string> ListVlansOn(const std::string& parent) override {
    return m_inner->ListVlansOn(parent);
  }
  void DeleteLink(const std::string& name) override {
    m_parts.Change({"link delete " + name}, [&] { m_inner->DeleteLink(name); });
  }
  void AddVlan(const std::string& parent, std::uint16_t id, const std::string& name) override {
    m_parts.Change({fmt::format("link add {} (VLAN {} on {})", name, id, parent)},
                   [&] { m_inner->AddVlan(parent, id, name); });
  }
  void SetUp(const std::string& name) override {
    m_parts.Change({"link up " + name}, [&] { m_inner->SetUp(name); });
  }

 private:
  RecordingPlatform::Parts& m_parts;
  std::unique_ptr<VlanLinks> m_inner;
};

class RecordedInterface : public supplicant::Interface {
 public:
  RecordedInterface(RecordingPlatform::Parts& parts, std::string ifname,
                    std::shared_ptr<supplicant::Interface> inner)
      : m_parts(parts), m_ifname(std::move(ifname)), m_inner(std::move(inner)) {}

  void AddNetwork(const supplicant::PropertySet& properties) override {
    m_parts.Change({Line("add network " + RenderProperties(properties))},
                   [&] { m_inner->AddNetwork(properties); });
  }
  void AddAndSelectNetwork(const supplicant::PropertySet& properties) override {
    m_parts.Change({Line("add network " + RenderProperties(properties)), Line("select network")},
                   [&] { m_inner->AddAndSelectNetwork(properties); });
  }
  void RemoveAllNetworks() override {
    m_parts.Change({Line("remove all networks")}, [&] { m_inner->RemoveAllNetworks(); });
  }
  void ForEachBSS(const std::function<void(const supplicant::BssInfo&)>& callback) override {
    m_inner->ForEachBSS(callback);
  }
  supplicant::SignalInfo GetSignalInfo() override { return m_inner->GetSignalInfo(); }
  std::string GetState() override { return m_inner->GetState(); }
  bool IsScanning() override { return m_inner->IsScanning(); }
  void Scan() override {
    m_parts.Change({Line("scan")}, [&] { m_inner->Scan(); });
  }
  bool HasNetworks() override { return m_inner->HasNetworks(); }
  void SetBlob(const std::string& name, const supplicant::Bytes& bytes) override {
    m_parts.Change({Line(fmt::format("blob {} ({} bytes)", name, bytes.size()))},
                   [&] { m_inner->SetBlob(name, bytes); });
  }
  std::shared_ptr<supplicant::Network> GetCurrentNetwork() override {
    return m_inner->GetCurrentNetwork();
  }

 private:
  std::string Line(const std::string& what) const {
    return "supplicant " + m_ifname + ": " + m_parts.Redact(what);
  }

  RecordingPlatform::Parts& m_parts;
  std::string m_ifname;
  std::shared_ptr<supplicant::Interface> m_inner;
};

class RecordedSupplicant : public supplicant::Supplicant {
 public:
  RecordedSupplicant(RecordingPlatform::Parts& parts, std::shared_ptr<Supplicant> inner)
      : m_parts(parts), m_inner(std::move(inner)) {}

  std::shared_ptr<supplicant::Interface> GetInterface(const std::string& ifname) override {
    return std::make_shared<RecordedInterface>(m_parts, ifname, m_inner->GetInterface(ifname));
  }
  std::shared_ptr<supplicant::Interface> GetOrCreateInterface(const std::string& ifname) override {
    try {
      return GetInterface(ifname);
    } catch (const supplicant::InterfaceUnknown&) {
    }
    const std::string driver = m_parts.Inner().hardware.SupplicantDriver(ifname);
    auto created =
        m_parts.Change({"supplicant " + ifname + ": create interface (driver " + driver + ")"},
                       [&] { return m_inner->GetOrCreateInterface(ifname); });
    return std::make_shared<RecordedInterface>(m_parts, ifname, std::move(created));
  }
  void SetDebugLevel(bool verbose) override {
    m_parts.Change({std::string("supplicant: debug level ") + (verbose ? "debug" : "warning")},
                   [&] { m_inner->SetDebugLevel(verbose); });
  }

 private:
  RecordingPlatform::Parts& m_parts;
  std::shared_ptr<Supplicant> m_inner;
};

// Standard error and output of the recorded run, kept.
class TextSink : public LogSink {
 public:
  TextSink(RecordingPlatform& owner, std::recursive_mutex& mutex, std::string& text)
      : m_owner(owner), m_mutex(mutex), m_text(text) {}
  void Write(const std::string& text) noexcept override {
    try {
      const std::lock_guard<std::recursive_mutex> lock(m_mutex);
      m_text += m_owner.Redact(text);
    } catch (...) {
    }
  }

 private:
  RecordingPlatform& m_owner;
  std::recursive_mutex& m_mutex;
  std::string& m_text;
};

}  // namespace

std::unique_ptr<VlanLinks> RecordingPlatform::Parts::OpenVlanLinks() {
  return std::make_unique<RecordedVlanLinks>(*this, m_inner.network.OpenVlanLinks());
}

std::shared_ptr<supplicant::Supplicant> RecordingPlatform::Parts::Connect() {
  return std::make_shared<RecordedSupplicant>(*this, m_inner.supplicant.Connect());
}

RecordingPlatform::RecordingPlatform(Platform& inner)
    : m_parts(std::make_unique<Parts>(*this, inner)),
      m_log_sink(std::make_unique<TextSink>(*this, m_mutex, m_log)),
      m_out_sink(std::make_unique<TextSink>(*this, m_mutex, m_output)) {
  Parts& p = *m_parts;
  // Taking a lock, asking for the time and the hardware's facts change nothing.
  m_platform.reset(new Platform{p, p, p, inner.locks, p, p, p, inner.network_time, p, p,
                                inner.hardware, *m_log_sink, *m_out_sink});
}

RecordingPlatform::~RecordingPlatform() = default;

void RecordingPlatform::AddSecret(const std::string& secret) {
  const std::lock_guard<std::recursive_mutex> lock(m_mutex);
  if (!secret.empty()) m_secrets.insert(secret);
}

std::string RecordingPlatform::Redact(std::string text) const {
  const std::lock_guard<std::recursive_mutex> lock(m_mutex);
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
