#pragma once
// IPv4 forwarding and NAT masquerading on the interface holding the default route.

#include <string>

#include "lib/platform/platform.h"

namespace corvo {

namespace PersistentNetworkConfig {
class HostReader;
}

// Masquerades traffic leaving the interface when it holds a default route.
void ConfigureNat(const std::string& ifname, Platform& platform = GetPlatform());

// Resets forwarding and NAT; when applying, first sets the stored host name, then
// applies the stored forwarding mode to every network port.
void ConfigureHostForwarding(bool apply);
void ConfigureHostForwarding(bool apply, const PersistentNetworkConfig::HostReader& host,
                             Platform& platform);

}  // namespace corvo
