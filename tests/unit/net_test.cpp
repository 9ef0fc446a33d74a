#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <stdexcept>
#include <string>

#include "lib/platform/base/errno_exception.h"
#include "lib/platform/system/net.h"
#include "lib/platform/system/route_table.h"

namespace {

using corvo::net::FindDefaultGateway;

const char* const kHeader =
    "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n";

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

std::uint32_t GatewayIn(const std::string& body, const std::string& ifname) {
  std::string table = kHeader + body;
  const File f(fmemopen(table.data(), table.size(), "r"), std::fclose);
  return FindDefaultGateway(f.get(), ifname);
}

std::string Error(const std::function<void()>& run) {
  try {
    run();
  } catch (const std::runtime_error& e) {
    return e.what();
  }
  return "no exception";
}

struct RouteCase {
  const char* name;
  const char* body;
  std::uint32_t expected;  // eth0's default gateway
};

class DefaultGatewayTest : public ::testing::TestWithParam<RouteCase> {};

TEST_P(DefaultGatewayTest, FindsTheInterfacesDefaultRoute) {
  EXPECT_EQ(GatewayIn(GetParam().body, "eth0"), GetParam().expected);
}

// One /proc/net/route line: interface, destination, gateway, flags, metric, mask.
#define ROUTE(ifname, dest, gw, flags, metric, mask) \
  ifname "\t" dest "\t" gw "\t" flags "\t0\t0\t" metric "\t" mask "\t0\t0\t0\n"
#define DEFAULT(ifname, gw, flags) ROUTE(ifname, "00000000", gw, flags, "0", "00000000")
#define SUBNET ROUTE("eth0", "0001A8C0", "00000000", "0001", "0", "00FFFFFF")

// Addresses in network byte order, as the kernel prints them on a little-endian host.
INSTANTIATE_TEST_SUITE_P(
    RouteTable, DefaultGatewayTest,
    ::testing::Values(
        RouteCase{"other_interface_only", DEFAULT("wlan0", "0101A8C0", "0003"), 0},
        RouteCase{"no_gateway_flag", DEFAULT("eth0", "0101A8C0", "0001"), 0},
        RouteCase{"route_down", DEFAULT("eth0", "0101A8C0", "0002"), 0},
        RouteCase{"subnet_route_not_default", SUBNET, 0},
        RouteCase{"first_default_wins",
                  SUBNET DEFAULT("eth0", "0201A8C0", "0003") DEFAULT("eth0", "0301A8C0", "0003"),
                  0xC0A80102},
        RouteCase{"name_is_whole_word", DEFAULT("eth0.12", "0101A8C0", "0003"), 0},
        RouteCase{"empty_table", "", 0}),
    [](const auto& case_info) { return std::string(case_info.param.name); });

TEST(RouteTableErrors, MalformedLineAndUnreadableTable) {
  EXPECT_EQ(Error([] { GatewayIn("eth0\t00000000\tzz\n", "eth0"); }),
            "Malformed /proc/net/route line");
  char dummy = 0;
  const File f(fmemopen(&dummy, 0, "r"), std::fclose);
  EXPECT_EQ(Error([&f] { FindDefaultGateway(f.get(), "eth0"); }),
            "/proc/net/route is not readable");
  EXPECT_EQ(Error([] { FindDefaultGateway("eth0", "/nonexistent/route"); }),
            "Could not open /proc/net/route");
}

// FormatIPv4 is pinned by the DHCP server's file in the DHCP command test.
TEST(NetHelpers, FormatMacReadSockAddrAndCheckDomainNames) {
  const unsigned char mac[6] = {0x00, 0x11, 0x22, 0xAA, 0xBB, 0xCC};
  EXPECT_EQ(corvo::net::FormatMac(mac), "00:11:22:aa:bb:cc");
  const sockaddr_in in{AF_INET, 0, {htonl(0x0A000001)}, {}};
  sockaddr sa;
  std::memcpy(&sa, &in, sizeof sa);
  EXPECT_EQ(corvo::net::GetSockAddrIn(sa), 0x0A000001u);
  sa.sa_family = AF_INET6;
  EXPECT_THROW(corvo::net::GetSockAddrIn(sa), std::runtime_error);
  EXPECT_TRUE(corvo::net::IsValidDomainName("example.local"));
  EXPECT_TRUE(corvo::net::IsValidDomainName("a-b_c.9"));
  for (const char* bad : {"", "has space", "a/b", "caf\xc3\xa9", "semi;colon"}) {
    EXPECT_FALSE(corvo::net::IsValidDomainName(bad)) << bad;
  }
}

// Writing the forwarding switch is the NAT command test's, on the player's own one.
TEST(KernelQueries, MissingInterfaceAndUnwritableSwitch) {
  EXPECT_FALSE(corvo::net::InterfaceHasLink("nosuchif0"));
  EXPECT_EQ(corvo::net::GetIPAddress(corvo::net::InterfaceSocket("lo")), 0x7F000001u);
  EXPECT_EQ(Error([] { corvo::net::GetIPAddress(corvo::net::InterfaceSocket("nosuchif0")); }),
            "GetIPAddress: No such device");
  EXPECT_THROW(corvo::net::SetIpForwarding(true, "/nonexistent/dir/ip_forward"),
               corvo::ErrnoException);
}

}  // namespace
