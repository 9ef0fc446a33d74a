#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <stdexcept>
#include <string>
#include <unistd.h>

#include "lib/platform/errno_exception.h"
#include "lib/platform/net.h"
#include "lib/platform/route_table.h"

namespace {

using corvo::net::FindDefaultGateway;

const char* const kHeader =
    "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n";

std::uint32_t GatewayIn(const std::string& body, const std::string& ifname) {
  std::string table = kHeader + body;
  std::FILE* f = fmemopen(table.data(), table.size(), "r");
  EXPECT_NE(f, nullptr);
  try {
    const auto gateway = FindDefaultGateway(f, ifname);
    std::fclose(f);
    return gateway;
  } catch (...) {
    std::fclose(f);
    throw;
  }
}

struct RouteCase {
  const char* name;
  const char* body;
  const char* ifname;
  std::uint32_t expected;
};

class DefaultGatewayTest : public ::testing::TestWithParam<RouteCase> {};

TEST_P(DefaultGatewayTest, FindsTheInterfacesDefaultRoute) {
  EXPECT_EQ(GatewayIn(GetParam().body, GetParam().ifname), GetParam().expected);
}

// Addresses appear in network byte order, as the kernel prints them on a little-endian host.
INSTANTIATE_TEST_SUITE_P(
    RouteTable, DefaultGatewayTest,
    ::testing::Values(
        RouteCase{"default_route", "eth0\t00000000\t0101A8C0\t0003\t0\t0\t0\t00000000\t0\t0\t0\n",
                  "eth0", 0xC0A80101},
        RouteCase{"other_interface_only",
                  "wlan0\t00000000\t0101A8C0\t0003\t0\t0\t0\t00000000\t0\t0\t0\n", "eth0", 0},
        RouteCase{"no_gateway_flag",
                  "eth0\t00000000\t0101A8C0\t0001\t0\t0\t0\t00000000\t0\t0\t0\n", "eth0", 0},
        RouteCase{"route_down", "eth0\t00000000\t0101A8C0\t0002\t0\t0\t0\t00000000\t0\t0\t0\n",
                  "eth0", 0},
        RouteCase{"subnet_route_not_default",
                  "eth0\t0001A8C0\t00000000\t0001\t0\t0\t0\t00FFFFFF\t0\t0\t0\n", "eth0", 0},
        RouteCase{"first_default_wins",
                  "eth0\t0001A8C0\t00000000\t0001\t0\t0\t0\t00FFFFFF\t0\t0\t0\n"
                  "eth0\t00000000\t0201A8C0\t0003\t0\t0\t100\t00000000\t0\t0\t0\n"
                  "eth0\t00000000\t0301A8C0\t0003\t0\t0\t200\t00000000\t0\t0\t0\n",
                  "eth0", 0xC0A80102},
        RouteCase{"name_is_whole_word",
                  "eth0.12\t00000000\t0101A8C0\t0003\t0\t0\t0\t00000000\t0\t0\t0\n", "eth0", 0},
        RouteCase{"empty_table", "", "eth0", 0}),
    [](const auto& case_info) { return std::string(case_info.param.name); });

TEST(RouteTableErrors, MalformedLineAndUnreadableTable) {
  try {
    GatewayIn("eth0\t00000000\tzz\n", "eth0");
    FAIL() << "no exception";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "Malformed /proc/net/route line");
  }
  std::string empty;
  char dummy = 0;
  std::FILE* f = fmemopen(&dummy, 0, "r");
  ASSERT_NE(f, nullptr);
  try {
    FindDefaultGateway(f, "eth0");
    ADD_FAILURE() << "no exception";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "/proc/net/route is not readable");
  }
  std::fclose(f);
  try {
    FindDefaultGateway("eth0", "/nonexistent/route");
    FAIL() << "no exception";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "Could not open /proc/net/route");
  }
}

TEST(Formatting, IPv4AndMac) {
  EXPECT_EQ(corvo::net::FormatIPv4(0xC0A80101), "192.168.1.1");
  EXPECT_EQ(corvo::net::FormatIPv4(0), "0.0.0.0");
  EXPECT_EQ(corvo::net::FormatIPv4(0xFFFFFFFF), "255.255.255.255");
  const unsigned char mac[6] = {0x00, 0x11, 0x22, 0xAA, 0xBB, 0xCC};
  EXPECT_EQ(corvo::net::FormatMac(mac), "00:11:22:aa:bb:cc");
}

TEST(Formatting, SockAddrIn) {
  struct sockaddr_in in = {};
  in.sin_family = AF_INET;
  in.sin_addr.s_addr = htonl(0x0A000001);
  struct sockaddr sa;
  std::memcpy(&sa, &in, sizeof sa);
  EXPECT_EQ(corvo::net::GetSockAddrIn(sa), 0x0A000001u);
  sa.sa_family = AF_INET6;
  EXPECT_THROW(corvo::net::GetSockAddrIn(sa), std::runtime_error);
}

TEST(DomainName, AcceptsOnlyPlainNames) {
  EXPECT_TRUE(corvo::net::IsValidDomainName("example.local"));
  EXPECT_TRUE(corvo::net::IsValidDomainName("a-b_c.9"));
  for (const char* bad : {"", "has space", "a/b", "caf\xc3\xa9", "semi;colon"}) {
    EXPECT_FALSE(corvo::net::IsValidDomainName(bad)) << bad;
  }
}

TEST(KernelQueries, MissingInterface) {
  EXPECT_FALSE(corvo::net::InterfaceHasLink("nosuchif0"));
  EXPECT_EQ(corvo::net::GetIPAddress(corvo::net::InterfaceSocket("lo")), 0x7F000001u);
  try {
    corvo::net::GetIPAddress(corvo::net::InterfaceSocket("nosuchif0"));
    FAIL() << "no exception";
  } catch (const corvo::ErrnoException& e) {
    EXPECT_EQ(e.Context(), "GetIPAddress");
  }
}

TEST(IpForwarding, WritesOneCharacter) {
  char path[] = "/tmp/ip_forward.XXXXXX";
  const int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  close(fd);
  corvo::net::SetIpForwarding(true, path);
  std::FILE* f = std::fopen(path, "r");
  char buf[8] = {};
  EXPECT_EQ(std::fread(buf, 1, sizeof buf, f), 1u);
  EXPECT_STREQ(buf, "1");
  std::fclose(f);
  corvo::net::SetIpForwarding(false, path);
  f = std::fopen(path, "r");
  std::memset(buf, 0, sizeof buf);
  EXPECT_EQ(std::fread(buf, 1, sizeof buf, f), 1u);
  EXPECT_STREQ(buf, "0");
  std::fclose(f);
  unlink(path);
  EXPECT_THROW(corvo::net::SetIpForwarding(true, "/nonexistent/dir/ip_forward"),
               corvo::ErrnoException);
}

}  // namespace
