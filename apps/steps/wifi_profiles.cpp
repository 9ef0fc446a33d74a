#include "apps/steps/wifi_profiles.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <sstream>

#include "apps/steps/enterprise_profiles.h"
#include "lib/platform/hex.h"
#include "lib/platform/log.h"
#include "lib/platform/x509_identity.h"

namespace corvo {

namespace {

constexpr std::int32_t kAccessPointPriority = 0;
constexpr std::int32_t kOpenPriority = 1;
constexpr std::int32_t kWepPriority = 2;
constexpr std::int32_t kWpaPriority = 3;
constexpr std::int32_t kAccessPointMode = 2;
// A passphrase of this length is the pre-shared key itself, in hexadecimal.
constexpr std::string::size_type kHexPskLength = 64;

bool IsAllHex(const std::string& text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; });
}

DBus::Variant Psk(const std::string& passphrase) {
  if (passphrase.size() < kHexPskLength) return StringProperty("psk", passphrase);
  return BytesProperty(HexDecode(passphrase));
}

void AddAccessPoint(supplicant::Interface& interface, const WifiSettings& settings,
                    WifiNetworksResult& result) {
  supplicant::PropertySet properties;
  properties["ssid"] = StringProperty("ssid", settings.ssid);
  if (!settings.passphrase.empty()) {
    properties["key_mgmt"] = StringProperty("key_mgmt", "WPA-PSK");
    properties["psk"] = Psk(settings.passphrase);
  } else {
    properties["key_mgmt"] = StringProperty("key_mgmt", "NONE");
  }
  properties["disabled"] = IntProperty(0);
  properties["mode"] = IntProperty(kAccessPointMode);
  properties["frequency"] = IntProperty(static_cast<std::int32_t>(settings.frequency));
  properties["priority"] = IntProperty(kAccessPointPriority);

  if (WifiDebug()) Log("Adding WiFi AP network: ssid='%s'\n", settings.ssid);
  interface.AddNetwork(properties);
  ++result.added;
  if (WifiDebug()) Log("WiFi AP network added\n");
  result.kind = WifiNetworkKind::kAccessPoint;
}

void AddStations(supplicant::Interface& interface, const WifiSettings& settings,
                 const WifiSecurity& security, const std::string& ciphers,
                 WifiNetworksResult& result) {
  const std::string& passphrase = settings.passphrase;
  const std::string::size_type length = passphrase.size();
  // The hidden-network probe is asked for once per profile: by the open
  // network when there is one.
  bool probe_pending = true;

  if (passphrase.empty()) {
    supplicant::PropertySet properties;
    properties["scan_ssid"] = IntProperty(1);
    properties["ssid"] = StringProperty("ssid", settings.ssid);
    properties["key_mgmt"] = StringProperty("key_mgmt", "NONE");
    properties["disabled"] = IntProperty(0);
    properties["priority"] = IntProperty(kOpenPriority);
    if (WifiDebug()) Log("Adding open WIFI network: ssid='%s'\n", settings.ssid);
    interface.AddNetwork(properties);
    ++result.added;
    probe_pending = false;
  }

  const bool wep_length = length == 5 || length == 10 || length == 13 || length == 26;
  const bool hex_key = length % 2 == 0;
  if (security.wep && wep_length && (!hex_key || IsAllHex(passphrase))) {
    supplicant::PropertySet properties;
    properties["scan_ssid"] = IntProperty(probe_pending ? 1 : 0);
    properties["ssid"] = StringProperty("ssid", settings.ssid);
    properties["key_mgmt"] = StringProperty("key_mgmt", "NONE");
    properties["priority"] = IntProperty(kWepPriority);
    properties["wep_key0"] =
        hex_key ? BytesProperty(HexDecode(passphrase)) : StringProperty("wep_key0", passphrase);
    properties["disabled"] = IntProperty(0);
    properties["auth_alg"] = StringProperty("auth_alg", "SHARED OPEN");
    properties["group"] = StringProperty("group", "WEP104 WEP40");
    Log("Adding WEP WIFI network: ssid='%s'\n", settings.ssid);
    interface.AddNetwork(properties);
    ++result.added;
  }

  // Without TKIP or CCMP the options rule WPA out; the supplicant would refuse
  // an empty cipher list anyway.
  if (length >= 8 && length <= kHexPskLength && !ciphers.empty()) {
    supplicant::PropertySet properties;
    properties["scan_ssid"] = IntProperty(probe_pending ? 1 : 0);
    properties["ssid"] = StringProperty("ssid", settings.ssid);
    properties["key_mgmt"] = StringProperty("key_mgmt", "WPA-PSK");
    properties["pairwise"] = StringProperty("pairwise", ciphers);
    properties["group"] = StringProperty("group", ciphers);
    properties["priority"] = IntProperty(kWpaPriority);
    properties["psk"] = Psk(passphrase);
    properties["disabled"] = IntProperty(0);
    Log("Adding WPA WIFI network: ssid='%s'\n", settings.ssid);
    interface.AddNetwork(properties);
    ++result.added;
  }
  if (result.added > 0) result.kind = WifiNetworkKind::kStation;
}

}  // namespace

