#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "apps/steps/wifi_bringup.h"
#include "apps/steps/wifi_settings.h"
#include "lib/platform/errno_exception.h"
#include "lib/platform/interface_reader.h"
#include "tests/support/memory_registry.h"
#include "tests/unit/fake_platform.h"
#include "tests/unit/fake_supplicant.h"
#include "tests/unit/fake_system_clock.h"

namespace {

using corvo::PersistentNetworkConfig::InterfaceReader;
using supplicant::test::FakeInterface;
using supplicant::test::FakeSupplicant;
using supplicant::test::Rendered;

const std::string kWaiting = "Waiting for interface to appear\n";
const std::string kDefaults = "wlan0: No security configuration; using defaults.\n";

class WifiBringup : public ::testing::Test {
 protected:
  WifiBringup() {
    registry.Set(".omba1", "wi", "Home");
    fake.network.ports = {"eth0", "wlan0"};
  }
  ~WifiBringup() override { corvo::SetWifiDebug(false); }

  corvo::WifiBringupContext Context() {
    return corvo::WifiBringupContext{
        fake, clock, registry,
        [this]() -> std::shared_ptr<supplicant::Supplicant> {
          ++clients;
          if (supplicant_error) supplicant_error();
          return supplicant;
        },
        [](const std::string& ifname) { return ifname == "wlan0"; },
        [](const std::string& ifname) { return ifname == "eth0"; }, [this] { return mac_variable; },
        [this](const std::string& ifname, const corvo::MacAddress& address) {
          if (mac_error) throw corvo::ErrnoException(EPERM, "SIOCSIFHWADDR");
          macs.push_back(ifname + " " + std::to_string(address[0]) + ":" +
                         std::to_string(address[5]));
        }};
  }
  // Runs InitialiseWifi (or ConfigureWifiOrDot1x when configure); keeps the log and
  // the message of what it raised.
  int Run(const std::string& ifname, bool configure = false) {
    const InterfaceReader reader(ifname, registry);
    testing::internal::CaptureStderr();
    int result = 0;
    error.clear();
    try {
      if (configure) result = corvo::ConfigureWifiOrDot1x(nullptr, reader, ifname, Context());
      if (!configure) corvo::InitialiseWifi(nullptr, reader, ifname, Context());
    } catch (const std::runtime_error& e) {
      error = e.what();
    }
    log = testing::internal::GetCapturedStderr();
    return result;
  }
  std::string Initialise(const std::string& ifname) { return Run(ifname), log; }
  int Configure(const std::string& ifname) { return Run(ifname, true); }
  void WiredPeap() {
    registry.Set(".omba", "ww", "peap");
    registry.Set(".omba", "wc", "alice");
  }
  std::vector<Rendered> Networks(const std::string& ifname) {
    const auto it = supplicant->interfaces.find(ifname);
    return it == supplicant->interfaces.end() ? std::vector<Rendered>() : it->second->networks;
  }

