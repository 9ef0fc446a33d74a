#include "apps/steps/wifi_profiles.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <sstream>

#include "apps/steps/enterprise_profiles.h"
#include "lib/platform/base/hex.h"
#include "lib/platform/settings/x509_identity.h"
#include "lib/platform/supplicant/names.h"

namespace corvo {

namespace {

using supplicant::BytesProperty;
using supplicant::IntProperty;
using supplicant::StringProperty;
namespace key = supplicant::key;

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

supplicant::PropertyValue Psk(const std::string& passphrase) {
  if (passphrase.size() < kHexPskLength) return StringProperty(key::kPsk, passphrase);
  return BytesProperty(HexDecode(passphrase));
}

void AddAccessPoint(supplicant::Interface& interface, const WifiSettings& settings,
                    WifiNetworksResult& result, LogSink& log) {
  supplicant::PropertySet properties;
  properties[key::kSsid] = StringProperty(key::kSsid, settings.ssid);
  if (!settings.passphrase.empty()) {
    properties[key::kKeyMgmt] = StringProperty(key::kKeyMgmt, "WPA-PSK");
    properties[key::kPsk] = Psk(settings.passphrase);
  } else {
    properties[key::kKeyMgmt] = StringProperty(key::kKeyMgmt, "NONE");
  }
  properties[key::kDisabled] = IntProperty(0);
  properties[key::kMode] = IntProperty(kAccessPointMode);
  properties[key::kFrequency] = IntProperty(static_cast<std::int32_t>(settings.frequency));
  properties[key::kPriority] = IntProperty(kAccessPointPriority);

  if (settings.debug) log.Print("Adding WiFi AP network: ssid='%s'\n", settings.ssid);
  interface.AddNetwork(properties);
  ++result.added;
  if (settings.debug) log.Print("WiFi AP network added\n");
  result.kind = WifiNetworkKind::kAccessPoint;
}

void AddStations(supplicant::Interface& interface, const WifiSettings& settings,
                 const WifiSecurity& security, const std::string& ciphers,
                 WifiNetworksResult& result, LogSink& log) {
  const std::string& passphrase = settings.passphrase;
  const std::string::size_type length = passphrase.size();
  // The hidden-network probe is asked for once per profile: by the open
  // network when there is one.
  bool probe_pending = true;

  if (passphrase.empty()) {
    supplicant::PropertySet properties;
    properties[key::kScanSsid] = IntProperty(1);
    properties[key::kSsid] = StringProperty(key::kSsid, settings.ssid);
    properties[key::kKeyMgmt] = StringProperty(key::kKeyMgmt, "NONE");
    properties[key::kDisabled] = IntProperty(0);
    properties[key::kPriority] = IntProperty(kOpenPriority);
    if (settings.debug) log.Print("Adding open WIFI network: ssid='%s'\n", settings.ssid);
    interface.AddNetwork(properties);
    ++result.added;
    probe_pending = false;
  }

  const bool wep_length = length == 5 || length == 10 || length == 13 || length == 26;
  const bool hex_key = length % 2 == 0;
  if (security.wep && wep_length && (!hex_key || IsAllHex(passphrase))) {
    supplicant::PropertySet properties;
    properties[key::kScanSsid] = IntProperty(probe_pending ? 1 : 0);
    properties[key::kSsid] = StringProperty(key::kSsid, settings.ssid);
    properties[key::kKeyMgmt] = StringProperty(key::kKeyMgmt, "NONE");
    properties[key::kPriority] = IntProperty(kWepPriority);
    properties[key::kWepKey0] =
        hex_key ? BytesProperty(HexDecode(passphrase)) : StringProperty(key::kWepKey0, passphrase);
    properties[key::kDisabled] = IntProperty(0);
    properties[key::kAuthAlg] = StringProperty(key::kAuthAlg, "SHARED OPEN");
    properties[key::kGroup] = StringProperty(key::kGroup, "WEP104 WEP40");
    log.Print("Adding WEP WIFI network: ssid='%s'\n", settings.ssid);
    interface.AddNetwork(properties);
    ++result.added;
  }

  // Without TKIP or CCMP the options rule WPA out; the supplicant would refuse
  // an empty cipher list anyway.
  if (length >= 8 && length <= kHexPskLength && !ciphers.empty()) {
    supplicant::PropertySet properties;
    properties[key::kScanSsid] = IntProperty(probe_pending ? 1 : 0);
    properties[key::kSsid] = StringProperty(key::kSsid, settings.ssid);
    properties[key::kKeyMgmt] = StringProperty(key::kKeyMgmt, "WPA-PSK");
    properties[key::kPairwise] = StringProperty(key::kPairwise, ciphers);
    properties[key::kGroup] = StringProperty(key::kGroup, ciphers);
    properties[key::kPriority] = IntProperty(kWpaPriority);
    properties[key::kPsk] = Psk(passphrase);
    properties[key::kDisabled] = IntProperty(0);
    log.Print("Adding WPA WIFI network: ssid='%s'\n", settings.ssid);
    interface.AddNetwork(properties);
    ++result.added;
  }
  if (result.added > 0) result.kind = WifiNetworkKind::kStation;
}

}  // namespace

bool ParseWifiSecurityOptions(const std::string& ifname, const std::string& options,
                              WifiSecurity& security, LogSink& log) {
  std::istringstream words(options);
  std::string word;
  if (!(words >> word)) {
    log.Print("%s: No security configuration; using defaults.\n", ifname);
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
      log.Print("%s: Unknown wifi security option %s\n", ifname, word);
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
                                         bool wired, bool time_is_set, LogSink& log) {
  WifiNetworksResult result;
  interface.RemoveAllNetworks();
  if (!wired && settings.ssid.empty() && !settings.access_point) return result;

  WifiSecurity security;
  if (!ParseWifiSecurityOptions(ifname, settings.security_options, security, log)) {
    log.Print("%s: Wifi security configuration error.\n", ifname);
    return result;
  }
  const std::string ciphers = CipherList(security);

  if (settings.UsesEapTls()) {
    CertificateIdentity certificate;
    if (BuildEapTlsNetwork(interface, ifname, settings, ciphers, certificate, wired, log)) {
      result.kind = WifiNetworkKind::kEapTls;
      result.added = 1;
      result.certificate_start = certificate.activation;
    }
    return result;
  }
  if (settings.UsesPeap()) {
    if (BuildPeapNetwork(interface, ifname, settings, ciphers, time_is_set, wired, log)) {
      log.Print("%s: PEAP/MSCHAPv2 enabled\n", ifname);
      result.kind = WifiNetworkKind::kPeap;
      result.added = 1;
    }
    return result;
  }
  if (wired) return result;

  try {
    if (settings.access_point) {
      AddAccessPoint(interface, settings, result, log);
    } else {
      AddStations(interface, settings, security, ciphers, result, log);
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
