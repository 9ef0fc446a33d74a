#include "apps/steps/wifi_settings.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <sstream>
#include <stdexcept>

#include <dbus/dbus.h>

#include "lib/platform/interface_reader.h"
#include "lib/platform/dbus_values.h"

namespace corvo {

namespace {

std::atomic<bool> g_wifi_debug{false};

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

void SetWifiDebug(bool on) { g_wifi_debug = on; }

bool WifiDebug() { return g_wifi_debug; }

DBus::Variant StringProperty(const std::string& key, const std::string& value) {
  // libdbus aborts the process on invalid UTF-8 or an embedded NUL.
  if (value.find('\0') != std::string::npos ||
      !dbus_validate_utf8(value.c_str(), nullptr)) {
    throw std::runtime_error("Network property " + key + " is not valid UTF-8");
  }
  return MakeVariant(value);
}

DBus::Variant IntProperty(std::int32_t value) { return MakeVariant(value); }

DBus::Variant BytesProperty(const std::vector<std::uint8_t>& value) { return MakeVariant(value); }

bool ContainsIgnoringCase(const std::string& text, const std::string& word) {
  const auto found = std::search(text.begin(), text.end(), word.begin(), word.end(),
                                 [](char a, char b) { return Lower(a) == Lower(b); });
  return found != text.end();
}

}  // namespace corvo
