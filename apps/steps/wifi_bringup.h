#pragma once
// Putting the wireless interface, or the wired port with 802.1X, under the
// supplicant's control: wait for the interface, prepare it, hand the
// supplicant its networks and start the join. The join is not waited for.

#include <ctime>
#include <functional>
#include <memory>
#include <string>

#include "lib/platform/mac_address.h"
#include "lib/platform/platform.h"
#include "lib/platform/registry.h"
#include "lib/platform/supplicant.h"

namespace corvo {

class LedNetworkStatusObserver;
namespace PersistentNetworkConfig {
class InterfaceReader;
}

// The outside world of the bring-up.
struct WifiBringupContext {
  Platform& platform;
  SystemClock& system_clock;
  Registry& registry;
  std::function<std::shared_ptr<supplicant::Supplicant>()> make_supplicant;
  std::function<bool(const std::string&)> is_wifi_interface;   // the device's WiFi interface
  std::function<bool(const std::string&)> is_wired_interface;  // its first wired interface
  std::function<std::optional<std::string>()> wifi_mac_address;  // WLAN0_HWADDR when needed
  std::function<void(const std::string&, const MacAddress&)> set_mac_address;
};

// The real system; HardwareConfig must exist.
WifiBringupContext DefaultWifiBringupContext();

// Raises "InitialiseWifi(%s): interface not present", "InitialiseWifi(%s):
// InitWifiOrDot1x failed: %d" or "InitialiseWifi(%s): ConfigureWifiOrDot1x failed: %d".
void InitialiseWifi(LedNetworkStatusObserver* observer,
                    const PersistentNetworkConfig::InterfaceReader& reader,
                    const std::string& ifname, const WifiBringupContext& context);

// Per-interface preparations: MAC address and debugging. 0 is success.
int InitWifiOrDot1x(const std::string& ifname, const WifiBringupContext& context);

// Builds the interface's supplicant networks and starts the join. 0 is success;
// a join that cannot be started is reported and gives 1.
int ConfigureWifiOrDot1x(LedNetworkStatusObserver* observer,
                         const PersistentNetworkConfig::InterfaceReader& reader,
                         const std::string& ifname, const WifiBringupContext& context);

// Sets the WiFi interface's MAC address from the device variable when the
// device needs it; a bad address is only reported.
void SetWifiMacAddress(const std::string& ifname, const WifiBringupContext& context);

bool IsBootedFromNfs(const WifiBringupContext& context);

// A client certificate cannot pass its validity check on a clock that was never
// set: such a clock is set to the certificate's activation time.
void SetClockFromCertificate(std::time_t activation, SystemClock& clock);

}  // namespace corvo
