#pragma once
// Putting the wireless interface, or the wired port with 802.1X, under the
// supplicant's control: wait for the interface, prepare it, hand the
// supplicant its networks and start the join. The join is not waited for.

#include <ctime>
#include <string>

#include "lib/platform/platform.h"

namespace corvo {

class LedNetworkStatusObserver;
namespace PersistentNetworkConfig {
class InterfaceReader;
}

// Raises "InitialiseWifi(%s): interface not present", "InitialiseWifi(%s):
// InitWifiOrDot1x failed: %d" or "InitialiseWifi(%s): ConfigureWifiOrDot1x failed: %d".
void InitialiseWifi(LedNetworkStatusObserver* observer,
                    const PersistentNetworkConfig::InterfaceReader& reader,
                    const std::string& ifname, Platform& platform);

// Per-interface preparations: MAC address and debugging. 0 is success.
int InitWifiOrDot1x(const std::string& ifname, Platform& platform);

// Builds the interface's supplicant networks and starts the join. 0 is success;
// a join that cannot be started is reported and gives 1.
int ConfigureWifiOrDot1x(LedNetworkStatusObserver* observer,
                         const PersistentNetworkConfig::InterfaceReader& reader,
                         const std::string& ifname, Platform& platform);

// Sets the WiFi interface's MAC address from the device variable when the
// device needs it; a bad address is only reported.
void SetWifiMacAddress(const std::string& ifname, Platform& platform);

bool IsBootedFromNfs(Platform& platform);

// A client certificate cannot pass its validity check on a clock that was never
// set: such a clock is set to the certificate's activation time.
void SetClockFromCertificate(std::time_t activation, Platform& platform);

}  // namespace corvo
