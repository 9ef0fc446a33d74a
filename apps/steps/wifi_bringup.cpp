#include "apps/steps/wifi_bringup.h"

#include <chrono>
#include <exception>
#include <stdexcept>

#include <fmt/format.h>

#include "apps/steps/contained.h"
#include "apps/steps/network_time.h"
#include "apps/steps/wifi_profiles.h"
#include "apps/steps/wifi_settings.h"
#include "lib/platform/base/interface_names.h"

namespace corvo {

namespace {

constexpr std::chrono::milliseconds kInterfaceWait{5000};
constexpr std::chrono::microseconds kInterfacePoll{500000};

bool InterfacePresent(const std::string& ifname, Platform& platform) {
  for (const std::string& port : platform.network.NetworkPorts()) {
    if (port == ifname) return true;
  }
  return false;
}

// One debugging switch serves the daemon for each kind of interface.
bool DebugOn(bool wifi, Platform& platform) {
  const PersistentNetworkConfig::NetworkingReader networking(platform.settings);
  return wifi ? networking.WifiDebug() : networking.WiredDebug();
}

// With 802.1X off the wired port keeps no networks, but the supplicant is not
// asked to take the port on, and one that is not running holds nothing.
void ClearWiredNetworks(const std::string& ifname, Platform& platform) {
  try {
    const auto interface = platform.supplicant.Connect()->GetInterface(ifname);
    if (interface) interface->RemoveAllNetworks();
  } catch (const supplicant::InterfaceUnknown&) {
  } catch (const BusServiceUnavailable&) {
  }
}

// An idle supplicant does not scan on its own: networks just added would wait
// for a scan that nobody asks for. A scan already under way serves as well.
void StartScan(supplicant::Interface& interface) {
  try {
    interface.Scan();
  } catch (const supplicant::ScanError&) {
  }
}

}  // namespace

void InitialiseWifi(const RunContext& run) {
  Platform& platform = run.platform;
  const std::string& ifname = run.ifname;
  Clock& clock = platform.clock;
  const auto deadline = clock.Now() + kInterfaceWait;
  bool present = InterfacePresent(ifname, platform);
  while (!present && clock.Now() < deadline) {
    platform.log.Print("Waiting for interface to appear\n");
    clock.Sleep(kInterfacePoll);
    present = InterfacePresent(ifname, platform);
  }
  if (!present) {
    throw std::runtime_error(fmt::format("InitialiseWifi({}): interface not present", ifname));
  }

  InitWifiOrDot1x(run);
  if (!ConfigureWifiOrDot1x(run)) {
    throw std::runtime_error(
        fmt::format("InitialiseWifi({}): ConfigureWifiOrDot1x failed: 1", ifname));
  }
}

void InitWifiOrDot1x(const RunContext& run) {
  Platform& platform = run.platform;
  const std::string& ifname = run.ifname;
  const bool wifi = platform.hardware.IsWifiInterface(ifname);
  if (!wifi && !platform.hardware.IsEthernetInterface(ifname)) return;
  if (wifi) SetWifiMacAddress(ifname, platform);

  if (DebugOn(wifi, platform)) {
    platform.log.Print("Enabling WiFi debugging\n");
    try {
      platform.supplicant.Connect()->SetDebugLevel(true);
    } catch (const std::exception& e) {
      // The join reports an unreachable supplicant; debugging is not worth failing for.
      platform.log.Print("%s: Unable to switch supplicant debugging on: %s\n", ifname, e.what());
    }
  }
}

bool ConfigureWifiOrDot1x(const RunContext& run) {
  Platform& platform = run.platform;
  const std::string& ifname = run.ifname;
  const PersistentNetworkConfig::InterfaceReader& reader = run.reader;
  if (ifname == kEthernetPort && IsBootedFromNfs(platform)) {
    platform.log.Print("Not configuring supplicant on eth0 interface, we're booted from NFS\n");
    return true;
  }
  const bool wifi = platform.hardware.IsWifiInterface(ifname);
  if (!wifi && !platform.hardware.IsEthernetInterface(ifname)) return true;
  const char* mode = wifi ? "WiFi" : "Wired 802.1x";

  WifiNetworksResult result;
  const bool joined = Contained(
      [&] {
        // 802.1X is decided before the rest is read: a wired port without it
        // must not fail on settings it does not use.
        WifiSettings dot1x;
        dot1x.private_key = reader.PrivateKey();
        dot1x.dot1x_method = reader.Dot1xMethod();
        if (!wifi && !dot1x.UsesEapTls() && !dot1x.UsesPeap()) {
          ClearWiredNetworks(ifname, platform);
          return;
        }
        WifiSettings settings = ReadWifiSettings(reader);
        settings.debug = DebugOn(wifi, platform);
        const auto interface = platform.supplicant.Connect()->GetOrCreateInterface(ifname);
        if (!interface) throw std::runtime_error("no supplicant interface");
        result = ConfigureWifiNetworks(*interface, ifname, settings, !wifi, ClockIsSet(platform),
                                       platform.log);
        if (wifi && result.added > 0) StartScan(*interface);
      },
      [&](const std::exception* e) {
        platform.log.Print("Failed to initiate %s network join: %s\n", mode, FailureText(e));
      });
  if (joined && result.kind == WifiNetworkKind::kEapTls) {
    SetClockFromCertificate(result.certificate_start, platform);
  }
  run.led.Update();
  return joined;
}

void SetWifiMacAddress(const std::string& ifname, Platform& platform) {
  const std::optional<std::string> text = platform.hardware.WifiMacAddress();
  if (!text) return;
  const std::optional<MacAddress> address = ParseUnicastMacAddress(*text);
  if (!address) {
    platform.log.Print("ERROR: WiFi MAC address is invalid: %s\n", *text);
    return;
  }
  platform.log.Print("Setting WiFi MAC address\n");
  try {
    platform.network.SetMacAddress(ifname, *address);
  } catch (const std::exception& e) {
    platform.log.Print("ERROR: Unable to set WiFi MAC address: %s\n", e.what());
  }
}

bool IsBootedFromNfs(Platform& platform) { return platform.network.IsBootedFromNfs(); }

void SetClockFromCertificate(std::time_t activation, Platform& platform) {
  if (ClockIsSet(platform) || activation == 0) return;
  char text[64] = {};
  if (ctime_r(&activation, text) == nullptr) return;
  platform.log.Print(
      "linkrig: WPA/Enterprise active but time not set, setting based on client certificate - %s",
      text);
  SetClock(platform, static_cast<std::int64_t>(activation), 0);
}

}  // namespace corvo
