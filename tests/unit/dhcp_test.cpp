#include <gtest/gtest.h>

#include <boost/filesystem.hpp>
#include <csignal>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "apps/steps/dhcp.h"
#include "lib/hardware/hardware_config.h"
#include "lib/hardware/led_status.h"
#include "lib/platform/interface_reader.h"
#include "tests/support/memory_registry.h"
#include "tests/unit/fake_platform.h"

namespace {

namespace fs = boost::filesystem;
using corvo::PersistentNetworkConfig::InterfaceReader;
using Args = std::vector<std::string>;
using Settings = std::map<std::string, std::string>;

const auto CaseName = [](const auto& case_info) { return std::string(case_info.param.name); };

const char kDhcpcd[] = "/sbin/dhcpcd";
const char kUdhcpd[] = "/sbin/udhcpd";
const char kConf[] = "/var/run/udhcpd-eth0.conf";
const Args kHead = {"-I", "Velmora:S1", "-i", "ACME Box 4", "-o43", "-b"};

Args Head(Args tail) {
  tail.insert(tail.begin(), kHead.begin(), kHead.end());
  return tail;
}

class Dhcp : public ::testing::Test {
 protected:
  void SetUp() override {
    m_hardware.emplace(corvo::StaticBootEnvironment(
        {{"VL_OEM_ID", "ACME"}, {"VL_OEM_MODEL", "Box 4"}, {"VL_FORMAT", "1"}, {"VL_SERIAL", "S1"}}));
    m_fake.network.ready.insert("eth0");
  }
  void Store(const Settings& settings, const std::string& section = ".omba") {
    for (const auto& [key, value] : settings) m_registry.Set(section, key, value);
  }
  // Runs the step with standard error captured.
  std::string Configure(bool start, const std::string& ifname = "eth0",
                        corvo::LedNetworkStatusObserver* observer = nullptr) {
    testing::internal::CaptureStderr();
    corvo::ConfigureDhcp(observer, InterfaceReader(ifname, m_registry), ifname, start, m_fake);
    return testing::internal::GetCapturedStderr();
  }
  auto Runs(const char* program) const { return m_fake.programs.RunsOf(program); }

  corvo::test::MemoryRegistry m_registry;
  corvo::test::FakePlatform m_fake;
  std::optional<corvo::HardwareConfig> m_hardware;
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
  const auto runs = Runs(kDhcpcd);
  ASSERT_EQ(runs.size(), 1u);
  EXPECT_EQ(runs[0].args, GetParam().args);
  EXPECT_EQ(runs[0].flags, 0x103u);
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
        C{"NoIdentifier", {{"ci", "-"}}, true,
          {"-I", "", "-i", "ACME Box 4", "-o43", "-b", "eth0"}}),
    CaseName);

// Only a failed start is worth a line: stopping a client that is not running fails.
TEST_F(Dhcp, DebugFlagAndExitCodeOnlyWhenStarting) {
  m_registry.Set("networking", "dhcp_debug", "1");
  m_fake.programs.exit_code = 127;
  EXPECT_EQ(Configure(false), "Enabling DHCP client debugging\n");
  EXPECT_EQ(Runs(kDhcpcd).at(0).args, Head({"-d", "-x", "eth0"}));
  EXPECT_EQ(Configure(true),
            "Enabling DHCP client debugging\nlinkrig: Failed to spawn dhcpcd: 127\n");
}

TEST_F(Dhcp, NfsRootLeavesEth0AloneButRefreshesLed) {
  const fs::path root = fs::temp_directory_path() / fs::unique_path("dhcp-led-%%%%-%%%%");
  fs::create_directories(root / "ethernet");
  std::ofstream(root / "ethernet" / "brightness") << "untouched";
  corvo::LedNetworkStatusObserver observer("eth0", root.string() + "/", m_fake.network);
  m_fake.network.nfs_root = true;
  Store(kServer);
  Configure(true, "eth0", &observer);
  Configure(false, "eth0", &observer);
  EXPECT_TRUE(m_fake.journal.empty());
  std::ifstream in((root / "ethernet" / "brightness").string());
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "0");
  fs::remove_all(root);
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
  EXPECT_EQ(Configure(true), "Starting DHCP server for 'eth0'\n");
  EXPECT_EQ(m_fake.files.contents[kConf],
            "interface eth0\n"
            "pidfile /var/run/udhcpd-eth0.pid\n"
            "lease_file /var/run/udhcpd-eth0.leases\n"
            "start 192.168.1.100\n"
            "end 192.168.1.200\n"
            "option subnet 255.255.255.0\n" +
                GetParam().tail);
  EXPECT_EQ(m_fake.journal.back(), std::string("run ") + kUdhcpd + " " + kConf);
  EXPECT_EQ(Runs(kUdhcpd).at(0).flags, 0x103u);
}

