#pragma once
// Addressing of one interface and its VLAN sub-interfaces.

#include "apps/steps/run_context.h"

namespace corvo {

// Removes every VLAN link on the interface, re-creates the stored ones and runs
// the DHCP step for the interface and each VLAN; ends with the host forwarding step.
void ConfigureInterface(const RunContext& run, Phase phase);

}  // namespace corvo
