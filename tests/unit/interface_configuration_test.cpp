#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "apps/steps/interface_configuration.h"
#include "lib/hardware/hardware_config.h"
#include "lib/platform/interface_reader.h"
#include "lib/platform/vlan_links.h"
#include "tests/support/memory_registry.h"
#include "tests/unit/fake_platform.h"

namespace {

using corvo::test::Journal;
const auto CaseName = [](const auto& case_info) { return std::string(case_info.param.name); };

// Links as a kernel with 802.1Q would keep them, written to the platform's journal.
class FakeVlanLinks : public corvo::VlanLinks {
 public:
  explicit FakeVlanLinks(Journal& journal) : m_journal(&journal) {}

  std::vector<std::string> ListVlansOn(const std::string& parent) override {
    if (parent != "eth0") throw std::runtime_error("Link not found");
    m_journal->push_back("list " + parent);
    return vlans;
  }
  void DeleteLink(const std::string& name) override { m_journal->push_back("delete " + name); }
  void AddVlan(const std::string& parent, std::uint16_t id, const std::string& name) override {
    m_journal->push_back("add " + parent + " " + std::to_string(id) + " " + name);
    if (name == failing) throw std::runtime_error("no 802.1Q here");
  }
  void SetUp(const std::string& name) override { m_journal->push_back("up " + name); }

  std::vector<std::string> vlans;
  std::string failing;

 private:
  Journal* m_journal;
};

class InterfaceConfiguration : public ::testing::Test {
 protected:
  void SetUp() override { m_hardware.emplace(corvo::StaticBootEnvironment()); }

  // The link changes, the DHCP clients as "start IF"/"stop IF" and the
  // forwarding step as "forwarding".
  Journal Configure(const char* ifname, bool start) {
    corvo::ConfigureInterface(nullptr, corvo::PersistentNetworkConfig::InterfaceReader(
                                           ifname, m_registry),
                              ifname, start, m_links, m_fake);
    Journal steps;
    for (const std::string& line : m_fake.journal) {
      const std::string verb = line.substr(0, line.find(' '));
      if (line.rfind("run /sbin/dhcpcd ", 0) == 0) {
        const bool stop = line.find(" -x ") != std::string::npos;
        steps.push_back((stop ? "stop " : "start ") + line.substr(line.rfind(' ') + 1));
      } else if (line == "run /sbin/iptables -t nat -F POSTROUTING") {
        steps.push_back("forwarding");
      } else if (verb == "list" || verb == "delete" || verb == "add" || verb == "up") {
        steps.push_back(line);
      }
    }
    return steps;
  }

  corvo::test::MemoryRegistry m_registry;
  corvo::test::FakePlatform m_fake;
  FakeVlanLinks m_links{m_fake.journal};
  std::optional<corvo::HardwareConfig> m_hardware;
};

struct Case {
  const char* name;
  const char* vlans;
  bool start;
  Journal steps;
};

class VlanSetting : public InterfaceConfiguration, public ::testing::WithParamInterface<Case> {};

// Existing VLANs are always taken down first, each client before its link.
TEST_P(VlanSetting, StepOrder) {
  m_links.vlans = {"eth0.12", "eth0.7"};
  m_registry.Set(".omba", "vlans", GetParam().vlans);
  Journal expected = {"list eth0", "stop eth0.12", "delete eth0.12", "stop eth0.7",
                      "delete eth0.7"};
  expected.insert(expected.end(), GetParam().steps.begin(), GetParam().steps.end());
  EXPECT_EQ(Configure("eth0", GetParam().start), expected);
}

const Journal kUntagged{"start eth0", "forwarding"};
INSTANTIATE_TEST_SUITE_P(
    Stored, VlanSetting,
    ::testing::Values(
        Case{"EmptyStart", "", true, kUntagged}, Case{"OnlyUntagged", "0", true, kUntagged},
        Case{"EmptyStop", "", false, {"stop eth0", "forwarding"}},
        Case{"StopWithVlansStored", "12,0", false, {"stop eth0", "forwarding"}},
        Case{"UntaggedFirstOnceEachOutOfRangeIgnored", "12,0,12,5000", true,
             {"up eth0", "start eth0", "add eth0 12 eth0.12", "start eth0.12", "forwarding"}},
        Case{"TaggedOnly", "12", true, {"up eth0", "add eth0 12 eth0.12", "start eth0.12", "forwarding"}},
        Case{"Ascending", ",30,,7", true,
             {"up eth0", "add eth0 7 eth0.7", "start eth0.7", "add eth0 30 eth0.30",
              "start eth0.30", "forwarding"}}),
    CaseName);

TEST_F(InterfaceConfiguration, FailedVlanReportedAndSkipped) {
  m_registry.Set(".omba", "vlans", "7,12,30");
  m_links.failing = "eth0.7";
  // The VLAN reads its own section: a broken static address fails that VLAN only.
  m_registry.Set(".net.eth0.12", "ip", "c0a8010a");
  testing::internal::CaptureStderr();
  const Journal steps = Configure("eth0", true);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Unable to configure VLAN 7 for eth0: no 802.1Q here\n"
            "Unable to configure VLAN 12 for eth0: Invalid static IP configuration\n");
  EXPECT_EQ(steps, (Journal{"list eth0", "up eth0", "add eth0 7 eth0.7", "add eth0 12 eth0.12",
                            "add eth0 30 eth0.30", "start eth0.30", "forwarding"}));
}

TEST_F(InterfaceConfiguration, NonNumericVlanFailsWholeStep) {
  m_registry.Set(".omba", "vlans", "12,x");
  m_links.vlans = {"eth0.12"};
  try {
    Configure("eth0", true);
    FAIL() << "no exception";
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(e.what(), "stoi");
  }
  // The old VLAN is gone already; nothing else ran.
  EXPECT_EQ(m_fake.journal.back(), "delete eth0.12");
}

TEST_F(InterfaceConfiguration, UnknownInterfaceTouchesNothing) {
  EXPECT_THROW(Configure("eth9", true), std::runtime_error);
  EXPECT_TRUE(m_fake.journal.empty());
}

}  // namespace
