#include "lib/platform/supplicant.h"

#include <cstring>
#include <exception>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "lib/hardware/hardware_config.h"
#include "lib/platform/dbus_dispatcher.h"
#include "lib/platform/dbus_values.h"
#include "lib/platform/log.h"
#include "lib/platform/supplicant_proxies.h"

namespace supplicant {

namespace {

// Must exist before the first connection is opened, and outlive every client.
corvo::EnsureDBusDispatcher s_dispatcher_guard;

constexpr const char* kServiceName = "fi.w1.wpa_supplicant1";
constexpr const char* kObjectPath = "/fi/w1/wpa_supplicant1";
constexpr const char* kBssInterface = "fi.w1.wpa_supplicant1.BSS";
constexpr const char* kInterfaceUnknown = "fi.w1.wpa_supplicant1.InterfaceUnknown";
constexpr const char* kBlobUnknown = "fi.w1.wpa_supplicant1.BlobUnknown";
// The daemon's object path for "no object".
constexpr const char* kNoObject = "/";

std::string FormatBssid(const std::vector<std::uint8_t>& bytes) {
  std::string text;
  for (std::uint8_t byte : bytes) text += fmt::format("{:02x}:", byte);
  if (!text.empty()) text.pop_back();
  return text;
}

}  // namespace

class NetworkImpl : public Network {
 public:
  NetworkImpl(DBus::Connection connection, const DBus::Path& path)
      : m_connection(std::move(connection)), m_proxy(m_connection, path, kServiceName) {}

  PropertySet GetProperties() override { return m_proxy.Properties(); }

 private:
  DBus::Connection m_connection;
  SupplicantNetworkProxy m_proxy;
};

class InterfaceImpl : public Interface {
 public:
  InterfaceImpl(DBus::Connection connection, const DBus::Path& path)
      : m_connection(std::move(connection)), m_proxy(m_connection, path, kServiceName) {}

  void AddNetwork(const PropertySet& properties) override { m_proxy.AddNetwork(properties); }

  void AddAndSelectNetwork(const PropertySet& properties) override {
    const DBus::Path path = m_proxy.AddNetwork(properties);
    m_proxy.SelectNetwork(path);
  }

  void RemoveAllNetworks() override {
    for (const DBus::Path& path : m_proxy.Networks()) m_proxy.RemoveNetwork(path);
  }

  void ForEachBSS(const std::function<void(const BssInfo&)>& callback) override {
    for (const DBus::Path& path : m_proxy.BSSs()) {
      if (auto bss = ReadBss(path)) callback(*bss);
    }
  }

  SignalInfo GetSignalInfo() override {
    SignalInfo info;
    try {
      if (auto bss = ReadBss(m_proxy.CurrentBSS())) info.bss = *bss;
      const PropertySet poll = m_proxy.SignalPoll();
      info.rssi = poll.at("rssi");
    } catch (const std::exception& e) {
      corvo::Log("CAUGHT EXCEPTION: %s\n", e.what());
    }
    return info;
  }

  // A state that cannot be read counts as a state of its own, one that is
  // neither connected nor idle.
  std::string GetState() override {
    try {
      return m_proxy.State();
    } catch (const std::exception& e) {
      return std::string("EXCEPTION: ") + e.what();
    }
  }

  bool IsScanning() override { return m_proxy.Scanning(); }

  // Results arrive later; callers poll IsScanning().
  void Scan() override { m_proxy.Scan({{"Type", corvo::MakeVariant<std::string>("active")}}); }

  bool HasNetworks() override { return !m_proxy.Networks().empty(); }

  // AddBlob refuses a name that exists, so any old blob goes first.
  void SetBlob(const std::string& name, const std::vector<std::uint8_t>& bytes) override {
    try {
      m_proxy.RemoveBlob(name);
    } catch (const DBus::Error& error) {
      if (!corvo::HasErrorName(error, kBlobUnknown)) throw;
    }
    m_proxy.AddBlob(name, bytes);
  }

  std::shared_ptr<Network> GetCurrentNetwork() override {
    const DBus::Path path = m_proxy.CurrentNetwork();
    if (path == kNoObject) return nullptr;
    return std::make_shared<NetworkImpl>(m_connection, path);
  }