  corvo::test::MemoryRegistry registry;
  corvo::test::FakePlatform fake;
  corvo::test::FakeSystemClock clock;
  std::shared_ptr<FakeSupplicant> supplicant = std::make_shared<FakeSupplicant>();
  std::function<void()> supplicant_error;
  int clients = 0;
  std::optional<std::string> mac_variable;
  bool mac_error = false;
  std::vector<std::string> macs;
  std::string log;
  std::string error;
};

const Rendered kOpen{{"scan_ssid", "i:1"}, {"ssid", "s:Home"}, {"key_mgmt", "s:NONE"},
                     {"disabled", "i:0"},  {"priority", "i:1"}};

TEST_F(WifiBringup, InterfaceThatAppearsLateIsConfigured) {
  fake.network.ports = {"eth0"};
  const auto start = fake.clock.now;
  fake.clock.on_sleep = [&] {
    if (fake.clock.now - start >= std::chrono::seconds(2)) fake.network.ports.push_back("wlan0");
  };
  EXPECT_EQ(Initialise("wlan0"), kWaiting + kWaiting + kWaiting + kWaiting + kDefaults);
  EXPECT_EQ(fake.clock.sleeps,
            std::vector<std::chrono::microseconds>(4, std::chrono::milliseconds(500)));
  EXPECT_EQ(supplicant->calls, std::vector<std::string>{"GetOrCreateInterface wlan0"});
  EXPECT_EQ(Networks("wlan0"), std::vector<Rendered>{kOpen});
}

TEST_F(WifiBringup, InterfaceThatNeverAppearsFailsAfterFiveSeconds) {
  fake.network.ports = {"eth0"};
  const auto start = fake.clock.now;
  Initialise("wlan0");
  EXPECT_EQ(error, "InitialiseWifi(wlan0): interface not present");
  EXPECT_EQ(fake.clock.now - start, std::chrono::milliseconds(5000));
  EXPECT_EQ(log.size(), 10 * kWaiting.size());
  EXPECT_EQ(clients, 0);
}

TEST_F(WifiBringup, JoinThatCannotStartIsReportedAndFailsTheBringUp) {
  supplicant_error = [] {
    throw DBus::Error("org.freedesktop.DBus.Error.ServiceUnknown",
                      "The name fi.w1.wpa_supplicant1 was not provided by any .service files");
  };
  Initialise("wlan0");
  EXPECT_EQ(error, "InitialiseWifi(wlan0): ConfigureWifiOrDot1x failed: 1");
  EXPECT_EQ(log,
            "Failed to initiate WiFi network join: The name fi.w1.wpa_supplicant1 was not "
            "provided by any .service files\n");

  WiredPeap();
  EXPECT_EQ(Configure("eth0"), 1);
  EXPECT_EQ(log.rfind("Failed to initiate Wired 802.1x network join: ", 0), 0u) << log;
}

TEST_F(WifiBringup, WirelessJoinStartsWithAScan) {
  EXPECT_EQ(Configure("wlan0"), 0);
  const auto wlan0 = supplicant->interfaces.at("wlan0");
  EXPECT_EQ(wlan0->calls, (std::vector<std::string>{"RemoveAllNetworks", "AddNetwork", "Scan"}));

  // One already under way does as well; any other refusal fails the join.
  wlan0->scan_error = [] {
    throw DBus::Error("fi.w1.wpa_supplicant1.Interface.ScanError", "Scan request rejected");
  };
  EXPECT_EQ(Configure("wlan0"), 0);
  wlan0->scan_error = [] { throw DBus::Error("fi.w1.wpa_supplicant1.UnknownError", "gone"); };
  EXPECT_EQ(Configure("wlan0"), 1);
  EXPECT_EQ(log, kDefaults + "Failed to initiate WiFi network join: gone\n");

  registry.Set(".omba1", "wi", "");  // nothing to join
  wlan0->calls.clear();
  EXPECT_EQ(Configure("wlan0"), 0);
  EXPECT_EQ(wlan0->calls, std::vector<std::string>{"RemoveAllNetworks"});
  WiredPeap();  // selected as it is added
  EXPECT_EQ(Configure("eth0"), 0);
  EXPECT_EQ(supplicant->interfaces.at("eth0")->calls.back(), "AddAndSelectNetwork");
}

TEST_F(WifiBringup, NfsRootAndOtherPortsLeaveTheSupplicantAloneButNotWlan0) {
  fake.network.nfs_root = true;
  WiredPeap();
  EXPECT_EQ(Configure("eth0"), 0);
  EXPECT_EQ(log, "Not configuring supplicant on eth0 interface, we're booted from NFS\n");
  EXPECT_EQ(clients, 0);
  fake.network.ports.push_back("eth1");  // neither the WiFi nor the wired port
  EXPECT_EQ(Initialise("eth1") + error, "");
  EXPECT_EQ(clients, 0);
  EXPECT_EQ(Configure("wlan0"), 0);
  EXPECT_EQ(Networks("wlan0"), std::vector<Rendered>{kOpen});
}

TEST_F(WifiBringup, WiredPortWithout8021xOnlyLosesOldNetworks) {
  EXPECT_EQ(Configure("eth0"), 0);  // the supplicant does not know eth0
  EXPECT_EQ(supplicant->calls, std::vector<std::string>{"GetInterface eth0"});

  auto held = std::make_shared<FakeInterface>();
  held->networks.push_back({{"ssid", "s:old"}});
  supplicant->interfaces["eth0"] = held;
  EXPECT_EQ(Configure("eth0"), 0);
  EXPECT_EQ(log, "");
  EXPECT_EQ(held->calls, std::vector<std::string>{"RemoveAllNetworks"});
  EXPECT_TRUE(held->networks.empty());

  supplicant_error = [] {
    throw DBus::Error("org.freedesktop.DBus.Error.ServiceUnknown", "not running");
  };
  EXPECT_EQ(Configure("eth0"), 0);
}

TEST_F(WifiBringup, BrokenStoredValuesFailOnlyTheInterfaceThatUsesThem) {
  registry.Set(".omba", "wp", "not an obfuscated passphrase");
  EXPECT_EQ(Configure("eth0"), 0);  // without 802.1X the passphrase is never read

  registry.Set(".omba1", "wm", "1");  // access point on a channel that is no number
  registry.Set(".omba1", "wf", "channel six");
  EXPECT_EQ(Configure("wlan0"), 1);
  EXPECT_EQ(log, "Failed to initiate WiFi network join: stoul\n");
  EXPECT_TRUE(Networks("wlan0").empty());
}

TEST_F(WifiBringup, WiredPortWithPeapJoins) {
  WiredPeap();
  registry.Set("networking", "wired_debug", "1");
  Initialise("eth0");
  EXPECT_EQ(error, "");
  EXPECT_EQ(log.rfind("Enabling WiFi debugging\n", 0), 0u) << log;
  EXPECT_NE(log.find("eth0: PEAP/MSCHAPv2 enabled\n"), std::string::npos) << log;
  EXPECT_EQ(supplicant->calls, (std::vector<std::string>{"SetDebugLevel verbose",
                                                         "GetOrCreateInterface eth0"}));
  ASSERT_EQ(Networks("eth0").size(), 1u);
  EXPECT_EQ(Networks("eth0")[0].at("eap"), "s:PEAP");
}

TEST_F(WifiBringup, DebuggingFollowsTheStoredSwitch) {
  registry.Set("networking", "wifi_debug", "yes");
  Initialise("wlan0");
  EXPECT_EQ(log, "Enabling WiFi debugging\n" + kDefaults +
                     "Adding open WIFI network: ssid='Home'\n");
  EXPECT_TRUE(corvo::WifiDebug());
  registry.Set("networking", "wifi_debug", "");
  Initialise("wlan0");
  EXPECT_FALSE(corvo::WifiDebug());
  EXPECT_EQ(log, kDefaults);
}

struct MacCase {
  const char* text;
  bool valid;
  bool assign_fails = false;
};

class WifiMacAddress : public WifiBringup, public ::testing::WithParamInterface<MacCase> {};

TEST_P(WifiMacAddress, OnlyAValidUnicastAddressIsAssigned) {
  const MacCase& c = GetParam();
  mac_variable = c.text;
  mac_error = c.assign_fails;
  Initialise("wlan0");
  EXPECT_EQ(error, "");
  const std::string head =
      !c.valid ? "ERROR: WiFi MAC address is invalid: " + std::string(c.text) + "\n"
      : c.assign_fails ? "Setting WiFi MAC address\nERROR: Unable to set WiFi MAC address: "
                         "SIOCSIFHWADDR: Operation not permitted\n"
                       : "Setting WiFi MAC address\n";
  EXPECT_EQ(log, head + kDefaults);
  EXPECT_EQ(macs, c.valid && !c.assign_fails ? std::vector<std::string>{"wlan0 2:204"}
                                             : std::vector<std::string>{});
  EXPECT_EQ(Networks("wlan0"), std::vector<Rendered>{kOpen});
}

INSTANTIATE_TEST_SUITE_P(
    Texts, WifiMacAddress,
    ::testing::Values(MacCase{"02:11:22:aa:BB:cc", true}, MacCase{"02-11-22-33-44-cc", true},
                      MacCase{"02:11:22:33:44:cc", true, true},
                      MacCase{"01:11:22:33:44:55", false}, MacCase{"00:00:00:00:00:00", false},
                      MacCase{"02:11:22:33:44", false}, MacCase{"02:11:22:33:44:5g", false},
                      MacCase{"02:11:22:33:44:55:66", false}, MacCase{"", false}));

TEST(ClockFromCertificate, SetsOnlyAClockThatWasNeverSet) {
  corvo::test::FakeSystemClock clock;
  const std::time_t start = 1927857906;
  char text[64] = {};
  ctime_r(&start, text);

  testing::internal::CaptureStderr();
  corvo::SetClockFromCertificate(start, clock);
  clock.time_is_set = false;
  corvo::SetClockFromCertificate(0, clock);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_TRUE(clock.sets.empty());

  testing::internal::CaptureStderr();
  corvo::SetClockFromCertificate(start, clock);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "linkrig: WPA/Enterprise active but time not set, setting based on client "
            "certificate - " + std::string(text));
  EXPECT_EQ(clock.sets, std::vector<std::int64_t>{std::int64_t{start} * 1000000});
}

}  // namespace
