#include <stdexcept>

#include "lib/platform/base/hex.h"
#include "lib/platform/bus/bus_error.h"
#include "tests/unit/wifi_test.h"

namespace corvo::test {
namespace {

struct StationCase {
  const char* name;
  std::string passphrase;
  const char* options;
  std::vector<PropertySet> networks;
  std::string log;
};

const std::string kWep = "Adding WEP WIFI network: ssid='Home'\n";
const std::string kWpa = "Adding WPA WIFI network: ssid='Home'\n";
const std::string k13 = "abcdefghijklm";  // fits WEP-104 and WPA
const std::string kAll = kDefaults + kWep + kWpa;
const std::string kHex26 = "0123456789abcdef0123456789";
const std::string kHex64 = "00112233445566778899aabbccddeeff00112233445566778899AABBCCDDEEFF";

PropertyValue Hex(const std::string& text) { return HexDecode(text); }

PropertySet Wep(const PropertyValue& key) {
  return {{"scan_ssid", 1}, {"ssid", "Home"}, {"key_mgmt", "NONE"}, {"priority", 2},
          {"wep_key0", key}, {"disabled", 0}, {"auth_alg", "SHARED OPEN"},
          {"group", "WEP104 WEP40"}};
}
PropertySet Wpa(const PropertyValue& psk, const std::string& ciphers = "CCMP TKIP") {
  return {{"scan_ssid", 1}, {"ssid", "Home"}, {"key_mgmt", "WPA-PSK"}, {"pairwise", ciphers},
          {"group", ciphers}, {"priority", 3}, {"psk", psk}, {"disabled", 0}};
}

class StationNetworks : public WifiTest, public ::testing::WithParamInterface<StationCase> {};

TEST_P(StationNetworks, AddsEveryKindThePassphraseFits) {
  const StationCase& c = GetParam();
  WifiSettings settings;
  settings.ssid = "Home";
  settings.passphrase = c.passphrase;
  settings.security_options = c.options;
  // That no passphrase is shown is the command tests' (the plan's and the real run's).
  EXPECT_EQ(Build(settings), c.log);
  EXPECT_EQ(Calls().front(), "supplicant wlan0: remove all networks");
  EXPECT_EQ(Networks(), c.networks);
  EXPECT_EQ(result.added, static_cast<int>(c.networks.size()));
  EXPECT_EQ(result.kind, c.networks.empty() ? WifiNetworkKind::kNone : WifiNetworkKind::kStation);
}

using S = StationCase;
INSTANTIATE_TEST_SUITE_P(
    Cases, StationNetworks,
    ::testing::Values(
        S{"open", "", "", {kOpen}, kDefaults},
        S{"wep13_and_wpa", k13, "", {Wep(k13), Wpa(k13)}, kAll},
        S{"wep_hex26_and_wpa", kHex26, "", {Wep(Hex(kHex26)), Wpa(kHex26)}, kAll},
        S{"wpa_hex64", kHex64, "", {Wpa(Hex(kHex64))}, kDefaults + kWpa},
        S{"ccmp_only", k13, "ccmp", {Wpa(k13, "CCMP")}, kWpa},
        S{"tkip_wep", k13, "tkip  wep", {Wep(k13), Wpa(k13, "TKIP")}, kWep + kWpa},
        S{"wep5", "abcde", "wep", {Wep("abcde")}, kWep},
        S{"wep10_not_hex", "helloworld", "", {Wpa("helloworld")}, kDefaults + kWpa},
        S{"fits_nothing", "abc", "", {}, kDefaults},
        S{"unknown_word", k13, "ccmp wpa3", {},
          "wlan0: Unknown wifi security option wpa3\nwlan0: Wifi security configuration error.\n"}),
    NameOf<StationCase>);

// Open and WPA-PSK access points run on a real radio in the guest's scenarios.
TEST_F(WifiTest, AccessPointTakesAHexadecimalKey) {
  WifiSettings settings;
  settings.ssid = "Player";
  settings.access_point = true;
  settings.frequency = 2437;
  settings.debug = true;
  settings.passphrase = kHex64;
  EXPECT_EQ(Build(settings),
            kDefaults + "Adding WiFi AP network: ssid='Player'\nWiFi AP network added\n");
  const PropertySet expected{{"ssid", "Player"},  {"disabled", 0}, {"mode", 2},
                             {"frequency", 2437}, {"priority", 0}, {"key_mgmt", "WPA-PSK"},
                             {"psk", Hex(kHex64)}};
  EXPECT_EQ(Networks(), std::vector<PropertySet>{expected});
  EXPECT_EQ(result.kind, WifiNetworkKind::kAccessPoint);
}

TEST_F(WifiTest, NoNameAndNoAccessPointOnlyRemovesTheNetworks) {
  WifiSettings settings;
  settings.passphrase = k13;
  world.supplicant_interfaces["wlan0"].networks.push_back({{"ssid", "old"}});
  EXPECT_EQ(Build(settings), "");
  EXPECT_EQ(Calls(), Lines{"supplicant wlan0: remove all networks"});
  EXPECT_TRUE(Networks().empty());
  EXPECT_EQ(result.kind, WifiNetworkKind::kNone);
}

TEST_F(WifiTest, FailuresLeaveNoNetworkBehind) {
  WifiSettings settings;
  settings.ssid = "Home";
  settings.passphrase = std::string(63, 'a') + "g";  // 64 characters, not hexadecimal
  EXPECT_THROW(Build(settings), std::runtime_error);
  EXPECT_EQ(Calls(), Lines{"supplicant wlan0: remove all networks"});

  settings.passphrase = k13;
  int added = 0;
  platform.before_effect = [&](const std::string& effect) {
    if (effect.find("add network") != effect.npos && ++added == 2) {
      throw BusError("fi.w1.wpa_supplicant1.InvalidArgs", "Invalid arguments");
    }
  };
  platform.ClearEffects();
  EXPECT_THROW(Build(settings), BusError);
  EXPECT_EQ(Calls(),
            (Lines{"supplicant wlan0: remove all networks", "supplicant wlan0: add network",
                   "supplicant wlan0: remove all networks"}));
  EXPECT_TRUE(Networks().empty());

  // A name the bus would refuse to carry raises instead of aborting.
  settings.ssid = "\xff\xfe";
  EXPECT_THROW(Build(settings), std::runtime_error);
  EXPECT_TRUE(Networks().empty());
}

}  // namespace
}  // namespace corvo::test
