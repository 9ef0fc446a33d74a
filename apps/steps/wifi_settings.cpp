#include "apps/steps/wifi_settings.h"

#include <algorithm>
#include <cctype>
#include <sstream>

#include "lib/platform/settings/interface_reader.h"

namespace corvo {

namespace {

char Lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

}  // namespace

bool WifiSettings::IsHidden() const {
  std::istringstream words(dot1x_options);
  std::string word;
  while (words >> word) {
    if (word == "hidden") return true;
  }
  return false;
}

bool WifiSettings::UsesEapTls() const { return !private_key.empty(); }

bool WifiSettings::UsesPeap() const { return dot1x_method == "peap"; }

WifiSettings ReadWifiSettings(const PersistentNetworkConfig::InterfaceReader& reader) {
  WifiSettings settings;
  settings.ssid = reader.Ssid();
  settings.passphrase = reader.Passphrase();
  settings.security_options = reader.SecurityOptions();
  settings.access_point = reader.IsAccessPoint();
  settings.frequency = settings.access_point ? reader.AccessPointFrequency() : 0;
  settings.ca_certificate = reader.CaCertificate();
  settings.client_certificate = reader.ClientCertificate();
  settings.private_key = reader.PrivateKey();
  settings.identity = reader.Identity();
  settings.dot1x_options = reader.Dot1xOptions();
  settings.dot1x_method = reader.Dot1xMethod();
  return settings;
}

bool ContainsIgnoringCase(const std::string& text, const std::string& word) {
  const auto found = std::search(text.begin(), text.end(), word.begin(), word.end(),
                                 [](char a, char b) { return Lower(a) == Lower(b); });
  return found != text.end();
}

}  // namespace corvo
