#pragma once
// Addressing of one interface and its VLAN sub-interfaces.

#include "lib/platform/platform.h"

namespace corvo {

class LedNetworkStatusObserver;
namespace PersistentNetworkConfig {
class InterfaceReader;
}

// Removes every VLAN link on the interface, re-creates the stored ones and runs
// the DHCP step for the interface and each VLAN; ends with the host forwarding step.
void ConfigureInterface(LedNetworkStatusObserver* observer,
                        const PersistentNetworkConfig::InterfaceReader& reader, const char* ifname,
                        bool start, Platform& platform);

}  // namespace corvo