bool ParseWifiSecurityOptions(const std::string& ifname, const std::string& options,
                              WifiSecurity& security) {
  std::istringstream words(options);
  std::string word;
  if (!(words >> word)) {
    Log("%s: No security configuration; using defaults.\n", ifname);
    security = WifiSecurity{true, true, true};
    return true;
  }
  security = WifiSecurity();
  do {
    if (word == "tkip") {
      security.tkip = true;
    } else if (word == "ccmp") {
      security.ccmp = true;
    } else if (word == "wep") {
      security.wep = true;
    } else {
      Log("%s: Unknown wifi security option %s\n", ifname, word);
      return false;
    }
  } while (words >> word);
  return true;
}

std::string CipherList(const WifiSecurity& security) {
  std::string list;
  if (security.ccmp) list = "CCMP";
  if (security.tkip) list += list.empty() ? "TKIP" : " TKIP";
  return list;
}

WifiNetworksResult ConfigureWifiNetworks(supplicant::Interface& interface,
                                         const std::string& ifname, const WifiSettings& settings,
                                         bool wired, bool time_is_set) {
  WifiNetworksResult result;
  interface.RemoveAllNetworks();
  if (!wired && settings.ssid.empty() && !settings.access_point) return result;

  WifiSecurity security;
  if (!ParseWifiSecurityOptions(ifname, settings.security_options, security)) {
    Log("%s: Wifi security configuration error.\n", ifname);
    return result;
  }
  const std::string ciphers = CipherList(security);

  if (settings.UsesEapTls()) {
    CertificateIdentity certificate;
    if (BuildEapTlsNetwork(interface, ifname, settings, ciphers, certificate, wired)) {
      result.kind = WifiNetworkKind::kEapTls;
      result.added = 1;
      result.certificate_start = certificate.activation;
    }
    return result;
  }
  if (settings.UsesPeap()) {
    if (BuildPeapNetwork(interface, ifname, settings, ciphers, time_is_set, wired)) {
      Log("%s: PEAP/MSCHAPv2 enabled\n", ifname);
      result.kind = WifiNetworkKind::kPeap;
      result.added = 1;
    }
    return result;
  }
  if (wired) return result;

  try {
    if (settings.access_point) {
      AddAccessPoint(interface, settings, result);
    } else {
      AddStations(interface, settings, security, ciphers, result);
    }
  } catch (...) {
    // Leave no half of a profile behind.
    if (result.added > 0) {
      try {
        interface.RemoveAllNetworks();
      } catch (...) {
      }
    }
    throw;
  }
  return result;
}

}  // namespace corvo