 private:
  std::optional<BssInfo> ReadBss(const DBus::Path& path) {
    if (path == kNoObject) return std::nullopt;
    SupplicantBSSProxy proxy(m_connection, path, kServiceName);
    BssInfo info;
    const std::vector<std::uint8_t> ssid = proxy.ByteArrayProperty("SSID");
    info.ssid.assign(ssid.begin(), ssid.end());
    info.bssid = FormatBssid(proxy.ByteArrayProperty("BSSID"));
    info.signal = proxy.Signal();
    info.frequency = proxy.Frequency();
    return info;
  }

  DBus::Connection m_connection;
  SupplicantInterfaceProxy m_proxy;
};

class SupplicantImpl : public Supplicant {
 public:
  SupplicantImpl()
      : m_connection(DBus::Connection::SystemBus()),
        m_proxy(m_connection, kObjectPath, kServiceName) {}

  std::shared_ptr<Interface> GetInterface(const std::string& ifname) override {
    return std::make_shared<InterfaceImpl>(m_connection, m_proxy.GetInterface(ifname));
  }

  std::shared_ptr<Interface> GetOrCreateInterface(const std::string& ifname) override {
    try {
      return GetInterface(ifname);
    } catch (const DBus::Error& error) {
      if (!corvo::HasErrorName(error, kInterfaceUnknown)) throw;
    }
    const corvo::HardwareConfig* hardware = corvo::HardwareConfig::GetInstance();
    const std::optional<std::string> wired = hardware->GetEthernetInterface();
    const PropertySet args = {
        {"Ifname", corvo::MakeVariant<std::string>(ifname)},
        {"Driver", corvo::MakeVariant<std::string>(wired && *wired == ifname ? "wired" : std::string(hardware->WifiDriver()))},
    };
    return std::make_shared<InterfaceImpl>(m_connection, m_proxy.CreateInterface(args));
  }

  void SetDebugLevel(bool verbose) override { m_proxy.DebugLevel(verbose ? "debug" : "warning"); }

 private:
  DBus::Connection m_connection;
  SupplicantProxy m_proxy;
};

std::vector<std::uint8_t> SupplicantBSSProxy::ByteArrayProperty(const char* property) {
  DBus::CallMessage call;
  call.member("Get");
  call.interface("org.freedesktop.DBus.Properties");
  DBus::MessageIter writer = call.writer();
  writer << std::string(kBssInterface) << std::string(property);
  const DBus::Message reply = fi::w1::wpa_supplicant1::BSS_proxy::invoke_method(call);
  DBus::MessageIter reader = reply.reader();
  DBus::Variant value;
  reader >> value;
  DBus::MessageIter bytes = value.reader();
  if (!bytes.is_array() || bytes.array_type() != 'y') {
    throw DBus::ErrorInvalidArgs("byte-array expected");
  }
  DBus::MessageIter elements = bytes.recurse();
  std::uint8_t* data = nullptr;
  const int length = elements.get_array(&data);
  if (length <= 0 || data == nullptr) return {};
  return std::vector<std::uint8_t>(data, data + length);
}

std::shared_ptr<Supplicant> Supplicant::Create() { return std::make_shared<SupplicantImpl>(); }

// Never throws: the status LED asks for this after every configuration, and
// a supplicant that cannot be reached just means no wireless link.
WifiLinkState GetWifiLinkState(const std::string& ifname) {
  std::shared_ptr<Supplicant> client;
  std::shared_ptr<Interface> interface;
  try {
    client = Supplicant::Create();
    interface = client->GetInterface(ifname);
  } catch (const std::exception&) {
    return kNoInterface;
  }
  const std::string state = interface->GetState();
  if (state == "disconnected" || state == "inactive" || state == "unknown" ||
      state == "scanning") {
    return kNotAssociated;
  }
  if (state != "completed") return kConnecting;
  try {
    const std::shared_ptr<Network> network = interface->GetCurrentNetwork();
    if (network && LookupPropertyString(network->GetProperties(), "mode") == "2") {
      return kConnectedAccessPoint;
    }
  } catch (const std::exception&) {
    // A network that cannot be read still leaves the station connected.
  }
  return kConnectedStation;
}

std::string LookupPropertyString(const PropertySet& properties, const std::string& key) {
  const auto found = properties.find(key);
  if (found == properties.end()) return "";
  const std::string value = found->second;
  return value;
}

}  // namespace supplicant
