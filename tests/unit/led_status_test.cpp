#include "lib/hardware/led_status.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/unit/fake_platform.h"

namespace {

namespace fs = boost::filesystem;
using corvo::InterfaceAddress;
using corvo::LedNetworkStatusObserver;

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

// A LED class directory in a temporary tree, with the order of the files written to it.
class LedDirectory : public ::testing::Test {
 protected:
  void SetUp() override {
    m_root = fs::temp_directory_path() / fs::unique_path("led-%%%%-%%%%");
    fs::create_directories(m_root / "ethernet");
    fs::create_directories(m_root / "wifi");
  }
  void TearDown() override {
    if (m_inotify >= 0) close(m_inotify);
    fs::remove_all(m_root);
  }

  std::string Root() const { return m_root.string() + "/"; }

  void Watch(const char* led) {
    m_inotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_GE(m_inotify, 0);
    ASSERT_GE(inotify_add_watch(m_inotify, (m_root / led).c_str(), IN_CLOSE_WRITE), 0);
  }
  std::vector<std::string> WrittenFiles() const {
    std::vector<std::string> names;
    char buffer[4096];
    ssize_t n;
    while ((n = read(m_inotify, buffer, sizeof buffer)) > 0) {
      for (ssize_t at = 0; at < n;) {
        struct inotify_event event;
        std::memcpy(&event, buffer + at, sizeof event);
        const char* name = buffer + at + sizeof event;
        names.emplace_back(name, strnlen(name, event.len));
        at += static_cast<ssize_t>(sizeof event + event.len);
      }
    }
    return names;
  }

