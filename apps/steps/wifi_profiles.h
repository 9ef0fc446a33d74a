#pragma once
// The supplicant networks of one interface. The store does not say which kind
// of security a passphrase belongs to, so every kind it could serve is added,
// each with its own priority, and the supplicant joins whichever the access
// point accepts.

#include <ctime>
#include <string>

#include "apps/steps/wifi_settings.h"
#include "lib/platform/base/log.h"
#include "lib/platform/supplicant/supplicant.h"

namespace corvo {

struct WifiSecurity {
  bool wep = false;
  bool tkip = false;
  bool ccmp = false;
};

// Words separated by blanks: "wep", "tkip", "ccmp". Empty options allow all
// three. An unknown word is reported and fails the parse.
bool ParseWifiSecurityOptions(const std::string& ifname, const std::string& options,
                              WifiSecurity& security, LogSink& log);

// "CCMP", "TKIP", "CCMP TKIP" or empty: the pairwise and group ciphers.
std::string CipherList(const WifiSecurity& security);

enum class WifiNetworkKind { kNone, kEapTls, kPeap, kAccessPoint, kStation };

struct WifiNetworksResult {
  WifiNetworkKind kind = WifiNetworkKind::kNone;
  int added = 0;                      // networks handed to the supplicant
  std::time_t certificate_start = 0;  // EAP-TLS: the client certificate's activation time
};

// Replaces the interface's networks by those of the settings. wired: the
// interface is a wired 802.1X port, where only the enterprise networks apply.
// Enterprise failures are reported and give no network; anything else that
// fails (a passphrase that does not decode, a supplicant error) raises, after
// the networks added so far are removed again.
WifiNetworksResult ConfigureWifiNetworks(supplicant::Interface& interface,
                                         const std::string& ifname, const WifiSettings& settings,
                                         bool wired, bool time_is_set, LogSink& log);

}  // namespace corvo
