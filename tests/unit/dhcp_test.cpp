#include <csignal>
#include <string>
#include <vector>

#include "apps/steps/dhcp.h"
#include "lib/hardware/led_status.h"
#include "tests/unit/step_test.h"

namespace corvo::test {
namespace {

using Args = std::vector<std::string>;

const char kDhcpcd[] = "/sbin/dhcpcd";
const char kUdhcpd[] = "/sbin/udhcpd";
const char kConf[] = "/var/run/udhcpd-eth0.conf";

Args Head(Args tail) {
  Args args = {"-I", "Velmora:S1", "-i", "ACME Box 4", "-o43", "-b"};
  args.insert(args.end(), tail.begin(), tail.end());
  return args;
}

class Dhcp : public StepTest {
 protected:
  void SetUp() override {
    world.oem_id = "ACME";
    world.oem_model = "Box 4";
    world.serial_number = "S1";
    world.ready.insert("eth0");
  }
  void Configure(bool start, const std::string& ifname = "eth0",
                 LedNetworkStatusObserver* observer = nullptr) {
    ConfigureDhcp(observer, Reader(ifname), ifname, start, platform);
  }
};

struct ClientCase {
  const char* name;
  Settings settings;
  bool start;
  Args args;
};

class DhcpClient : public Dhcp, public ::testing::WithParamInterface<ClientCase> {};

TEST_P(DhcpClient, ArgumentVector) {
  Store(GetParam().settings);
  Configure(GetParam().start);
  EXPECT_EQ(Runs(kDhcpcd), std::vector<Args>{GetParam().args});
  EXPECT_EQ(world.runs.at(0).flags, 0x103u);
}

const Settings kStatic = {{"ip", "c0a8010a"}, {"nm", "ffffff00"}};
Settings Static(Settings more) {
  more.insert(kStatic.begin(), kStatic.end());
  return more;
}
const Settings kServer = Static({{"dh", "c0a80164:c0a801c8"}});
const char kIp[] = "-Sip_address=192.168.1.10";
const char kMask[] = "-Ssubnet_mask=255.255.255.0";

using C = ClientCase;
INSTANTIATE_TEST_SUITE_P(
    Stored, DhcpClient,
    ::testing::Values(
        C{"Dynamic", {}, true, Head({"eth0"})},
        C{"StopTakesNoOptions", Static({{"im", "5"}, {"mtu", "578"}}), false, Head({"-x", "eth0"})},
        C{"WorkedExample", Static({{"gw", "c0a80101"}, {"mtu", "578"}}), true,
          Head({kIp, kMask, "-Srouters=192.168.1.1", "-Sinterface_mtu=1400", "eth0"})},
        C{"StaticDomainAndServerOnlyInD2", Static({{"nd", "example.local"}, {"d2", "08080808"}}),
          true,
          Head({kIp, kMask, "-Sdomain_name=example.local", "-Sdomain_name_servers=8.8.8.8",
                "eth0"})},
        C{"MetricZeroMtuZero", {{"im", "0"}, {"mtu", "0"}}, true, Head({"-m0", "eth0"})},
        C{"MetricAndMtuUnset", {{"im", "-1"}, {"mtu", "-1"}}, true, Head({"eth0"})},
        C{"NoIdentifier",
          {{"ci", "-"}},
          true,
          {"-I", "", "-i", "ACME Box 4", "-o43", "-b", "eth0"}}),
    NameOf<ClientCase>);

// Only a failed start is worth a line: stopping a client that is not running fails.
TEST_F(Dhcp, DebugFlagAndExitCodeOnlyWhenStarting) {
  world.Set("networking", "dhcp_debug", "1");
  world.exit_codes[kDhcpcd] = {127, 127};
  Configure(false);
  EXPECT_EQ(platform.Log(), "Enabling DHCP client debugging\n");
  EXPECT_EQ(Runs(kDhcpcd).at(0), Head({"-d", "-x", "eth0"}));
  Configure(true);
  EXPECT_EQ(platform.Log(),
            "Enabling DHCP client debugging\nEnabling DHCP client debugging\n"
            "linkrig: Failed to spawn dhcpcd: 127\n");
}

TEST_F(Dhcp, NfsRootLeavesEth0AloneButRefreshesLed) {
  world.files["/sys/class/leds/ethernet/brightness"] = "untouched";
  LedNetworkStatusObserver observer("eth0", platform.Get().files);
  world.nfs_root = true;
  Store(kServer);
  Configure(true, "eth0", &observer);
  Configure(false, "eth0", &observer);
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
  Store({{"dh", "c0a80164:c0a80170:c0a80180:c0a801c8"},
         {"dhgw", "c0a80101"},
         {"dhdn", "08080808:01010101"},
         {"dhds", "example.local"}});
  Store(GetParam().settings);
  Configure(true);
  EXPECT_EQ(platform.Log(), "Starting DHCP server for 'eth0'\n");
  EXPECT_EQ(world.files[kConf],
            "interface eth0\n"
            "pidfile /var/run/udhcpd-eth0.pid\n"
            "lease_file /var/run/udhcpd-eth0.leases\n"
            "start 192.168.1.100\n"
            "end 192.168.1.200\n"
            "option subnet 255.255.255.0\n" +
                GetParam().tail);
  EXPECT_EQ(platform.Effects().back(), std::string("run ") + kUdhcpd + " " + kConf);
  EXPECT_EQ(world.runs.back().flags, 0x103u);
}

const std::string kRouterAndDns = "option router 192.168.1.1\nopt dns 8.8.8.8\nopt dns 1.1.1.1\n";
INSTANTIATE_TEST_SUITE_P(
    Stored, DhcpServerFile,
    ::testing::Values(
        ServerCase{"Full", {}, kRouterAndDns + "option domain example.local\n"},
        ServerCase{"NoRouterNoDns", {{"dhgw", "0"}, {"dhdn", ""}}, "option domain example.local\n"},
        ServerCase{"DomainWithBlank", {{"dhds", "example local"}}, kRouterAndDns},
        ServerCase{"DomainWithSlash",
                   {{"dhds", "a/b"}, {"dhdn", "09090909"}},
                   "option router 192.168.1.1\nopt dns 9.9.9.9\n"}),
    NameOf<ServerCase>);

TEST_F(Dhcp, ServerStartedEvenWhenFileCannotBeWritten) {
  Store(kServer);
  world.unwritable.insert(kConf);
  world.exit_codes[kUdhcpd] = {1};
  Configure(true);
  EXPECT_EQ(platform.Log(),
            "Starting DHCP server for 'eth0'\nlinkrig: Failed to spawn udhcpd: 1\n");
  EXPECT_EQ(Runs(kUdhcpd).size(), 1u);
}

struct StopCase {
  const char* name;
  Settings settings;
  bool start;
  std::string log;
};

class DhcpServerStop : public Dhcp, public ::testing::WithParamInterface<StopCase> {};

TEST_P(DhcpServerStop, RunningServerTerminated) {
  Store(GetParam().settings);
  world.pid_files["/var/run/udhcpd-eth0.pid"] = 42;
  Configure(GetParam().start);
  EXPECT_EQ(platform.Log(), GetParam().log);
  EXPECT_EQ(platform.Effects().back(),
            "stop udhcpd of /var/run/udhcpd-eth0.pid: SIGTERM, SIGKILL after 30 s");
  EXPECT_TRUE(Runs(kUdhcpd).empty());
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DhcpServerStop,
    ::testing::Values(StopCase{"Stop", kServer, false, ""}, StopCase{"NotEnabled", {}, true, ""},
                      StopCase{"AlsoAClient",
                               {{"dh", "c0a80164:c0a801c8"}},
                               true,
                               "DHCP server is not available on 'eth0' since it is also a DHCP "
                               "client.\n"}),
    NameOf<StopCase>);

TEST_F(Dhcp, ReadinessWaitGivesUpAfterFifteenSeconds) {
  Store(kServer);
  world.ready.clear();
  Configure(true);
  const Lines& effects = platform.Effects();
  EXPECT_EQ(std::count(effects.begin(), effects.end(), "sleep 1 s"), 15);
  EXPECT_EQ(Runs(kUdhcpd).size(), 1u);

  // Ready after two seconds: no more waiting.
  platform.ClearEffects();
  int sleeps = 0;
  world.on_sleep = [&] {
    if (++sleeps == 2) world.ready.insert("eth0");
  };
  Configure(true);
  EXPECT_EQ(std::count(platform.Effects().begin(), platform.Effects().end(), "sleep 1 s"), 2);
}

}  // namespace
}  // namespace corvo::test
