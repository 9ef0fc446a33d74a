#pragma once
// Putting the wireless interface, or the wired port with 802.1X, under the
// supplicant's control: wait for the interface, prepare it, hand the
// supplicant its networks and start the join. The join is not waited for.

#include <ctime>
#include <string>

#include "apps/steps/run_context.h"

namespace corvo {

// Raises "InitialiseWifi(%s): interface not present" or "InitialiseWifi(%s):
// ConfigureWifiOrDot1x failed: 1".
void InitialiseWifi(const RunContext& run);

// Per-interface preparations: MAC address and debugging.
void InitWifiOrDot1x(const RunContext& run);

// Builds the interface's supplicant networks and starts the join. False when a join could not
// be started (it has been reported).
bool ConfigureWifiOrDot1x(const RunContext& run);

// Sets the WiFi interface's MAC address from the device variable when the
// device needs it; a bad address is only reported.
void SetWifiMacAddress(const std::string& ifname, Platform& platform);

bool IsBootedFromNfs(Platform& platform);

// A client certificate cannot pass its validity check on a clock that was never
// set: such a clock is set to the certificate's activation time.
void SetClockFromCertificate(std::time_t activation, Platform& platform);

}  // namespace corvo
