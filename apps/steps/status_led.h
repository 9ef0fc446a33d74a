#pragma once
// Which pattern a status LED shows: steady on with a usable address, else the
// wired link or the wireless association level.

#include <vector>

#include "lib/hardware/led_status.h"
#include "lib/platform/platform.h"

namespace corvo {

// Chooses the LED pattern from the interface's link, addresses and wireless state.
void UpdateLed(const LedNetworkStatusObserver& observer, Platform& platform);
// The same for an optional observer.
void UpdateLed(const LedNetworkStatusObserver* observer, Platform& platform);

// 169.254.0.0/16 with a netmask of at least 16 bits, or fe80::/10. A netmask
// of another family raises "not an IPv4 or IPv6 address".
bool IsLinkLocalAddress(const InterfaceAddress& entry);
// An entry of family 0, or an IPv4 or IPv6 address that is not link-local.
bool HasUsableAddress(const std::vector<InterfaceAddress>& entries);

}  // namespace corvo
