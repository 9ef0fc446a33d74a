#include "apps/steps/host_forwarding.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "apps/steps/host_name_step.h"
#include "lib/platform/interface_reader.h"
#include "tests/support/memory_registry.h"
#include "tests/unit/fake_platform.h"

namespace {

using corvo::test::Journal;

const std::string kDelete = "run /sbin/iptables -t nat -D POSTROUTING -o eth0 -j MASQUERADE";
const std::string kAppend = "run /sbin/iptables -t nat -A POSTROUTING -o eth0 -j MASQUERADE";
const std::string kFlush = "run /sbin/iptables -t nat -F POSTROUTING";
const Journal kNat{"forwarding 0", kDelete, kAppend, "forwarding 1"};

class HostForwarding : public ::testing::Test {
 protected:
  void SetUp() override {
    m_registry.Set(".omba", "hn", "player");
    m_fake.host_names.name = "player";
    m_fake.network.ports = {"eth0", "wlan0"};
  }

  void Apply(bool apply) {
    corvo::ConfigureHostForwarding(apply, corvo::PersistentNetworkConfig::HostReader(m_registry),
                                   m_fake);
  }

  corvo::test::MemoryRegistry m_registry;
  corvo::test::FakePlatform m_fake;
};

TEST_F(HostForwarding, NatWithoutDefaultRouteOnlyReports) {
  testing::internal::CaptureStderr();
  corvo::ConfigureNat("eth0", m_fake);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Interface 'eth0' has no default route (yet).\n");
  EXPECT_TRUE(m_fake.journal.empty());
}

TEST_F(HostForwarding, NatMasqueradesWithForwardingOffMeanwhile) {
  m_fake.network.default_routes.insert("eth0");
  // iptables failing (a rule not there, or no iptables at all) changes nothing.
  m_fake.programs.Script("/sbin/iptables", {1, 127});
  testing::internal::CaptureStderr();
  corvo::ConfigureNat("eth0", m_fake);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Interface 'eth0' has a default route.  Configuring it for NAT.\n");
  EXPECT_EQ(m_fake.journal, kNat);
}

struct ModeCase {
  const char* name;
  const char* stored;
  Journal after_flush;
};

class ForwardingMode : public HostForwarding, public ::testing::WithParamInterface<ModeCase> {};

TEST_P(ForwardingMode, AppliedAfterResetAndFlush) {
  m_registry.Set(".omba", "forwarding", GetParam().stored);
  m_fake.network.default_routes.insert("eth0");
  Apply(true);
  Journal expected{"forwarding 0", kFlush};
  expected.insert(expected.end(), GetParam().after_flush.begin(), GetParam().after_flush.end());
  EXPECT_EQ(m_fake.journal, expected);
  for (const auto& run : m_fake.programs.runs) EXPECT_EQ(run.flags, 259u);
}

using M = ModeCase;
INSTANTIATE_TEST_SUITE_P(
    StoredValues, ForwardingMode,
    ::testing::Values(M{"Nat", "2", kNat}, M{"NatLeadingZero", "02", kNat},
                      M{"Routing", "1", {"forwarding 1"}}, M{"Off", "0", {}}, M{"Three", "3", {}},
                      M{"Sixteen", "10", {}}, M{"TrailingText", "2x", {}}, M{"Empty", "", {}}),
    [](const ::testing::TestParamInfo<ModeCase>& case_info) { return case_info.param.name; });

// Only applying names the host, and does so first; resetting only flushes.
TEST_F(HostForwarding, ResetOnlyFlushesApplyNamesTheHostFirst) {
  m_registry.Set(".omba", "forwarding", "2");
  m_registry.Set(".omba", "hn", "lobby-screen");
  m_fake.network.default_routes.insert("eth0");
  Apply(false);
  EXPECT_EQ(m_fake.journal, (Journal{"forwarding 0", kFlush}));
  EXPECT_FALSE(m_fake.network.forwarding);
  m_fake.journal.clear();
  Apply(true);
  Journal expected{"sethostname lobby-screen", "forwarding 0", kFlush};
  expected.insert(expected.end(), kNat.begin(), kNat.end());
  EXPECT_EQ(m_fake.journal, expected);
}

TEST(StoredHostName, SetOnlyWhenTheBytesDiffer) {
  corvo::test::MemoryRegistry registry;
  corvo::test::FakePlatform fake;
  const corvo::PersistentNetworkConfig::HostReader host(registry);

  registry.Set(".omba", "hn", "player");
  fake.host_names.name = "player";
  corvo::ApplyStoredHostName(host, fake.host_names);
  EXPECT_TRUE(fake.host_names.set_calls.empty());

  for (const char* current : {"Player", "player ", "playe"}) {
    fake.host_names.name = current;
    corvo::ApplyStoredHostName(host, fake.host_names);
  }
  EXPECT_EQ(fake.host_names.set_calls, (std::vector<std::string>{"player", "player", "player"}));
}

}  // namespace
