#pragma once
// What the supplicant networks of one interface are built from.

#include <string>

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
  bool debug = false;              // the stored debugging switch of the port

  bool IsHidden() const;    // the word "hidden" among the 802.1X options
  bool UsesEapTls() const;  // a private key is stored
  bool UsesPeap() const;    // the 802.1X method is "peap"
};

WifiSettings ReadWifiSettings(const PersistentNetworkConfig::InterfaceReader& reader);

// Whether text contains word, ignoring letter case.
bool ContainsIgnoringCase(const std::string& text, const std::string& word);

}  // namespace corvo
