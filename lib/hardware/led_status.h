#pragma once
// The wired and wireless network status LEDs, driven through the LED class files.

#include <functional>
#include <string>
#include <vector>

#include "lib/platform/platform.h"

namespace corvo {

class LedNetworkStatusObserver {
 public:
  enum Kind { kWired = 0, kWireless = 1 };
  // Wireless connection level of an interface: 0 (no supplicant interface) to 4
  // (access point up); anything else is unknown and leaves the LED as it is.
  using WirelessLevelSource = std::function<int(const std::string& ifname)>;
  static constexpr int kUnknownWirelessLevel = -1;

  explicit LedNetworkStatusObserver(const std::string& ifname,
                                    const std::string& led_root = "/sys/class/leds/",
                                    NetworkState& network = GetPlatform().network);

  Kind GetKind() const { return m_kind; }
  const std::string& InterfaceName() const { return m_ifname; }
  // With a trailing slash; empty when this interface has no LED.
  const std::string& LedDirectory() const { return m_led_dir; }

  // The supplicant's link state of the interface unless replaced here.
  void SetWirelessLevelSource(WirelessLevelSource source) { m_wireless_level = std::move(source); }

  // Chooses the LED pattern from the interface's link, addresses and wireless state.
  void UpdateLed();

 private:
  Kind m_kind;
  std::string m_ifname;
  std::string m_led_dir;
  NetworkState* m_network;
  WirelessLevelSource m_wireless_level;
};

// On-time in milliseconds within a 1000 ms period: 0 steady off, 1000 steady on.
void SetLedPattern(const LedNetworkStatusObserver& observer, int on_time_ms);

// 169.254.0.0/16 with a netmask of at least 16 bits, or fe80::/10. A netmask
// of another family raises "not an IPv4 or IPv6 address".
bool IsLinkLocalAddress(const InterfaceAddress& entry);
// An entry of family 0, or an IPv4 or IPv6 address that is not link-local.
bool HasUsableAddress(const std::vector<InterfaceAddress>& entries);

}  // namespace corvo
