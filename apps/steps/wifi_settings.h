#pragma once
// What the supplicant networks of one interface are built from, and the value
// types the supplicant takes for network properties.

#include <cstdint>
#include <string>
#include <vector>

#include <dbus-c++/types.h>

namespace corvo {

namespace PersistentNetworkConfig {
class InterfaceReader;
}

// The wireless and 802.1X settings of one interface as stored.
struct WifiSettings {
  std::string ssid;                // "wi"
  std::string passphrase;          // "wp": also the PEAP and private-key password
  std::string security_options;    // "ws"
  bool access_point = false;       // "wm"
  unsigned int frequency = 0;      // "wf", MHz
  std::string ca_certificate;      // "wa"
  std::string client_certificate;  // "wt"
  std::string private_key;         // "wk", possibly a PKCS#12 file
  std::string identity;            // "wc"
  std::string dot1x_options;       // "wo"
  std::string dot1x_method;        // "ww"

  bool IsHidden() const;    // the word "hidden" among the 802.1X options
  bool UsesEapTls() const;  // a private key is stored
  bool UsesPeap() const;    // the 802.1X method is "peap"
};

WifiSettings ReadWifiSettings(const PersistentNetworkConfig::InterfaceReader& reader);

// Debugging output of the wireless and 802.1X steps, for the whole run.
void SetWifiDebug(bool on);
bool WifiDebug();

// Property values: strings must be valid UTF-8 (raises "Network property %s is
// not valid UTF-8" naming the key, never the value).
DBus::Variant StringProperty(const std::string& key, const std::string& value);
DBus::Variant IntProperty(std::int32_t value);
DBus::Variant BytesProperty(const std::vector<std::uint8_t>& value);

// Whether text contains word, ignoring letter case.
bool ContainsIgnoringCase(const std::string& text, const std::string& word);

}  // namespace corvo
