#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <string>
#include <sys/stat.h>
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

// libubootenv, linked from an archive built with 32-bit time, looks at the environment's file
// with stat, which glibc's 32-bit call fails for a file written from 2038 on.
TEST(UbootBootEnvironment, ReadsAnEnvironmentWrittenAfter2038) {
  const std::string dir = testing::TempDir() + "env." + std::to_string(getpid());
  std::filesystem::create_directories(dir);
  std::ofstream(dir + "/fw_env.config") << dir << "/env 0x0 0x4000\n";
  std::ofstream(dir + "/defaults") << "bootdelay=1\n";
  std::ofstream(dir + "/env") << std::string(0x4000, '\0');
  const std::string set = "fw_setenv -c " + dir + "/fw_env.config -f " + dir + "/defaults " +
                          "VL_HWFLAGS 0x10 >/dev/null 2>&1";
  ASSERT_EQ(std::system(set.c_str()), 0);
  const struct timespec written[2] = {{2240000000, 0}, {2240000000, 0}};  // 2040-12-25
  ASSERT_EQ(utimensat(AT_FDCWD, (dir + "/env").c_str(), written, 0), 0);
  EXPECT_EQ(corvo::UbootBootEnvironment((dir + "/fw_env.config").c_str()).Get("VL_HWFLAGS"),
            std::optional<std::string>("0x10"));
  std::filesystem::remove_all(dir);
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