  // Every file of the LED with its content.
  std::map<std::string, std::string> Led(const char* led) const {
    std::map<std::string, std::string> files;
    for (fs::directory_iterator it(m_root / led), end; it != end; ++it) {
      std::ifstream in(it->path().string());
      files[it->path().filename().string()] =
          std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    return files;
  }

  fs::path m_root;
  int m_inotify = -1;
  corvo::test::FakePlatform m_fake;
};

using Files = std::map<std::string, std::string>;
const Files kOff{{"brightness", "0"}}, kOn{{"brightness", "255"}}, kUnchanged{};
const Files kBlink500{
    {"trigger", "timer"}, {"brightness", "255"}, {"delay_off", "500"}, {"delay_on", "500"}};
const Files kBlink100{
    {"trigger", "timer"}, {"brightness", "255"}, {"delay_off", "900"}, {"delay_on", "100"}};

struct WiredCase {
  const char* name;
  bool link;
  std::vector<InterfaceAddress> addresses;
  Files led;
};

class WiredLed : public LedDirectory, public ::testing::WithParamInterface<WiredCase> {};

TEST_P(WiredLed, PatternFollowsLinkAndAddresses) {
  if (GetParam().link) m_fake.network.links.insert("eth0");
  m_fake.network.addresses["eth0"] = GetParam().addresses;
  // Addresses of another interface never count.
  m_fake.network.addresses["eth1"] = {V4("10.0.0.1", 8)};
  LedNetworkStatusObserver observer("eth0", Root(), m_fake.network);
  observer.UpdateLed();
  EXPECT_EQ(Led("ethernet"), GetParam().led);
}

using W = WiredCase;
INSTANTIATE_TEST_SUITE_P(
    Rules, WiredLed,
    ::testing::Values(
        W{"LinkNoAddress", true, {}, kBlink500}, W{"NoLinkNoAddress", false, {}, kOff},
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
        W{"LinkLocalThenGlobal", true,
          {V6("fe80::1"), V4("169.254.1.1", 16), V4("10.1.2.3", 8)}, kOn}),
    [](const ::testing::TestParamInfo<WiredCase>& case_info) { return case_info.param.name; });

struct WirelessCase {
  int level;
  Files led;
};

class WirelessLed : public LedDirectory, public ::testing::WithParamInterface<WirelessCase> {};

TEST_P(WirelessLed, PatternFollowsConnectionLevel) {
  LedNetworkStatusObserver observer("wlan0", Root(), m_fake.network);
  ASSERT_EQ(observer.GetKind(), LedNetworkStatusObserver::kWireless);
  std::vector<std::string> asked;
  observer.SetWirelessLevelSource([&](const std::string& ifname) {
    asked.push_back(ifname);
    return GetParam().level;
  });
  // Link alone is not enough for steady on.
  m_fake.network.links.insert("wlan0");
  observer.UpdateLed();
  EXPECT_EQ(Led("wifi"), GetParam().led);
  EXPECT_EQ(asked, std::vector<std::string>{"wlan0"});
}

INSTANTIATE_TEST_SUITE_P(Levels, WirelessLed,
                         ::testing::Values(WirelessCase{-1, kUnchanged}, WirelessCase{0, kOff},
                                           WirelessCase{1, kBlink100}, WirelessCase{2, kBlink100},
                                           WirelessCase{3, kBlink500}, WirelessCase{4, kOn},
                                           WirelessCase{5, kUnchanged}));

TEST_F(LedDirectory, WirelessWithAddressIsSteadyOnWhateverTheLevel) {
  LedNetworkStatusObserver observer("wlan0", Root(), m_fake.network);
  observer.SetWirelessLevelSource([](const std::string&) { return 1; });
  m_fake.network.links.insert("wlan0");
  m_fake.network.addresses["wlan0"] = {V4("192.168.7.2", 24)};
  observer.UpdateLed();
  EXPECT_EQ(Led("wifi"), kOn);
}

TEST_F(LedDirectory, InterfaceWithoutLedWritesNothing) {
  m_fake.network.links.insert("eth1");
  LedNetworkStatusObserver("eth1", Root(), m_fake.network).UpdateLed();
  EXPECT_EQ(Led("ethernet"), kUnchanged);
  EXPECT_EQ(Led("wifi"), kUnchanged);
}

TEST_F(LedDirectory, WriteOrderOfBlinkingAndSteady) {
  m_fake.network.links.insert("eth0");
  LedNetworkStatusObserver observer("eth0", Root(), m_fake.network);
  Watch("ethernet");

  observer.UpdateLed();
  EXPECT_EQ(WrittenFiles(),
            (std::vector<std::string>{"trigger", "brightness", "delay_off", "delay_on"}));

  // The timer trigger is active now (delay_on exists): steady on switches it off first.
  m_fake.network.addresses["eth0"] = {V4("192.168.1.10", 24)};
  observer.UpdateLed();
  EXPECT_EQ(WrittenFiles(), (std::vector<std::string>{"trigger", "brightness"}));
  EXPECT_EQ(Led("ethernet").at("trigger"), "none");
  EXPECT_EQ(Led("ethernet").at("brightness"), "255");

  // Still a timer LED as far as the files show: blinking again skips the trigger.
  m_fake.network.addresses["eth0"].clear();
  observer.UpdateLed();
  EXPECT_EQ(WrittenFiles(), (std::vector<std::string>{"brightness", "delay_off", "delay_on"}));
}

TEST_F(LedDirectory, AddressListFailuresReachTheCaller) {
  m_fake.network.links.insert("eth0");
  LedNetworkStatusObserver observer("eth0", Root(), m_fake.network);

  const auto message = [&]() -> std::string {
    try {
      observer.UpdateLed();
    } catch (const std::runtime_error& e) {
      return e.what();
    }
    return "no error";
  };
  m_fake.network.addresses_fail = true;
  EXPECT_EQ(message(), "Failed to get IP address list");

  m_fake.network.addresses_fail = false;
  InterfaceAddress odd = V4("192.168.1.10", 24);
  odd.netmask_family = AF_PACKET;
  m_fake.network.addresses["eth0"] = {odd};
  EXPECT_EQ(message(), "not an IPv4 or IPv6 address");
  EXPECT_EQ(Led("ethernet"), kUnchanged);
}

TEST(RealAddressList, LoopbackHasItsAddresses) {
  const std::vector<InterfaceAddress> entries =
      corvo::GetPlatform().network.InterfaceAddresses("lo");
  bool ipv4 = false;
  for (const InterfaceAddress& entry : entries) {
    if (entry.family != AF_INET) continue;
    ipv4 = true;
    EXPECT_EQ(entry.address, (std::vector<std::uint8_t>{127, 0, 0, 1}));
    EXPECT_EQ(entry.netmask_family, AF_INET);
    EXPECT_EQ(entry.netmask, (std::vector<std::uint8_t>{255, 0, 0, 0}));
  }
  EXPECT_TRUE(ipv4);
  EXPECT_TRUE(corvo::GetPlatform().network.InterfaceAddresses("no-such-if0").empty());
}

}  // namespace
