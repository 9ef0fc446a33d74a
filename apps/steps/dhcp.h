#pragma once
// The DHCP client (dhcpcd) and server (udhcpd) of one interface.

#include "apps/steps/run_context.h"

namespace corvo {

// Starts or stops the client, then the server, of the run's interface, and finally refreshes
// the status LED.
void ConfigureDhcp(const RunContext& run, Phase phase);

// The server half of ConfigureDhcp: stops the interface's server, or (re)starts it when one
// may run there; then refreshes the status LED.
void ConfigureDhcpServer(const RunContext& run, Phase phase);

// Whether a DHCP server may run on the interface; prints why not.
bool DhcpServerAvailable(const RunContext& run);

}  // namespace corvo
