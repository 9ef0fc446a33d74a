#include "lib/platform/settings/interface_reader.h"

#include <functional>
#include <sstream>
#include <stdexcept>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <gtest/gtest.h>

#include "tests/support/passphrase_obfuscator.h"
#include "tests/support/world_model.h"

namespace corvo::PersistentNetworkConfig {
namespace {

struct Readers {
  const InterfaceReader& iface;
  const HostReader& host;
};

std::string Hex(std::uint32_t value) { return fmt::format("{:08x}", value); }
std::string Range(const Ip4Range& range) { return Hex(range.start) + "-" + Hex(range.end); }

// One accessor call with its result (or its error) rendered as text.
using Accessor = std::function<std::string(const Readers&)>;

std::string Call(const Accessor& accessor, const Readers& readers) {
  try {
    return accessor(readers);
  } catch (const std::out_of_range& e) {
    return std::string("out_of_range: ") + e.what();
  } catch (const std::runtime_error& e) {
    return std::string("runtime_error: ") + e.what();
  }
}

struct Case {
  std::string name;
  std::string settings;  // "key=value;..." in the reader's section
  Accessor accessor;
  std::string expected;
  int reads = 1;
};

// Readers over a modelled store that counts its reads.
class ReaderTest : public ::testing::Test {
 protected:
  ReaderTest() { world.on_read = [this](const std::string&, const std::string&) { ++m_reads; }; }
  InterfaceReader Reader(const std::string& ifname) {
    return InterfaceReader(ifname, world.Get().settings, "S1");
  }
  WorldModel world;
  int m_reads = 0;
};

class ReaderCaseTest : public ReaderTest, public ::testing::WithParamInterface<Case> {};

// "eth0" shares its section with the host settings, so one section serves both readers.
TEST_P(ReaderCaseTest, ParsesStoredValue) {
  const Case& c = GetParam();
  std::istringstream settings(c.settings);
  for (std::string item; std::getline(settings, item, ';');) {
    world.Set(".omba", item.substr(0, item.find('=')), item.substr(item.find('=') + 1));
  }
  const HostReader host(world.Get().settings, "S1");
  EXPECT_EQ(Call(c.accessor, {Reader("eth0"), host}), c.expected);
  EXPECT_EQ(m_reads, c.reads);
}

const std::string k48(48, 'i');
const std::string kBadIp = "runtime_error: Invalid static IP configuration";
const std::string kStoulRange = "out_of_range: stoul";

#define ACCESSOR(expr) [](const Readers& r) { return expr; }
#define STR(call) ACCESSOR(r.iface.call())
#define NUM(call) ACCESSOR(std::to_string(r.iface.call()))
#define IP(call) ACCESSOR(Hex(r.iface.call()))
#define RANGE ACCESSOR(Range(r.iface.DhcpServerRange()))
#define LIST(call) ACCESSOR(fmt::format("{}", fmt::join(r.iface.call(), ",")))
#define IPS(call) ACCESSOR(fmt::format("{:08x}", fmt::join(r.iface.call(), ",")))

// Plain values that the command tests or the step tests store are left to them.
INSTANTIATE_TEST_SUITE_P(
    Table, ReaderCaseTest,
    ::testing::Values(
        Case{"IpTrailingGarbage", "ip=c0a80101zz", IP(StaticAddress), "c0a80101"},
        Case{"IpEmpty", "", IP(StaticAddress), kBadIp},
        Case{"IpTooWide", "ip=1c0a80101", NUM(IsDhcp), "1"},
        Case{"IpNegative", "ip=-1", NUM(IsDhcp), "1"},
        Case{"IpZeroIsDhcp", "ip=0", NUM(IsDhcp), "1"},
        // What an empty section reads as.
        Case{"Defaults", "",
             ACCESSOR(fmt::format("{:08x} '{}' {} {} {} {} {} {}", r.iface.Gateway(),
                                  r.iface.Passphrase(), r.iface.IsAccessPoint(),
                                  r.iface.AccessPointFrequency(), r.iface.DhcpServerEnabled(),
                                  r.iface.DialupLinkParameter(), r.iface.Mtu(),
                                  r.host.Forwarding())),
             "00000000 '' false 0 false 0 -1 0", 8},
        // Plain texts, each from its own key, that no command test stores.
        Case{"TextKeys", "ws=a;wo=b;nd=c",
             ACCESSOR(r.iface.SecurityOptions() + r.iface.Dot1xOptions() + r.iface.DomainName()),
             "abc", 3},
        Case{"AccessPointZero", "wm=0", NUM(IsAccessPoint), "1"},
        Case{"Base64PrefixCut", "wa=[base64", STR(CaCertificate), "[base64"},
        Case{"Base64Plain", "wt=-----BEGIN", STR(ClientCertificate), "-----BEGIN"},
        Case{"Base64Empty", "wk=[base64]", STR(PrivateKey), ""},
        Case{"Base64Invalid", "wk=[base64]a!==", STR(PrivateKey),
             "runtime_error: Invalid base64 data: Base64 decoding error."},
        Case{"FrequencyTrailing", "wf=5180MHz", NUM(AccessPointFrequency), "5180"},
        Case{"FrequencyNegative", "wf= -1", NUM(AccessPointFrequency), kStoulRange},
        Case{"FrequencyTooWide", "wf=4294967296", NUM(AccessPointFrequency), kStoulRange},
        Case{"DhcpServerOn", "dh=x", NUM(DhcpServerEnabled), "1"},
        Case{"DhcpRangeFirstAndLast", "dh=a:b::c:d", RANGE, "0000000a-0000000d"},
        Case{"DhcpRangeOdd", "dh=a:b:c", RANGE, "runtime_error: Malformed IP4 pair"},
        Case{"DhcpNameServers", "dhdn=8080808:0:8080404", IPS(DhcpServerNameServers),
             "08080808,00000000,08080404"},
        Case{"ClientId48Kept", "ci=" + k48, STR(ClientIdentifier), k48},
        Case{"ClientId49Cut", "ci=" + k48 + "j", STR(ClientIdentifier), k48},
        Case{"DialupLinkDecimal", "im=10", NUM(DialupLinkParameter), "10"},
        Case{"DialupLinkTooWide", "im=99999999999", NUM(DialupLinkParameter),
             "runtime_error: Invalid dialup link parameter"},
        Case{"NameServersSkipZero", "d0=0;d1=8080808", IPS(StaticNameServers), "08080808", 3},
        Case{"Metric", "im=a", NUM(InterfaceMetric), "10"},
        Case{"MetricDash", "im=-", NUM(InterfaceMetric), "-1"},
        Case{"MetricOutOfRange", "im=1ffffffff", NUM(InterfaceMetric), "-1"},
        Case{"MtuGarbage", "mtu=zz", NUM(Mtu), "-1"},
        Case{"VlansEmptyPieces", "vlans=,,7,, 8,-1,4095,99999999999", LIST(Vlans), "7,8,4095"},
        Case{"HostName", "hn=player", ACCESSOR(r.host.HostName()), "player"}),
    [](const auto& param_info) { return param_info.param.name; });

// The forms of a trial's target; what does not parse, and the trial, are the command test's.
TEST_F(ReaderTest, ConfirmTargetForms) {
  const NetworkingReader networking(world.Get().settings);
  EXPECT_FALSE(networking.ConfirmTarget());
  EXPECT_EQ(networking.ConfirmSeconds(), 60u);
  for (const auto& [stored, text] : {std::pair{"[2001:db8::1]:443", "2001:db8::1 443"},
                                     {"fe80::1:80", "fe80::1 80"},
                                     {"mgmt.example.com:7000", "mgmt.example.com 7000"}}) {
    world.Set("networking", "confirm_target", stored);
    const std::optional<TcpEndpoint> target = networking.ConfirmTarget();
    EXPECT_EQ(target ? fmt::format("{} {}", target->host, target->port) : "", text) << stored;
  }
}

// eth0, wlan0, ppp0 and eth1 read their sections in the command tests.
TEST_F(ReaderTest, OtherInterfacesReadTheirOwnSection) {
  for (const std::string ifname : {"eth0.12", "eth0 "}) {
    world.Set(".net." + ifname, "wi", ifname);
    const InterfaceReader reader = Reader(ifname);
    EXPECT_EQ(reader.Section(), ".net." + ifname);
    EXPECT_EQ(reader.InterfaceName(), ifname);
    EXPECT_EQ(reader.Ssid(), ifname);
  }
}

TEST_F(ReaderTest, NothingIsCached) {
  const InterfaceReader reader = Reader("wlan0");
  world.Set(".omba1", "mtu", "5dc");
  EXPECT_EQ(reader.Mtu(), 1500);
  world.Set(".omba1", "mtu", "5de");
  EXPECT_EQ(reader.Mtu(), 1502);
  EXPECT_EQ(m_reads, 2);
}

TEST_F(ReaderTest, PassphraseUsesTheStoredCustomerKey) {
  world.Set("customer", "obfuscation_key", "customer-key");
  world.Set(".omba1", "wp", test::ObfuscatePassphrase('C', "customer-key", "secret one"));
  const InterfaceReader reader = Reader("wlan0");
  EXPECT_EQ(reader.Passphrase(), "secret one");
  EXPECT_EQ(m_reads, 2);
  world.Set(".omba1", "wp", test::ObfuscatePassphrase('A', BuiltInObfuscationKey(), "secret two"));
  EXPECT_EQ(reader.Passphrase(), "secret two");
  EXPECT_EQ(m_reads, 3);
}

}  // namespace
}  // namespace corvo::PersistentNetworkConfig
