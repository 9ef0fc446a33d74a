#include <cerrno>
#include <stdexcept>

#include "apps/steps/wifi_bringup.h"
#include "lib/platform/base/errno_exception.h"
#include "lib/platform/bus/bus_error.h"
#include "tests/unit/step_test.h"

namespace corvo::test {
namespace {

class WifiBringup : public WifiTest {
 protected:
  WifiBringup() {
    world.Set(".omba1", "wi", "Home");
    world.ports = {"eth0", "wlan0"};
    world.supplicant_interfaces.erase("eth0");
  }
  // Runs InitialiseWifi (or ConfigureWifiOrDot1x when configure); keeps the log and
  // the message of what it raised.
  bool Run(const std::string& ifname, bool configure = false) {
    const std::size_t before = platform.Log().size();
    bool joined = true;
    error.clear();
    try {
      if (configure) joined = ConfigureWifiOrDot1x(Context(ifname));
      if (!configure) InitialiseWifi(Context(ifname));
    } catch (const std::runtime_error& e) {
      error = e.what();
    }
    log = platform.Log().substr(before);
    return joined;
  }
  std::string Initialise(const std::string& ifname) { return Run(ifname), log; }
  bool Configure(const std::string& ifname) { return Run(ifname, true); }
  void WiredPeap() { Store({{"ww", "peap"}, {"wc", "alice"}}); }

