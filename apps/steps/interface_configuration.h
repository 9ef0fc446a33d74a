#pragma once
// Addressing of one interface and its VLAN sub-interfaces.

#include "lib/platform/platform.h"

namespace corvo {

class LedNetworkStatusObserver;
class VlanLinks;
namespace PersistentNetworkConfig {
class InterfaceReader;
}

// Removes every VLAN link on the interface, re-creates the stored ones and runs
// the DHCP step for the interface and each VLAN; ends with the host forwarding step.
void ConfigureInterface(LedNetworkStatusObserver* observer,
                        const PersistentNetworkConfig::InterfaceReader& reader,
                        const char* ifname, bool start);
// The same over given links and platform; the readers of the VLANs and of the
// host settings read the registry of reader.
void ConfigureInterface(LedNetworkStatusObserver* observer,
                        const PersistentNetworkConfig::InterfaceReader& reader,
                        const char* ifname, bool start, VlanLinks& links, Platform& platform);

}  // namespace corvo
