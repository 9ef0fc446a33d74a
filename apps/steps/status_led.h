#pragma once
// The status LED of an interface, and the whole of what it shows: steady on with a usable
// address, otherwise the wired link, or how far the wireless association has got. eth0 has
// the wired LED, wlan0 the wireless one; they are driven through the kernel's LED class
// files, and a write that fails is not reported.

#include <string>
#include <vector>

#include "lib/platform/platform.h"

namespace corvo {

// How far the supplicant's interface has got.
enum WifiLinkState {
  kNoInterface = 0,
  kNotAssociated = 1,
  kConnecting = 2,
  kConnectedStation = 3,
  kConnectedAccessPoint = 4,
};

// The interface's link state. Never throws: a supplicant that cannot be reached, or that does
// not know the interface, gives kNoInterface.
WifiLinkState GetWifiLinkState(supplicant::SupplicantConnector& connector,
                               const std::string& ifname);

class StatusLed {
 public:
  // No LED for an interface other than eth0 and wlan0, nor when its directory is missing.
  StatusLed(const std::string& ifname, Platform& platform);

  // Sets the pattern the interface's link, addresses and wireless state call for.
  void Update() const;
  // On-time in milliseconds within a 1000 ms period: 0 steady off, 1000 steady on.
  void SetPattern(int on_time_ms) const;

 private:
  enum Kind { kWired, kWireless };

  Kind m_kind = kWired;
  std::string m_ifname;
  std::string m_led_dir;  // with a trailing slash; empty when there is no LED
  Platform* m_platform;
};

// 169.254.0.0/16 with a netmask of at least 16 bits, or fe80::/10. A netmask
// of another family raises "not an IPv4 or IPv6 address".
bool IsLinkLocalAddress(const InterfaceAddress& entry);
// An entry of family 0, or an IPv4 or IPv6 address that is not link-local.
bool HasUsableAddress(const std::vector<InterfaceAddress>& entries);

}  // namespace corvo
