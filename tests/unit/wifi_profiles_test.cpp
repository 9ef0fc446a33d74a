#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "apps/steps/wifi_profiles.h"
#include "tests/unit/fake_supplicant.h"

namespace {

using supplicant::test::FakeInterface;
using supplicant::test::Rendered;

struct StationCase {
  const char* name;
  const char* passphrase;
  const char* options;
  std::vector<Rendered> networks;
  std::string log;
};

const std::string kDefaults = "wlan0: No security configuration; using defaults.\n";
const std::string kWep = "Adding WEP WIFI network: ssid='Home'\n";
const std::string kWpa = "Adding WPA WIFI network: ssid='Home'\n";
const std::string kHex26 = "0123456789abcdef0123456789";
const std::string kHex64 = "00112233445566778899aabbccddeeff00112233445566778899AABBCCDDEEFF";
const std::string kHex64Bytes =
    "ay:00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff";

const Rendered kOpen{{"scan_ssid", "i:1"}, {"ssid", "s:Home"}, {"key_mgmt", "s:NONE"},
                     {"disabled", "i:0"},  {"priority", "i:1"}};
Rendered Wep(const std::string& key) {
  return {{"scan_ssid", "i:1"}, {"ssid", "s:Home"},     {"key_mgmt", "s:NONE"},
          {"priority", "i:2"},  {"wep_key0", key},      {"disabled", "i:0"},
          {"auth_alg", "s:SHARED OPEN"}, {"group", "s:WEP104 WEP40"}};
}
Rendered Wpa(const std::string& psk, const std::string& ciphers = "CCMP TKIP") {
  return {{"scan_ssid", "i:1"}, {"ssid", "s:Home"},   {"key_mgmt", "s:WPA-PSK"},
          {"pairwise", "s:" + ciphers}, {"group", "s:" + ciphers}, {"priority", "i:3"},
          {"psk", psk},         {"disabled", "i:0"}};
}

std::string g_log;  // of the last Build, also when it raised

// Builds the networks (debugging as asked) and gives the log; what is raised passes through.
std::string Build(FakeInterface& interface, const corvo::WifiSettings& settings,
                  corvo::WifiNetworksResult* result = nullptr, bool debug = false) {
  corvo::SetWifiDebug(debug);
  testing::internal::CaptureStderr();
  try {
    const auto built = corvo::ConfigureWifiNetworks(interface, "wlan0", settings, false, true);
    if (result != nullptr) *result = built;
  } catch (...) {
    corvo::SetWifiDebug(false);
    g_log = testing::internal::GetCapturedStderr();
    throw;
  }
  corvo::SetWifiDebug(false);
  return g_log = testing::internal::GetCapturedStderr();
}

class StationNetworks : public ::testing::TestWithParam<StationCase> {};

TEST_P(StationNetworks, AddsEveryKindThePassphraseFits) {
  const StationCase& c = GetParam();
  corvo::WifiSettings settings;
  settings.ssid = "Home";
  settings.passphrase = c.passphrase;
  settings.security_options = c.options;
  FakeInterface interface;
  corvo::WifiNetworksResult result;
  const std::string log = Build(interface, settings, &result);

  EXPECT_EQ(log, c.log);
  if (*c.passphrase != '\0') {
    EXPECT_EQ(log.find(c.passphrase), std::string::npos);
  }
  EXPECT_EQ(interface.calls.front(), "RemoveAllNetworks");
  EXPECT_EQ(interface.networks, c.networks);
  EXPECT_EQ(result.added, static_cast<int>(c.networks.size()));
  EXPECT_EQ(result.kind, c.networks.empty() ? corvo::WifiNetworkKind::kNone
                                            : corvo::WifiNetworkKind::kStation);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, StationNetworks,
    ::testing::Values(
        StationCase{"open", "", "", {kOpen}, kDefaults},
        StationCase{"wep13_and_wpa", "abcdefghijklm", "",
                    {Wep("s:abcdefghijklm"), Wpa("s:abcdefghijklm")}, kDefaults + kWep + kWpa},
        StationCase{"wep_hex26_and_wpa", kHex26.c_str(), "",
                    {Wep("ay:0123456789abcdef0123456789"), Wpa("s:" + kHex26)},
                    kDefaults + kWep + kWpa},
        StationCase{"wpa_hex64", kHex64.c_str(), "", {Wpa(kHex64Bytes)}, kDefaults + kWpa},
        StationCase{"ccmp_only", "abcdefghijklm", "ccmp", {Wpa("s:abcdefghijklm", "CCMP")}, kWpa},
        StationCase{"tkip_wep", "abcdefghijklm", "tkip  wep",
                    {Wep("s:abcdefghijklm"), Wpa("s:abcdefghijklm", "TKIP")}, kWep + kWpa},
        StationCase{"wep5", "abcde", "wep", {Wep("s:abcde")}, kWep},
        StationCase{"wep10_not_hex", "helloworld", "", {Wpa("s:helloworld")}, kDefaults + kWpa},
        StationCase{"fits_nothing", "abc", "", {}, kDefaults},
        StationCase{"unknown_word", "abcdefghijklm", "ccmp wpa3", {},
                    "wlan0: Unknown wifi security option wpa3\n"
                    "wlan0: Wifi security configuration error.\n"}),
    [](const ::testing::TestParamInfo<StationCase>& param_info) {
      return std::string(param_info.param.name);
    });

TEST(WifiNetworks, AccessPointReplacesTheStationNetworks) {
  corvo::WifiSettings settings;
  settings.ssid = "Player";
  settings.access_point = true;
  settings.frequency = 2437;
  for (const char* passphrase : {"", "apsecret1", kHex64.c_str()}) {
    settings.passphrase = passphrase;
    FakeInterface interface;
    corvo::WifiNetworksResult result;
    EXPECT_EQ(Build(interface, settings, &result, true),
              kDefaults + "Adding WiFi AP network: ssid='Player'\nWiFi AP network added\n");
    Rendered expected{{"ssid", "s:Player"},   {"disabled", "i:0"}, {"mode", "i:2"},
                      {"frequency", "i:2437"}, {"priority", "i:0"}};
    expected["key_mgmt"] = *passphrase == '\0' ? "s:NONE" : "s:WPA-PSK";
    if (*passphrase != '\0') {
      expected["psk"] = *passphrase == 'a' ? "s:" + std::string(passphrase) : kHex64Bytes;
    }
    EXPECT_EQ(interface.networks, std::vector<Rendered>{expected}) << passphrase;
    EXPECT_EQ(result.kind, corvo::WifiNetworkKind::kAccessPoint);
  }
}

TEST(WifiNetworks, NoNameAndNoAccessPointOnlyRemovesTheNetworks) {
  corvo::WifiSettings settings;
  settings.passphrase = "abcdefghijklm";
  FakeInterface interface;
  interface.networks.push_back({{"ssid", "s:old"}});
  corvo::WifiNetworksResult result;
  EXPECT_EQ(Build(interface, settings, &result), "");
  EXPECT_EQ(interface.calls, std::vector<std::string>{"RemoveAllNetworks"});
  EXPECT_TRUE(interface.networks.empty());
  EXPECT_EQ(result.kind, corvo::WifiNetworkKind::kNone);
}

TEST(WifiNetworks, FailuresLeaveNoNetworkBehind) {
  corvo::WifiSettings settings;
  settings.ssid = "Home";
  settings.passphrase = std::string(63, 'a') + "g";  // 64 characters, not hexadecimal
  FakeInterface bad_hex;
  EXPECT_THROW(Build(bad_hex, settings), std::runtime_error);
  EXPECT_EQ(g_log, kDefaults);
  EXPECT_EQ(bad_hex.calls, std::vector<std::string>{"RemoveAllNetworks"});

  settings.passphrase = "abcdefghijklm";
  FakeInterface refusing;
  refusing.add_network_error = [](std::size_t index) {
    if (index == 1) throw DBus::Error("fi.w1.wpa_supplicant1.InvalidArgs", "Invalid arguments");
  };
  EXPECT_THROW(Build(refusing, settings), DBus::Error);
  EXPECT_EQ(refusing.calls, (std::vector<std::string>{"RemoveAllNetworks", "AddNetwork",
                                                      "AddNetwork", "RemoveAllNetworks"}));
  EXPECT_TRUE(refusing.networks.empty());

  // A name libdbus would refuse to carry raises instead of aborting.
  settings.ssid = "\xff\xfe";
  FakeInterface invalid;
  EXPECT_THROW(Build(invalid, settings), std::runtime_error);
  EXPECT_TRUE(invalid.networks.empty());
}

}  // namespace
