#include "lib/platform/supplicant/supplicant.h"

#include <exception>
#include <optional>
#include <utility>

#include "lib/platform/base/log.h"
#include "lib/platform/bus/dbus_dispatcher.h"
#include "lib/platform/bus/dbus_values.h"
#include "lib/platform/bus/utf8.h"
#include "lib/platform/supplicant/names.h"
#include "lib/platform/supplicant/replies.h"
#include "lib/platform/supplicant/supplicant_proxies.h"

namespace supplicant {

namespace {

// Must exist before the first connection is opened, and outlive every client.
corvo::EnsureDBusDispatcher s_dispatcher_guard;

// Bus errors leave the client in the types of bus_error.h and supplicant.h.
template <typename Call>
auto Translated(Call call) -> decltype(call()) {
  try {
    return call();
  } catch (const DBus::Error& error) {
    const std::string name = error.name() != nullptr ? error.name() : "";
    if (name == kInterfaceUnknownError) throw InterfaceUnknown(name, error.message());
    if (name == kScanError) throw ScanError(name, error.message());
    corvo::ThrowBusError(name, error.message());
  }
}

DBus::Variant ToVariant(const PropertyValue& value) {
  return std::visit([](const auto& held) { return corvo::MakeVariant(held); }, value);
}

VariantMap ToVariants(const PropertySet& properties) {
  VariantMap variants;
  for (const auto& [key, value] : properties) variants.emplace(key, ToVariant(value));
  return variants;
}

}  // namespace

PropertyValue StringProperty(const std::string& key, const std::string& value) {
  if (!corvo::IsValidUtf8(value)) {
    throw std::runtime_error("Network property " + key + " is not valid UTF-8");
  }
  return value;
}

std::string LookupPropertyString(const PropertySet& properties, const std::string& key) {
  const auto found = properties.find(key);
  if (found == properties.end()) return "";
  const auto* text = std::get_if<std::string>(&found->second);
  return text != nullptr ? *text : "";
}

class NetworkImpl : public Network {
 public:
  NetworkImpl(DBus::Connection connection, const DBus::Path& path)
      : m_connection(std::move(connection)), m_proxy(m_connection, path, kServiceName) {}

  PropertySet GetProperties() override {
    return Translated([&] { return FromVariants(m_proxy.Properties()); });
  }

 private:
  DBus::Connection m_connection;
  SupplicantNetworkProxy m_proxy;
};

class InterfaceImpl : public Interface {
 public:
  InterfaceImpl(DBus::Connection connection, const DBus::Path& path)
      : m_connection(std::move(connection)), m_proxy(m_connection, path, kServiceName) {}

  void AddNetwork(const PropertySet& properties) override {
    Translated([&] { m_proxy.AddNetwork(ToVariants(properties)); });
  }

  void AddAndSelectNetwork(const PropertySet& properties) override {
    Translated([&] {
      const DBus::Path path = m_proxy.AddNetwork(ToVariants(properties));
      m_proxy.SelectNetwork(path);
    });
  }

  void RemoveAllNetworks() override {
    Translated([&] {
      for (const DBus::Path& path : m_proxy.Networks()) m_proxy.RemoveNetwork(path);
    });
  }

  void ForEachBSS(const std::function<void(const BssInfo&)>& callback) override {
    const std::vector<DBus::Path> paths = Translated([&] { return m_proxy.BSSs(); });
    for (const DBus::Path& path : paths) {
      if (auto bss = ReadBss(path)) callback(*bss);
    }
  }

  SignalInfo GetSignalInfo() override {
    SignalInfo info;
    try {
      Translated([&] {
        if (auto bss = ReadBss(m_proxy.CurrentBSS())) info.bss = *bss;
        const VariantMap poll = m_proxy.SignalPoll();
        info.rssi = RssiOf(poll);
      });
    } catch (const std::exception& e) {
      corvo::Log("CAUGHT EXCEPTION: %s\n", e.what());
    }
    return info;
  }

  // A state that cannot be read counts as a state of its own, one that is
  // neither connected nor idle.
  std::string GetState() override {
    try {
      return Translated([&] { return m_proxy.State(); });
    } catch (const std::exception& e) {
      return std::string("EXCEPTION: ") + e.what();
    }
  }

