#pragma once
// The DHCP client (dhcpcd) and server (udhcpd) of one interface.

#include <string>

#include "lib/platform/platform.h"

namespace corvo {

class LedNetworkStatusObserver;
namespace PersistentNetworkConfig {
class InterfaceReader;
}

// Starts or stops the client, then the server, of the interface, and finally
// refreshes the status LED when an observer is given.
void ConfigureDhcp(LedNetworkStatusObserver* observer,
                   const PersistentNetworkConfig::InterfaceReader& reader,
                   const std::string& ifname, bool start, Platform& platform);

// The server half of ConfigureDhcp: stops the interface's server, or (re)starts
// it when one may run there; then refreshes the status LED.
void ConfigureDhcpServer(LedNetworkStatusObserver* observer,
                         const PersistentNetworkConfig::InterfaceReader& reader,
                         const std::string& ifname, bool start, Platform& platform);

// Whether a DHCP server may run on the interface; prints why not.
bool DhcpServerAvailable(const PersistentNetworkConfig::InterfaceReader& reader,
                         const std::string& ifname, Platform& platform);

}  // namespace corvo