const std::string kRouterAndDns = "option router 192.168.1.1\nopt dns 8.8.8.8\nopt dns 1.1.1.1\n";
INSTANTIATE_TEST_SUITE_P(
    Stored, DhcpServerFile,
    ::testing::Values(
        ServerCase{"Full", {}, kRouterAndDns + "option domain example.local\n"},
        ServerCase{"NoRouterNoDns", {{"dhgw", "0"}, {"dhdn", ""}}, "option domain example.local\n"},
        ServerCase{"DomainWithBlank", {{"dhds", "example local"}}, kRouterAndDns},
        ServerCase{"DomainWithSlash", {{"dhds", "a/b"}, {"dhdn", "09090909"}},
                   "option router 192.168.1.1\nopt dns 9.9.9.9\n"}),
    CaseName);

TEST_F(Dhcp, ServerStartedEvenWhenFileCannotBeWritten) {
  Store(kServer);
  m_fake.files.create_fails = true;
  m_fake.programs.Script(kUdhcpd, {1});
  EXPECT_EQ(Configure(true),
            "Starting DHCP server for 'eth0'\nlinkrig: Failed to spawn udhcpd: 1\n");
  EXPECT_EQ(Runs(kUdhcpd).size(), 1u);
}

struct StopCase {
  const char* name;
  Settings settings;
  bool start;
  std::string stderr_text;
};

class DhcpServerStop : public Dhcp, public ::testing::WithParamInterface<StopCase> {};

TEST_P(DhcpServerStop, RunningServerTerminated) {
  Store(GetParam().settings);
  m_fake.programs.pid_files["/var/run/udhcpd-eth0.pid"] = 42;
  EXPECT_EQ(Configure(GetParam().start), GetParam().stderr_text);
  ASSERT_EQ(m_fake.programs.kills.size(), 1u);
  const auto& kill = m_fake.programs.kills[0];
  EXPECT_EQ(std::make_tuple(kill.pid, kill.signal, kill.timeout_us),
            std::make_tuple(42, SIGTERM, std::int64_t{30000000}));
  EXPECT_TRUE(Runs(kUdhcpd).empty());
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DhcpServerStop,
    ::testing::Values(StopCase{"Stop", kServer, false, ""}, StopCase{"NotEnabled", {}, true, ""},
                      StopCase{"AlsoAClient", {{"dh", "c0a80164:c0a801c8"}}, true,
                               "DHCP server is not available on 'eth0' since it is also a DHCP "
                               "client.\n"}),
    CaseName);

TEST_F(Dhcp, StopWithoutPidFileKillsNothing) {
  Configure(false);
  EXPECT_EQ(m_fake.journal.back(), "read-pid /var/run/udhcpd-eth0.pid udhcpd");
  EXPECT_TRUE(m_fake.programs.kills.empty());
}

TEST_F(Dhcp, ReadinessWaitGivesUpAfterFifteenSeconds) {
  Store(kServer);
  m_fake.network.ready.clear();
  const auto before = m_fake.clock.now;
  Configure(true);
  EXPECT_EQ(m_fake.clock.sleeps, std::vector<std::chrono::microseconds>(15, std::chrono::seconds(1)));
  EXPECT_EQ(m_fake.clock.now - before, std::chrono::seconds(15));
  EXPECT_EQ(Runs(kUdhcpd).size(), 1u);

  // Ready after two seconds: no more waiting.
  m_fake.clock.sleeps.clear();
  m_fake.clock.on_sleep = [this] {
    if (m_fake.clock.sleeps.size() == 2) m_fake.network.ready.insert("eth0");
  };
  Configure(true);
  EXPECT_EQ(m_fake.clock.sleeps.size(), 2u);
}

}  // namespace
