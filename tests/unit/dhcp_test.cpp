#include <stdexcept>

#include "apps/steps/dhcp.h"
#include "tests/unit/step_test.h"

namespace corvo::test {
namespace {

const char kDhcpcd[] = "/sbin/dhcpcd";
const char kUdhcpd[] = "/sbin/udhcpd";
const char kConf[] = "/var/run/udhcpd-eth0.conf";

Lines Head(const Lines& tail) {
  return Join({"-I", "Velmora:S1", "-i", "ACME Box 4", "-o43", "-b"}, tail);
}

class Dhcp : public StepTest {
 protected:
  void SetUp() override {
    world.oem_id = "ACME";
    world.oem_model = "Box 4";
    world.serial_number = "S1";
    world.ready.insert("eth0");
  }
  void Configure(bool start, const std::string& ifname = "eth0") {
    ConfigureDhcp(Context(ifname), start ? Phase::kStart : Phase::kStop);
  }
};

struct ClientCase {
  const char* name;
  Settings settings;
  bool start;
  Lines args;
};

class DhcpClient : public Dhcp, public ::testing::WithParamInterface<ClientCase> {};

TEST_P(DhcpClient, ArgumentVector) {
  Store(GetParam().settings);
  Configure(GetParam().start);
  EXPECT_EQ(Runs(kDhcpcd), std::vector<Lines>{GetParam().args});
}

const Settings kStatic = {{"ip", "c0a8010a"}, {"nm", "ffffff00"}};
Settings Static(Settings more) {
  more.insert(kStatic.begin(), kStatic.end());
  return more;
}
const Settings kServer = Static({{"dh", "c0a80164:c0a801c8"}});

using C = ClientCase;
// Dynamic and static starts with router and MTU run the real dhcpcd in the command tests.
INSTANTIATE_TEST_SUITE_P(
    Stored, DhcpClient,
    ::testing::Values(
        C{"StopTakesNoOptions", Static({{"im", "5"}, {"mtu", "578"}}), false, Head({"-x", "eth0"})},
        C{"StaticDomainAndServerOnlyInD2", Static({{"nd", "example.local"}, {"d2", "08080808"}}),
          true, Head({"-Sip_address=192.168.1.10", "-Ssubnet_mask=255.255.255.0",
                      "-Sdomain_name=example.local", "-Sdomain_name_servers=8.8.8.8", "eth0"})},
        C{"MetricZeroMtuZero", {{"im", "0"}, {"mtu", "0"}}, true, Head({"-m0", "eth0"})},
        C{"HostNameToSend", {{"hh", "lobby 7"}}, true, Head({"-h", "lobby 7", "eth0"})}),
    NameOf<ClientCase>);

TEST_F(Dhcp, DebugFlag) {
  world.Set("networking", "dhcp_debug", "1");
  Configure(false);
  EXPECT_EQ(platform.Log(), "Enabling DHCP client debugging\n");
  EXPECT_EQ(Runs(kDhcpcd).at(0), Head({"-d", "-x", "eth0"}));
}

TEST_F(Dhcp, NfsRootLeavesEth0AloneButRefreshesLed) {
  world.files["/sys/class/leds/ethernet/brightness"] = "untouched";
  world.nfs_root = true;
  Store(kServer);
  Configure(true);
  Configure(false);
  EXPECT_EQ(platform.Effects(), Lines(2, "write /sys/class/leds/ethernet/brightness \"0\""));
  // The rule protects only the root's own link.
  Configure(false, "eth1");
  EXPECT_EQ(Runs(kDhcpcd).size(), 1u);
}

struct ServerCase {
  const char* name;
  Settings settings;
  std::string tail;  // the lines after "option subnet"
};

class DhcpServerFile : public Dhcp, public ::testing::WithParamInterface<ServerCase> {};

TEST_P(DhcpServerFile, WrittenThenServerStarted) {
  Store(kStatic);
  Store({{"dh", "c0a80164:c0a80170:c0a80180:c0a801c8"}, {"dhgw", "c0a80101"},
         {"dhdn", "08080808:01010101"}, {"dhds", "example.local"}});
  Store(GetParam().settings);
  Configure(true);
  EXPECT_EQ(platform.Log(), "Starting DHCP server for 'eth0'\n");
  EXPECT_EQ(world.files[kConf],
            "interface eth0\npidfile /var/run/udhcpd-eth0.pid\n"
            "lease_file /var/run/udhcpd-eth0.leases\nstart 192.168.1.100\nend 192.168.1.200\n"
            "option subnet 255.255.255.0\n" + GetParam().tail);
  EXPECT_EQ(Runs(kUdhcpd).size(), 1u);
}

const std::string kRouter = "option router 192.168.1.1\n";
const std::string kDomain = "option domain example.local\n";
// Which domain names are valid is the network helpers' test.
INSTANTIATE_TEST_SUITE_P(
    Stored, DhcpServerFile,
    ::testing::Values(
        ServerCase{"Full", {}, kRouter + "opt dns 8.8.8.8\nopt dns 1.1.1.1\n" + kDomain},
        ServerCase{"NoRouterNoDns", {{"dhgw", "0"}, {"dhdn", ""}}, kDomain},
        ServerCase{"DomainWithSlash", {{"dhds", "a/b"}, {"dhdn", "09090909"}},
                   kRouter + "opt dns 9.9.9.9\n"}),
    NameOf<ServerCase>);

TEST_F(Dhcp, ServerStartedEvenWhenFileCannotBeWritten) {
  Store(kServer);
  platform.before_effect = [](const std::string& effect) {
    if (effect.rfind(std::string("write ") + kConf, 0) == 0) throw std::runtime_error("EACCES");
  };
  world.exit_codes[kUdhcpd] = {1};
  Configure(true);
  EXPECT_EQ(platform.Log(),
            "Starting DHCP server for 'eth0'\nlinkrig: Failed to spawn udhcpd: 1\n");
  EXPECT_EQ(Runs(kUdhcpd).size(), 1u);
}

// A start without a server of its own, or on a DHCP client, stops the one running.
TEST_F(Dhcp, ServerNotEnabledOrOnAClientStopsTheRunningOne) {
  const std::string kAlsoClient =
      "DHCP server is not available on 'eth0' since it is also a DHCP client.\n";
  for (const auto& [settings, log] : std::vector<std::pair<Settings, std::string>>{
           {{}, ""}, {{{"dh", "c0a80164:c0a801c8"}}, kAlsoClient}}) {
    platform.ClearEffects();
    const std::size_t before = platform.Log().size();
    Store(settings);
    world.pid_files["/var/run/udhcpd-eth0.pid"] = 42;
    Configure(true);
    EXPECT_EQ(platform.Log().substr(before), log);
    EXPECT_EQ(platform.Effects().back(),
              "stop udhcpd of /var/run/udhcpd-eth0.pid: SIGTERM, SIGKILL after 30 s");
  }
  EXPECT_TRUE(Runs(kUdhcpd).empty());
}

TEST_F(Dhcp, ReadinessWaitGivesUpAfterFifteenSeconds) {
  Store(kServer);
  world.ready.clear();
  Configure(true);
  const Lines& effects = platform.Effects();
  EXPECT_EQ(std::count(effects.begin(), effects.end(), "sleep 1 s"), 15);
  EXPECT_EQ(Runs(kUdhcpd).size(), 1u);
}

}  // namespace
}  // namespace corvo::test
