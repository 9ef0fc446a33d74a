// Bounded random inputs for the stored-settings parsers: whatever the registry
// holds, an accessor either returns or throws a standard exception.

#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "lib/hardware/hardware_config.h"
#include "lib/platform/interface_reader.h"
#include "lib/platform/passphrase_obfuscation.h"
#include "tests/support/memory_registry.h"
#include "tests/support/passphrase_obfuscator.h"

namespace corvo {
namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kBudget = std::chrono::milliseconds(1500);
constexpr int kMaxRounds = 200000;
constexpr unsigned kSeed = 0x5eed1234;

// Texts of 17 to 32 characters abort by design (short salt field).
bool Aborts(const std::string& text) { return text.size() >= 17 && text.size() <= 32; }

class Fuzzer {
 public:
  explicit Fuzzer(unsigned seed) : m_random(seed) {}

  std::size_t Below(std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(m_random);
  }
  char Pick(const std::string& alphabet) { return alphabet[Below(alphabet.size())]; }
  std::string Text(const std::string& alphabet, std::size_t max_length) {
    std::string text(Below(max_length + 1), '\0');
    for (char& c : text) c = Pick(alphabet);
    return text;
  }
  std::string Bytes(std::size_t max_length) {
    std::string text(Below(max_length + 1), '\0');
    for (char& c : text) c = static_cast<char>(Below(256));
    return text;
  }

  std::string Mutate(std::string text) {
    for (std::size_t n = 1 + Below(3); n > 0; --n) {
      const std::size_t at = text.empty() ? 0 : Below(text.size());
      const std::size_t kind = Below(5);
      if (kind == 1) {
        text.insert(at, 1, Pick(kHex));
      } else if (kind == 3) {
        text.resize(Below(text.size() + 1));
      } else if (!text.empty()) {
        if (kind == 0) text[at] = static_cast<char>(Below(256));
        if (kind == 2) text.erase(at, 1);
        if (kind == 4) text[0] = Pick("AaCcBz-");
      }
    }
    return text;
  }

  // Values shaped like the stored ones, and some that are not.
  std::string Value() {
    switch (Below(7)) {
      case 0: return std::string();
      case 1: return Text(kHex + "-x ", 12);
      case 2: return Text("0123456789,- x", 24);
      case 3: return Text(kHex + ":", 40);
      case 4: return "[base64]" + Text("ABCDEFabcdef0123+/= \n", 24);
      case 5: return Text(kHex, 120);
      default: return Bytes(80);
    }
  }

  static inline const std::string kHex = "0123456789abcdefABCDEF";

 private:
  std::mt19937 m_random;
};

// Returning or throwing a standard exception are both fine.
#define TRY(call) try { call; } catch (const std::exception&) {}

// Runs rounds of fresh random input until the time or round budget runs out.
void Fuzz(unsigned seed, const std::function<void(Fuzzer&)>& round) {
  Fuzzer fuzz(seed);
  const auto deadline = Clock::now() + kBudget;
  int rounds = 0;
  for (; rounds < kMaxRounds && Clock::now() < deadline; ++rounds) round(fuzz);
  ::testing::Test::RecordProperty("rounds", rounds);
  EXPECT_GT(rounds, 100);
}

TEST(SettingsFuzzTest, UnobfuscatePassphrase) {
  const std::uint8_t salt[SALT_SIZE] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  const std::vector<std::string> seeds = {
      test::ObfuscatePassphrase('A', BuiltInObfuscationKey(), "a passphrase", salt),
      test::ObfuscatePassphrase('c', "customer", std::string(40, 'q'), salt),
  };
  EXPECT_EQ(UnobfuscatePassphrase(seeds[0], nullptr), "a passphrase");
  Fuzz(kSeed, [&seeds](Fuzzer& fuzz) {
    const std::string text = fuzz.Below(4) == 0
                           ? fuzz.Pick("AaCcX") + fuzz.Text(Fuzzer::kHex + "g", 140)
                           : fuzz.Mutate(seeds[fuzz.Below(seeds.size())]);
    if (Aborts(text)) return;
    std::function<std::string()> provider;
    if (fuzz.Below(3) != 0) provider = [key = fuzz.Bytes(80)] { return key; };
    TRY(UnobfuscatePassphrase(text, provider));
  });
}

TEST(SettingsFuzzTest, Accessors) {
  const HardwareConfig hardware(StaticBootEnvironment({{"VL_FORMAT", "1"}, {"VL_SERIAL", "S1"}}));
  const std::vector<std::string> keys = {
      "ip", "nm", "gw", "dhgw", "wi", "wc", "ws", "ww", "wo", "wm", "wa", "wt", "wk", "wf",
      "dh", "dhds", "dhdn", "ci", "ir", "du", "dp", "dn", "di", "nd", "d0", "d1", "d2",
      "im", "mtu", "vlans", "forwarding", "hn"};
  const std::string seed = test::ObfuscatePassphrase('C', "k", "passphrase");
  Fuzz(kSeed + 1, [&keys, &seed](Fuzzer& fuzz) {
    test::MemoryRegistry registry;
    for (const auto& key : keys) registry.Set(".omba", key, fuzz.Value());
    std::string passphrase = fuzz.Below(2) == 0 ? fuzz.Mutate(seed) : fuzz.Value();
    if (Aborts(passphrase)) passphrase.clear();
    registry.Set(".omba", "wp", passphrase);
    registry.Set("customer", "obfuscation_key", fuzz.Below(2) == 0 ? "k" : fuzz.Bytes(8));
    const PersistentNetworkConfig::InterfaceReader r("eth0", registry);
    const PersistentNetworkConfig::HostReader host(registry);
    TRY(r.IsDhcp()) TRY(r.StaticAddress()) TRY(r.Netmask()) TRY(r.Gateway())
    TRY(r.DomainName()) TRY(r.StaticNameServers()) TRY(r.ClientIdentifier())
    TRY(r.InterfaceMetric()) TRY(r.Mtu()) TRY(r.Vlans()) TRY(r.DhcpServerEnabled())
    TRY(r.DhcpServerRange()) TRY(r.DhcpServerGateway()) TRY(r.DhcpServerDomain())
    TRY(r.DhcpServerNameServers()) TRY(r.Ssid()) TRY(r.Passphrase()) TRY(r.Identity())
    TRY(r.SecurityOptions()) TRY(r.Dot1xMethod()) TRY(r.Dot1xOptions())
    TRY(r.IsAccessPoint()) TRY(r.CaCertificate()) TRY(r.ClientCertificate())
    TRY(r.PrivateKey()) TRY(r.AccessPointFrequency()) TRY(r.InboundRate())
    TRY(r.DialupUser()) TRY(r.DialupPassword()) TRY(r.DialupNumber()) TRY(r.DialupInit())
    TRY(r.DialupLinkParameter())
    TRY(host.Forwarding()) TRY(host.HostName())
  });
}

}  // namespace
}  // namespace corvo
