#pragma once
// What the steps of one run share, made once by the front end: the platform, the interface,
// its stored settings and its status LED.

#include <string>

#include "apps/steps/status_led.h"
#include "lib/platform/platform.h"
#include "lib/platform/settings/interface_reader.h"

namespace corvo {

// Whether a step takes its feature down or brings it up.
enum class Phase { kStop, kStart };

struct RunContext {
  RunContext(Platform& platform, const std::string& ifname)
      : platform(platform),
        ifname(ifname),
        reader(ifname, platform.settings, platform.hardware.SerialNumber()),
        led(ifname, platform) {}

  // The same run for a VLAN of the interface: the VLAN's own settings, the interface's LED.
  RunContext ForInterface(const std::string& name) const {
    RunContext vlan = *this;
    vlan.ifname = name;
    vlan.reader = reader.ForInterface(name);
    return vlan;
  }

  Platform& platform;
  std::string ifname;
  PersistentNetworkConfig::InterfaceReader reader;
  StatusLed led;
};

}  // namespace corvo
