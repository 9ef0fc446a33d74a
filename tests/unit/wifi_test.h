#pragma once
// The wireless steps' tests: a recorded supplicant that manages wlan0 and eth0.

#include "apps/steps/wifi_profiles.h"
#include "tests/unit/step_test.h"

namespace corvo::test {

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
