#include "apps/steps/status_led.h"

#include <arpa/inet.h>

#include <cstring>
#include <stdexcept>

#include "tests/unit/step_test.h"

namespace corvo::test {
namespace {

// An IPv4 (with its prefix length) or IPv6 address.
InterfaceAddress Ip(const char* text, int prefix = 16) {
  InterfaceAddress entry;
  entry.family = entry.netmask_family = std::strchr(text, ':') ? AF_INET6 : AF_INET;
  entry.address.resize(entry.family == AF_INET ? 4 : 16);
  inet_pton(entry.family, text, entry.address.data());
  entry.netmask.assign(entry.address.size(), 0);
  for (int bit = 0; bit < prefix; ++bit) entry.netmask[bit / 8] |= 0x80 >> (bit % 8);
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
    StatusLed(ifname, platform).Update();
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

struct WiredCase {
  const char* name;
  std::vector<InterfaceAddress> addresses;
  Lines writes;
};

class WiredLed : public Led, public ::testing::WithParamInterface<WiredCase> {};

TEST_P(WiredLed, PatternWithLinkFollowsTheAddresses) {
  world.links.insert("eth0");
  world.addresses["eth0"] = GetParam().addresses;
  // Addresses of another interface never count.
  world.addresses["eth1"] = {Ip("10.0.0.1", 8)};
  EXPECT_EQ(Update("eth0"), GetParam().writes);
}

// With link, a plain address is the command tests' (test_kill: steady on after a lease).
using W = WiredCase;
INSTANTIATE_TEST_SUITE_P(
    Rules, WiredLed,
    ::testing::Values(W{"NoAddress", {}, kBlink500},
                      W{"OnlyPacketEntry", {Family(AF_PACKET)}, kBlink500},
                      W{"AutoIPv4", {Ip("169.254.3.4", 16)}, kBlink500},
                      W{"AutoIPv4With15BitMask", {Ip("169.254.3.4", 15)}, kOn},
                      W{"IPv6LinkLocalUpper", {Ip("febf::1")}, kBlink500},
                      W{"IPv6JustAboveLinkLocal", {Ip("fec0::1")}, kOn},
                      W{"UnspecifiedEntry", {Family(AF_UNSPEC)}, kOn},
                      W{"LocalThenGlobal",
                        {Ip("fe80::1"), Ip("169.254.1.1", 16), Ip("10.1.2.3", 8)}, kOn}),
    NameOf<WiredCase>);

// Station and access point link levels light the LED in the guest's scenarios.
TEST_F(Led, OffWithoutLinkOrWhileTheSupplicantDoesNotManageWlan0) {
  world.addresses["eth0"] = {Ip("192.168.1.10", 24)};
  EXPECT_EQ(Update("eth0"), kOff);
  world.links.insert("wlan0");  // link alone is not enough
  EXPECT_EQ(Update("wlan0"), kOff);
}

TEST_F(Led, OtherInterfacesAndDevicesWithoutLedsWriteNothing) {
  world.links = {"eth0", "eth1"};
  EXPECT_EQ(Update("eth1"), Lines{});
  world.files.clear();
  EXPECT_EQ(Update("eth0"), Lines{});
}

TEST_F(Led, AddressListFailuresReachTheCaller) {
  world.links.insert("eth0");
  world.addresses_fail = true;
  InterfaceAddress odd = Ip("192.168.1.10", 24);
  odd.netmask_family = AF_PACKET;
  for (const char* expected : {"Failed to get IP address list", "not an IPv4 or IPv6 address"}) {
    try {
      Update("eth0");
      ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& e) {
      EXPECT_STREQ(e.what(), expected);
    }
    world.addresses_fail = false;
    world.addresses["eth0"] = {odd};
  }
  EXPECT_TRUE(platform.Effects().empty());
}

}  // namespace
}  // namespace corvo::test
