#pragma once
// IPv4 forwarding and NAT masquerading on the interface holding the default route.

#include <string>

#include "lib/platform/platform.h"

namespace corvo {

// Masquerades traffic leaving the interface when it holds a default route.
void ConfigureNat(const std::string& ifname, Platform& platform);

// Resets forwarding and NAT; when applying, first sets the stored host name,
// then applies the stored forwarding mode to every network port.
void ConfigureHostForwarding(bool apply, Platform& platform);

// Makes the system host name (and Avahi's) equal to the stored one.
void ApplyStoredHostName(Platform& platform);

}  // namespace corvo
