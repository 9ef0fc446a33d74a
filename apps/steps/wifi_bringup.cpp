#include "apps/steps/wifi_bringup.h"

#include <chrono>
#include <cstring>
#include <exception>
#include <stdexcept>

#include <dbus-c++/error.h>
#include <fmt/format.h>

#include "apps/steps/wifi_profiles.h"
#include "apps/steps/wifi_settings.h"
#include "lib/hardware/hardware_config.h"
#include "lib/hardware/led_status.h"
#include "lib/platform/dbus_values.h"
#include "lib/platform/interface_reader.h"
#include "lib/platform/log.h"

namespace corvo {

namespace {

constexpr std::chrono::milliseconds kInterfaceWait{5000};
constexpr std::chrono::microseconds kInterfacePoll{500000};
// Errors that mean the supplicant holds nothing for the interface: it does not
// know it, or it is not running at all.
constexpr const char* kNothingHeld[] = {
    "fi.w1.wpa_supplicant1.InterfaceUnknown",    "org.freedesktop.DBus.Error.ServiceUnknown",
    "org.freedesktop.DBus.Error.NameHasNoOwner", "org.freedesktop.DBus.Error.NoServer",
    "org.freedesktop.DBus.Error.FileNotFound",   "org.freedesktop.DBus.Error.Disconnected",
};

bool InterfacePresent(const std::string& ifname, Platform& platform) {
  for (const std::string& port : platform.network.NetworkPorts()) {
    if (port == ifname) return true;
  }
  return false;
}

// With 802.1X off the wired port keeps no networks, but the supplicant is not
// asked to take the port on, and one that is not running holds nothing.
void ClearWiredNetworks(const std::string& ifname, const WifiBringupContext& context) {
  try {
    const auto client = context.make_supplicant();
    const auto interface = client->GetInterface(ifname);
    if (interface) interface->RemoveAllNetworks();
  } catch (const DBus::Error& e) {
    const char* name = e.name() != nullptr ? e.name() : "";
    for (const char* nothing : kNothingHeld) {
      if (std::strcmp(name, nothing) == 0) return;
    }
    throw;
  }
}

// An idle supplicant does not scan on its own: networks just added would wait
// for a scan that nobody asks for. A scan already under way serves as well.
void StartScan(supplicant::Interface& interface) {
  try {
    interface.Scan();
  } catch (const DBus::Error& e) {
    if (!HasErrorName(e, "fi.w1.wpa_supplicant1.Interface.ScanError")) throw;
  }
}

void RefreshObserver(LedNetworkStatusObserver* observer) {
  if (observer != nullptr) observer->UpdateLed();
}

}  // namespace

WifiBringupContext DefaultWifiBringupContext() {
  return WifiBringupContext{
      GetPlatform(),
      GetSystemClock(),
      GetRegistry(),
      [] { return supplicant::Supplicant::Create(); },
      [](const std::string& ifname) {
        return HardwareConfig::GetInstance()->IsWifiInterface(ifname);
      },
      [](const std::string& ifname) {
        return HardwareConfig::GetInstance()->IsEthernetInterface(ifname);
      },
      []() -> std::optional<std::string> {
        const HardwareConfig* hardware = HardwareConfig::GetInstance();
        if (!hardware->NeedsWifiMacAddress()) return std::nullopt;
        return hardware->WifiMacAddressVariable();
      },
      [](const std::string& ifname, const MacAddress& address) {
        SetInterfaceMacAddress(ifname, address);
      }};
}

void InitialiseWifi(LedNetworkStatusObserver* observer,
                    const PersistentNetworkConfig::InterfaceReader& reader,
                    const std::string& ifname, const WifiBringupContext& context) {
  Clock& clock = context.platform.clock;
  const auto deadline = clock.Now() + kInterfaceWait;
  bool present = InterfacePresent(ifname, context.platform);
  while (!present && clock.Now() < deadline) {
    Log("Waiting for interface to appear\n");
    clock.Sleep(kInterfacePoll);
    present = InterfacePresent(ifname, context.platform);
  }
  if (!present) {
    throw std::runtime_error(fmt::format("InitialiseWifi({}): interface not present", ifname));
  }

  const int prepared = InitWifiOrDot1x(ifname, context);
  if (prepared != 0) {
    throw std::runtime_error(
        fmt::format("InitialiseWifi({}): InitWifiOrDot1x failed: {}", ifname, prepared));
  }
  const int configured = ConfigureWifiOrDot1x(observer, reader, ifname, context);
  if (configured != 0) {
    throw std::runtime_error(
        fmt::format("InitialiseWifi({}): ConfigureWifiOrDot1x failed: {}", ifname, configured));
  }
}

int InitWifiOrDot1x(const std::string& ifname, const WifiBringupContext& context) {
  const bool wifi = context.is_wifi_interface(ifname);
  if (!wifi && !context.is_wired_interface(ifname)) return 0;
  if (wifi) SetWifiMacAddress(ifname, context);

  // One debugging switch serves the daemon for both kinds of interface.
  const char* key = wifi ? "wifi_debug" : "wired_debug";
  const bool debug = !context.registry.Read("networking", key).empty();
  SetWifiDebug(debug);
  if (debug) {
    Log("Enabling WiFi debugging\n");
    try {
      context.make_supplicant()->SetDebugLevel(true);
    } catch (const std::exception& e) {
      // The join reports an unreachable supplicant; debugging is not worth failing for.
      Log("%s: Unable to switch supplicant debugging on: %s\n", ifname, e.what());
    }
  }
  return 0;
}

int ConfigureWifiOrDot1x(LedNetworkStatusObserver* observer,
                         const PersistentNetworkConfig::InterfaceReader& reader,
                         const std::string& ifname, const WifiBringupContext& context) {
  if (ifname == "eth0" && IsBootedFromNfs(context)) {
    Log("Not configuring supplicant on eth0 interface, we're booted from NFS\n");
    return 0;
  }
  const bool wifi = context.is_wifi_interface(ifname);
  if (!wifi && !context.is_wired_interface(ifname)) return 0;
  const char* mode = wifi ? "WiFi" : "Wired 802.1x";

  WifiNetworksResult result;
  try {
    // 802.1X is decided before the rest is read: a wired port without it must
    // not fail on settings it does not use.
    WifiSettings dot1x;
    dot1x.private_key = reader.PrivateKey();
    dot1x.dot1x_method = reader.Dot1xMethod();
    if (!wifi && !dot1x.UsesEapTls() && !dot1x.UsesPeap()) {
      ClearWiredNetworks(ifname, context);
    } else {
      const WifiSettings settings = ReadWifiSettings(reader);
      const auto client = context.make_supplicant();
      const auto interface = client->GetOrCreateInterface(ifname);
      if (!interface) throw std::runtime_error("no supplicant interface");
      result = ConfigureWifiNetworks(*interface, ifname, settings, !wifi,
                                     context.system_clock.TimeIsSet());
      if (wifi && result.added > 0) StartScan(*interface);
    }
  } catch (const std::exception& e) {
    Log("Failed to initiate %s network join: %s\n", mode, e.what());
    RefreshObserver(observer);
    return 1;
  } catch (...) {
    Log("Failed to initiate %s network join: %s\n", mode, "unknown exception");
    RefreshObserver(observer);
    return 1;
  }

  if (result.kind == WifiNetworkKind::kEapTls) {
    SetClockFromCertificate(result.certificate_start, context.system_clock);
  }
  RefreshObserver(observer);
  return 0;
}

void SetWifiMacAddress(const std::string& ifname, const WifiBringupContext& context) {
  const std::optional<std::string> text = context.wifi_mac_address();
  if (!text) return;
  const std::optional<MacAddress> address = ParseUnicastMacAddress(*text);
  if (!address) {
    Log("ERROR: WiFi MAC address is invalid: %s\n", *text);
    return;
  }
  Log("Setting WiFi MAC address\n");
  try {
    context.set_mac_address(ifname, *address);
  } catch (const std::exception& e) {
    Log("ERROR: Unable to set WiFi MAC address: %s\n", e.what());
  }
}

bool IsBootedFromNfs(const WifiBringupContext& context) {
  return context.platform.network.IsBootedFromNfs();
}

void SetClockFromCertificate(std::time_t activation, SystemClock& clock) {
  if (clock.TimeIsSet() || activation == 0) return;
  char text[64] = {};
  if (ctime_r(&activation, text) == nullptr) return;
  Log("linkrig: WPA/Enterprise active but time not set, setting based on client certificate - %s",
      text);
  const int error = clock.SetRealtime(static_cast<std::int64_t>(activation), 0);
  if (error != 0) Log("Unable to set system clock: (%d) %s\n", error, std::strerror(error));
}

}  // namespace corvo
