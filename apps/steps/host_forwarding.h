#pragma once
// IPv4 forwarding and NAT masquerading on the interface holding the default route.

#include <string>

#include "apps/steps/run_context.h"

namespace corvo {

// Masquerades traffic leaving the interface when it holds a default route.
void ConfigureNat(const std::string& ifname, Platform& platform);

// Resets forwarding and NAT; at the start, first sets the stored host name, then applies the
// stored forwarding mode to every network port.
void ConfigureHostForwarding(Phase phase, Platform& platform);

// Makes the system host name (and Avahi's) equal to the stored one.
void ApplyStoredHostName(Platform& platform);

}  // namespace corvo
