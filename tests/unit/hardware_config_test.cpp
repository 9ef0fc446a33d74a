#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <string>
#include <unistd.h>

#include "lib/hardware/hardware_config.h"
#include "lib/platform/system/network_ports.h"

namespace {

using Vars = std::map<std::string, std::string>;

using corvo::HardwareConfig;
using corvo::StaticBootEnvironment;

struct FlagsCase {
  const char* value;
  bool ethernet;
};

class HardwareFlagsTest : public ::testing::TestWithParam<FlagsCase> {};

TEST_P(HardwareFlagsTest, EthernetFeatureBit) {
  const HardwareConfig hw{StaticBootEnvironment(Vars{{"VL_HWFLAGS", GetParam().value}})};
  EXPECT_EQ(hw.HasEthernet(), GetParam().ethernet);
  EXPECT_EQ(hw.IsEthernetInterface("eth0"), GetParam().ethernet);
  EXPECT_FALSE(hw.IsEthernetInterface("eth1"));
  EXPECT_EQ(hw.GetEthernetInterface(true), std::optional<std::string>("eth0"));
  EXPECT_FALSE(hw.NeedsWifiMacAddress());
}

// Numbers in each base, no variable and no environment are the front end command tests'.
INSTANTIATE_TEST_SUITE_P(AutomaticBase, HardwareFlagsTest,
                         ::testing::Values(FlagsCase{"0xffffffffffffffff", true},
                                           FlagsCase{"0x10 ", true}, FlagsCase{" 0x10\n", true},
                                           FlagsCase{"16bits", true}, FlagsCase{"-16", false},
                                           FlagsCase{"garbage", false}, FlagsCase{"", false}));

// VL_FORMAT 1 with VL_SERIAL is pinned by the DHCP and host name command tests.
TEST(HardwareConfig, SerialOnlyWithFormatOne) {
  const HardwareConfig hw(StaticBootEnvironment(
      Vars{{"VL_SERIAL", "A123"}, {"VL_FORMAT", "2"}, {"WLAN0_HWADDR", "02:00:00:00:00:01"}}));
  EXPECT_EQ(hw.SerialNumber(), "");
  EXPECT_TRUE(hw.NeedsWifiMacAddress());
}

// A directory of links as /sys/class/net/ holds them, gone with the test.
class PortDirectory : public ::testing::Test {
 protected:
  ~PortDirectory() override { std::filesystem::remove_all(m_dir); }
  std::string With(std::initializer_list<const char*> names) {
    for (const char* name : names) std::filesystem::create_directories(m_dir + name);
    return m_dir;
  }
  const std::string m_dir = testing::TempDir() + "ports." + std::to_string(getpid()) + "/";
};

TEST_F(PortDirectory, InternalLinksAreNeverPorts) {
  const std::string dir = With({"lo", "ipc0", "rgmii1", "peth0", "eth0", "lo2", "wlan0"});
  for (const char* name : {"lo", "rgmii1", "ipc0", "peth0", "eth1"}) {
    EXPECT_FALSE(corvo::NetworkPortExists(name, dir)) << name;
  }
  EXPECT_TRUE(corvo::NetworkPortExists("eth0", dir));
  EXPECT_TRUE(corvo::NetworkPortExists("lo2", dir));
  EXPECT_FALSE(corvo::NetworkPortExists("eth0", "/nonexistent/"));
}

TEST_F(PortDirectory, HostLinkIgnoresInternalLinks) {
  EXPECT_FALSE(corvo::AnyNetworkPortHasLink(With({"lo", "rgmii0", "peth0"})));
}

}  // namespace
