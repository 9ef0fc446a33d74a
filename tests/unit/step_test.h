#pragma once
// What the tests of the steps share: a model of the world, recorded, to run them in.

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "apps/steps/run_context.h"
#include "apps/steps/wifi_profiles.h"
#include "lib/platform/recording_platform.h"
#include "tests/support/world_model.h"

namespace corvo::test {

using Lines = std::vector<std::string>;
using Settings = std::map<std::string, std::string>;

inline Lines Join(Lines head, const Lines& tail) {
  head.insert(head.end(), tail.begin(), tail.end());
  return head;
}

// The steps a run took, told by what they changed: a DHCP client's start or stop with its
// interface, each link change as it is; one step repeated in a row counts once.
inline Lines Steps(const Lines& effects) {
  static const std::pair<std::string, std::string> kSteps[] = {
      {"run /sbin/dhcpcd ", "dhcp"},           {"run tc qdisc add", "shaper add"},
      {"run tc qdisc del", "shaper remove"},   {"run /sbin/iptables -t nat -F", "forwarding"},
      {"run /sbin/iptables -t nat -A", "nat"}, {"supplicant", "supplicant"},
      {"link ", ""}};
  Lines steps;
  for (const std::string& effect : effects) {
    for (const auto& [prefix, step] : kSteps) {
      if (effect.rfind(prefix, 0) != 0) continue;
      std::string word = step.empty() ? effect : step;
      if (step == "dhcp") {
        word = (effect.find(" -x ") != effect.npos ? "dhcp stop " : "dhcp start ") +
               effect.substr(effect.rfind(' ') + 1);
      }
      if (steps.empty() || steps.back() != word) steps.push_back(word);
    }
  }
  return steps;
}

// gtest names for table cases with a `name` member.
template <typename Case>
std::string NameOf(const ::testing::TestParamInfo<Case>& info) {
  return info.param.name;
}

class StepTest : public ::testing::Test {
 protected:
  // Settings of one registry section (".omba" is eth0's and the host's).
  void Store(const Settings& settings, const std::string& section = ".omba") {
    for (const auto& [key, value] : settings) world.Set(section, key, value);
  }
  // A run of the steps for the interface.
  RunContext Context(const std::string& ifname) { return RunContext(platform, ifname); }
  // The argument vectors of every run of the program, in order.
  std::vector<std::vector<std::string>> Runs(const std::string& program) const {
    std::vector<std::vector<std::string>> found;
    for (const ProgramRun& run : world.runs) {
      if (run.program == program) found.push_back(run.args);
    }
    return found;
  }

  WorldModel world;
  RecordingPlatform platform{world};
};

// The wireless steps: a recorded supplicant that manages wlan0 and eth0.
using supplicant::PropertySet;
using supplicant::PropertyValue;

inline const std::string kDefaults = "wlan0: No security configuration; using defaults.\n";
inline const PropertySet kOpen{
    {"scan_ssid", 1}, {"ssid", "Home"}, {"key_mgmt", "NONE"}, {"disabled", 0}, {"priority", 1}};

class WifiTest : public StepTest {
 protected:
  WifiTest() {
    world.supplicant_interfaces["wlan0"];
    world.supplicant_interfaces["eth0"];
  }
  // Builds the networks of the settings; returns what was logged meanwhile.
  std::string Build(const WifiSettings& settings, bool time_is_set = true,
                    const std::string& ifname = "wlan0") {
    const std::size_t before = platform.Log().size();
    auto interface = platform.Get().supplicant.Connect()->GetInterface(ifname);
    result = ConfigureWifiNetworks(*interface, ifname, settings, ifname == "eth0", time_is_set,
                                   platform.Get().log);
    return platform.Log().substr(before);
  }
  const std::vector<PropertySet>& Networks(const std::string& ifname = "wlan0") {
    return world.supplicant_interfaces[ifname].networks;
  }
  // The supplicant calls, without the network properties.
  Lines Calls() const {
    Lines calls;
    for (const std::string& line : platform.Effects()) {
      if (line.rfind("supplicant", 0) == 0) calls.push_back(line.substr(0, line.find(" {")));
    }
    return calls;
  }

  WifiNetworksResult result;
};

}  // namespace corvo::test