  std::string log;
  std::string error;
};

// The wireless port's failure and a port that comes late or never are the command tests'.
TEST_F(WifiBringup, WiredJoinThatCannotStartIsReported) {
  world.supplicant_running = false;
  WiredPeap();
  EXPECT_FALSE(Configure("eth0"));
  EXPECT_EQ(log.rfind("Failed to initiate Wired 802.1x network join: ", 0), 0u) << log;
}

TEST_F(WifiBringup, WirelessJoinStartsWithAScan) {
  EXPECT_TRUE(Configure("wlan0"));
  EXPECT_EQ(Calls(), (Lines{"supplicant wlan0: remove all networks",
                            "supplicant wlan0: add network", "supplicant wlan0: scan"}));
  // One already under way does as well; any other refusal fails the join.
  platform.before_effect = [](const std::string& effect) {
    if (effect == "supplicant wlan0: scan") {
      throw supplicant::ScanError("fi.w1.wpa_supplicant1.Interface.ScanError", "rejected");
    }
  };
  EXPECT_TRUE(Configure("wlan0"));
  platform.before_effect = [](const std::string& effect) {
    if (effect == "supplicant wlan0: scan") throw BusError("fi.w1.wpa_supplicant1.Unknown", "gone");
  };
  EXPECT_FALSE(Configure("wlan0"));
  EXPECT_EQ(log, kDefaults + "Failed to initiate WiFi network join: gone\n");

  world.Set(".omba1", "wi", "");  // nothing to join
  platform.ClearEffects();
  EXPECT_TRUE(Configure("wlan0"));
  EXPECT_EQ(Calls(), Lines{"supplicant wlan0: remove all networks"});
}

TEST_F(WifiBringup, NfsRootAndOtherPortsLeaveTheSupplicantAloneButNotWlan0) {
  world.nfs_root = true;
  WiredPeap();
  EXPECT_TRUE(Configure("eth0"));
  EXPECT_EQ(log, "Not configuring supplicant on eth0 interface, we're booted from NFS\n");
  world.ports.push_back("eth1");  // neither the WiFi nor the wired port
  EXPECT_EQ(Initialise("eth1") + error, "");
  EXPECT_TRUE(Calls().empty());
  EXPECT_TRUE(Configure("wlan0"));
  EXPECT_EQ(Networks(), std::vector<PropertySet>{kOpen});
}

TEST_F(WifiBringup, WiredPortWithout8021xOnlyLosesOldNetworks) {
  EXPECT_TRUE(Configure("eth0"));  // the supplicant does not know eth0: nothing to do
  EXPECT_TRUE(Calls().empty());
  world.supplicant_interfaces["eth0"].networks.push_back({{"ssid", "old"}});
  EXPECT_TRUE(Configure("eth0"));
  EXPECT_EQ(log, "");
  EXPECT_EQ(Calls(), Lines{"supplicant eth0: remove all networks"});
  EXPECT_TRUE(Networks("eth0").empty());
}

TEST_F(WifiBringup, BrokenStoredValuesFailOnlyTheInterfaceThatUsesThem) {
  Store({{"wp", "not an obfuscated passphrase"}});
  EXPECT_TRUE(Configure("eth0"));  // without 802.1X the passphrase is never read
  Store({{"wm", "1"}, {"wf", "channel six"}}, ".omba1");  // a channel that is no number
  EXPECT_FALSE(Configure("wlan0"));
  EXPECT_EQ(log, "Failed to initiate WiFi network join: stoul\n");
  EXPECT_TRUE(Networks().empty());
}

TEST_F(WifiBringup, DebuggingFollowsTheStoredSwitchOfThePort) {
  WiredPeap();
  world.Set("networking", "wired_debug", "1");
  Initialise("eth0");
  EXPECT_EQ(error, "");
  EXPECT_EQ(log.rfind("Enabling WiFi debugging\n", 0), 0u) << log;
  EXPECT_NE(log.find("eth0: Wifi EAP-PEAP: SSID \n"), std::string::npos) << log;
  EXPECT_EQ(Calls().front(), "supplicant: debug level debug");

  world.Set("networking", "wifi_debug", "yes");
  EXPECT_EQ(Initialise("wlan0"),
            "Enabling WiFi debugging\n" + kDefaults + "Adding open WIFI network: ssid='Home'\n");
  // A reconfiguration builds the networks again, with the same switch.
  Configure("wlan0");
  EXPECT_EQ(log, kDefaults + "Adding open WIFI network: ssid='Home'\n");
  world.Set("networking", "wifi_debug", "");
  EXPECT_EQ(Initialise("wlan0"), kDefaults);
}

struct MacCase {
  const char* text;
  bool valid;
  bool assign_fails = false;
};

class WifiMacAddress : public WifiBringup, public ::testing::WithParamInterface<MacCase> {};

TEST_P(WifiMacAddress, OnlyAValidUnicastAddressIsAssigned) {
  const MacCase& c = GetParam();
  world.wifi_mac_address = c.text;
  if (c.assign_fails) {
    platform.before_effect = [](const std::string& effect) {
      if (effect.rfind("mac address", 0) == 0) throw ErrnoException(EPERM, "SIOCSIFHWADDR");
    };
  }
  Initialise("wlan0");
  EXPECT_EQ(error, "");
  const std::string head =
      !c.valid         ? "ERROR: WiFi MAC address is invalid: " + std::string(c.text) + "\n"
      : c.assign_fails ? "Setting WiFi MAC address\nERROR: Unable to set WiFi MAC address: "
                         "SIOCSIFHWADDR: Operation not permitted\n"
                       : "Setting WiFi MAC address\n";
  EXPECT_EQ(log, head + kDefaults);
  EXPECT_EQ(platform.Effects().front() == "mac address wlan0 02:11:22:aa:bb:cc",
            c.valid && !c.assign_fails);
  EXPECT_EQ(Networks(), std::vector<PropertySet>{kOpen});
}

INSTANTIATE_TEST_SUITE_P(
    Texts, WifiMacAddress,
    ::testing::Values(MacCase{"02:11:22:aa:BB:cc", true}, MacCase{"02-11-22-AA-bb-cc", true},
                      MacCase{"02:11:22:aa:bb:cc", true, true}, MacCase{"01:11:22:33:44:55", false},
                      MacCase{"00:00:00:00:00:00", false}, MacCase{"02:11:22:33:44", false},
                      MacCase{"02:11:22:33:44:5g", false}, MacCase{"02:11:22:33:44:55:66", false},
                      MacCase{"", false}));

TEST_F(StepTest, ClockFromCertificateSetsOnlyAClockThatWasNeverSet) {
  const std::time_t start = 1927857906;
  char text[64] = {};
  ctime_r(&start, text);
  SetClockFromCertificate(start, platform);
  world.time_is_set = false;
  SetClockFromCertificate(0, platform);
  EXPECT_EQ(platform.Log(), "");
  EXPECT_TRUE(platform.Effects().empty());
  SetClockFromCertificate(start, platform);
  EXPECT_EQ(platform.Log(), "linkrig: WPA/Enterprise active but time not set, setting based on "
                            "client certificate - " + std::string(text));
  const Lines set{"clock 1927857906.000000", "write /var/run/linkrig-clock-set (mode 0644) \"1927857906\\n\""};
  EXPECT_EQ(platform.Effects(), set);
  // A clock set to before the build reads as never set: the marker keeps it from going back.
  world.time_is_set = false;
  SetClockFromCertificate(start + 3600, platform);
  EXPECT_EQ(platform.Effects(), set);
}

}  // namespace
}  // namespace corvo::test
