#include "apps/steps/status_led.h"

#include <arpa/inet.h>

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "lib/platform/system/real_os.h"
#include "tests/unit/step_test.h"

namespace corvo::test {
namespace {

InterfaceAddress V4(const char* address, int prefix) {
  InterfaceAddress entry;
  entry.family = entry.netmask_family = AF_INET;
  entry.address.resize(4);
  inet_pton(AF_INET, address, entry.address.data());
  const std::uint32_t mask = prefix == 0 ? 0 : ~std::uint32_t{0} << (32 - prefix);
  entry.netmask = {static_cast<std::uint8_t>(mask >> 24), static_cast<std::uint8_t>(mask >> 16),
                   static_cast<std::uint8_t>(mask >> 8), static_cast<std::uint8_t>(mask)};
  return entry;
}

InterfaceAddress V6(const char* address) {
  InterfaceAddress entry;
  entry.family = entry.netmask_family = AF_INET6;
  entry.address.resize(16);
  inet_pton(AF_INET6, address, entry.address.data());
  entry.netmask.assign(16, 0);
  entry.netmask[0] = entry.netmask[1] = entry.netmask[2] = entry.netmask[3] = 0xFF;
  return entry;
}

InterfaceAddress Family(int family) { return InterfaceAddress{family, {}, 0, {}}; }

const char kLeds[] = "/sys/class/leds/";

// The LED files as the writes left them, relative to the LED's directory.
class Led : public StepTest {
 protected:
  Led() {
    world.files[std::string(kLeds) + "ethernet/brightness"] = "";
    world.files[std::string(kLeds) + "wifi/brightness"] = "";
  }
  Lines Update(const std::string& ifname) {
    platform.ClearEffects();
    UpdateLed(LedNetworkStatusObserver(ifname, platform.Get().files), platform);
    Lines writes;
    for (const std::string& effect : platform.Effects()) {
      const auto led = effect.find('/', std::string("write ").size() + sizeof kLeds - 1);
      writes.push_back(effect.substr(led + 1));
    }
    return writes;
  }
};

const Lines kOff{"brightness \"0\""}, kOn{"brightness \"255\""};
const Lines kBlink500{"trigger \"timer\"", "brightness \"255\"", "delay_off \"500\"",
                      "delay_on \"500\""};
const Lines kBlink100{"trigger \"timer\"", "brightness \"255\"", "delay_off \"900\"",
                      "delay_on \"100\""};

struct WiredCase {
  const char* name;
  bool link;
  std::vector<InterfaceAddress> addresses;
  Lines writes;
};

class WiredLed : public Led, public ::testing::WithParamInterface<WiredCase> {};

TEST_P(WiredLed, PatternFollowsLinkAndAddresses) {
  if (GetParam().link) world.links.insert("eth0");
  world.addresses["eth0"] = GetParam().addresses;
  // Addresses of another interface never count.
  world.addresses["eth1"] = {V4("10.0.0.1", 8)};
  EXPECT_EQ(Update("eth0"), GetParam().writes);
}

using W = WiredCase;
INSTANTIATE_TEST_SUITE_P(
    Rules, WiredLed,
    ::testing::Values(W{"LinkNoAddress", true, {}, kBlink500},
                      W{"NoLinkNoAddress", false, {}, kOff},
                      W{"LinkOnlyPacketEntry", true, {Family(AF_PACKET)}, kBlink500},
                      W{"LinkIPv4", true, {Family(AF_PACKET), V4("192.168.1.10", 24)}, kOn},
                      W{"NoLinkIPv4", false, {V4("192.168.1.10", 24)}, kOff},
                      W{"LinkAutoIPv4", true, {V4("169.254.3.4", 16)}, kBlink500},
                      W{"LinkAutoIPv4Longer", true, {V4("169.254.3.4", 24)}, kBlink500},
                      W{"Link169With8BitMask", true, {V4("169.254.3.4", 8)}, kOn},
                      W{"Link169With15BitMask", true, {V4("169.254.3.4", 15)}, kOn},
                      W{"LinkIPv6LinkLocal", true, {V6("fe80::1")}, kBlink500},
                      W{"LinkIPv6LinkLocalUpper", true, {V6("febf::1")}, kBlink500},
                      W{"LinkIPv6Global", true, {V6("2001:db8::1")}, kOn},
                      W{"LinkIPv6JustAboveLinkLocal", true, {V6("fec0::1")}, kOn},
                      W{"LinkUnspecifiedEntry", true, {Family(AF_UNSPEC)}, kOn},
                      W{"LinkLocalThenGlobal",
                        true,
                        {V6("fe80::1"), V4("169.254.1.1", 16), V4("10.1.2.3", 8)},
                        kOn}),
    NameOf<WiredCase>);

struct WirelessCase {
  const char* name;
  const char* state;  // nullptr: the supplicant does not manage wlan0
  const char* mode;   // the current network's mode; nullptr: no current network
  Lines writes;
};

class WirelessLed : public Led, public ::testing::WithParamInterface<WirelessCase> {};

TEST_P(WirelessLed, PatternFollowsTheSupplicantState) {
  if (GetParam().state != nullptr) {
    world.supplicant_interfaces["wlan0"].state = GetParam().state;
    if (GetParam().mode) world.supplicant_interfaces["wlan0"].current_mode = GetParam().mode;
  }
  // Link alone is not enough for steady on.
  world.links.insert("wlan0");
  EXPECT_EQ(Update("wlan0"), GetParam().writes);
}

using L = WirelessCase;
INSTANTIATE_TEST_SUITE_P(States, WirelessLed,
                         ::testing::Values(L{"NotManaged", nullptr, nullptr, kOff},
                                           L{"Scanning", "scanning", nullptr, kBlink100},
                                           L{"Handshake", "4way_handshake", nullptr, kBlink100},
                                           L{"Station", "completed", "0",
                                             Lines{"trigger \"timer\"", "brightness \"255\"",
                                                   "delay_off \"500\"", "delay_on \"500\""}},
                                           L{"StationWithoutNetwork", "completed", nullptr,
                                             kBlink500},
                                           L{"AccessPoint", "completed", "2", kOn}),
                         NameOf<WirelessCase>);

TEST_F(Led, WirelessWithAddressIsSteadyOnAndOtherInterfacesHaveNoLed) {
  world.links = {"wlan0", "eth1"};
  world.addresses["wlan0"] = {V4("192.168.7.2", 24)};
  EXPECT_EQ(Update("wlan0"), kOn);
  EXPECT_EQ(Update("eth1"), Lines{});
  world.files.clear();  // a device without LEDs
  EXPECT_EQ(Update("eth0"), Lines{});
}

TEST_F(Led, WriteOrderOfBlinkingAndSteady) {
  world.links.insert("eth0");
  EXPECT_EQ(Update("eth0"), kBlink500);
  // The timer trigger is active now (delay_on exists): steady on switches it off first.
  world.addresses["eth0"] = {V4("192.168.1.10", 24)};
  EXPECT_EQ(Update("eth0"), (Lines{"trigger \"none\"", "brightness \"255\""}));
  // Still a timer LED as far as the files show: blinking again skips the trigger.
  world.addresses["eth0"].clear();
  EXPECT_EQ(Update("eth0"), Lines(kBlink500.begin() + 1, kBlink500.end()));
}

TEST_F(Led, AddressListFailuresReachTheCaller) {
  world.links.insert("eth0");
  world.addresses_fail = true;
  EXPECT_THROW(
      try { Update("eth0"); } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Failed to get IP address list");
        throw;
      },
      std::runtime_error);
  world.addresses_fail = false;
  InterfaceAddress odd = V4("192.168.1.10", 24);
  odd.netmask_family = AF_PACKET;
  world.addresses["eth0"] = {odd};
  try {
    Update("eth0");
    ADD_FAILURE() << "no exception";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "not an IPv4 or IPv6 address");
  }
  EXPECT_TRUE(platform.Effects().empty());
}

TEST(RealAddressList, LoopbackHasItsAddresses) {
  RealNetworkState network;
  bool ipv4 = false;
  for (const InterfaceAddress& entry : network.InterfaceAddresses("lo")) {
    if (entry.family != AF_INET) continue;
    ipv4 = true;
    EXPECT_EQ(entry.address, (std::vector<std::uint8_t>{127, 0, 0, 1}));
    EXPECT_EQ(entry.netmask, (std::vector<std::uint8_t>{255, 0, 0, 0}));
  }
  EXPECT_TRUE(ipv4);
  EXPECT_TRUE(network.InterfaceAddresses("no-such-if0").empty());
}

}  // namespace
}  // namespace corvo::test