  bool IsScanning() override {
    return Translated([&] { return m_proxy.Scanning(); });
  }

  // Results arrive later; callers poll IsScanning().
  void Scan() override {
    Translated([&] { m_proxy.Scan({{"Type", corvo::MakeVariant<std::string>("active")}}); });
  }

  bool HasNetworks() override {
    return Translated([&] { return !m_proxy.Networks().empty(); });
  }

  // AddBlob refuses a name that exists, so any old blob goes first.
  void SetBlob(const std::string& name, const Bytes& bytes) override {
    Translated([&] {
      try {
        m_proxy.RemoveBlob(name);
      } catch (const DBus::Error& error) {
        if (!corvo::HasErrorName(error, kBlobUnknownError)) throw;
      }
      // Built here rather than by the generated AddBlob, whose argument
      // writer cannot take the empty blob a missing certificate sends.
      DBus::CallMessage call;
      DBus::MessageIter writer = call.writer();
      writer << name;
      corvo::AppendBytes(writer, bytes);
      call.member("AddBlob");
      m_proxy.Interface_proxy::invoke_method(call);
    });
  }

  std::shared_ptr<Network> GetCurrentNetwork() override {
    const DBus::Path path = Translated([&] { return m_proxy.CurrentNetwork(); });
    if (path == kNoObject) return nullptr;
    return std::make_shared<NetworkImpl>(m_connection, path);
  }

 private:
  std::optional<BssInfo> ReadBss(const DBus::Path& path) {
    if (path == kNoObject) return std::nullopt;
    return Translated([&] {
      SupplicantBSSProxy proxy(m_connection, path, kServiceName);
      BssInfo info;
      const Bytes ssid = proxy.ByteArrayProperty("SSID");
      info.ssid.assign(ssid.begin(), ssid.end());
      info.bssid = FormatBssid(proxy.ByteArrayProperty("BSSID"));
      info.signal = proxy.Signal();
      info.frequency = proxy.Frequency();
      return info;
    });
  }

  DBus::Connection m_connection;
  SupplicantInterfaceProxy m_proxy;
};

class SupplicantImpl : public Supplicant {
 public:
  explicit SupplicantImpl(DriverChoice driver_for)
      : m_driver_for(std::move(driver_for)),
        m_connection(Translated([] { return DBus::Connection::SystemBus(); })),
        m_proxy(m_connection, kObjectPath, kServiceName) {}

  std::shared_ptr<Interface> GetInterface(const std::string& ifname) override {
    const DBus::Path path = Translated([&] { return m_proxy.GetInterface(ifname); });
    return std::make_shared<InterfaceImpl>(m_connection, path);
  }

  std::shared_ptr<Interface> GetOrCreateInterface(const std::string& ifname) override {
    try {
      return GetInterface(ifname);
    } catch (const InterfaceUnknown&) {
    }
    const VariantMap args = {
        {"Ifname", corvo::MakeVariant<std::string>(ifname)},
        {"Driver", corvo::MakeVariant<std::string>(m_driver_for(ifname))},
    };
    const DBus::Path path = Translated([&] { return m_proxy.CreateInterface(args); });
    return std::make_shared<InterfaceImpl>(m_connection, path);
  }

  void SetDebugLevel(bool verbose) override {
    Translated([&] { m_proxy.DebugLevel(verbose ? "debug" : "warning"); });
  }

 private:
  DriverChoice m_driver_for;
  DBus::Connection m_connection;
  SupplicantProxy m_proxy;
};

Bytes SupplicantBSSProxy::ByteArrayProperty(const char* property) {
  DBus::CallMessage call;
  call.member("Get");
  call.interface("org.freedesktop.DBus.Properties");
  DBus::MessageIter writer = call.writer();
  writer << std::string(kBssInterface) << std::string(property);
  return ReadByteArrayReply(fi::w1::wpa_supplicant1::BSS_proxy::invoke_method(call));
}

std::shared_ptr<Supplicant> Supplicant::Create(DriverChoice driver_for) {
  return std::make_shared<SupplicantImpl>(std::move(driver_for));
}

}  // namespace supplicant
