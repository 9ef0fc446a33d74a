#pragma once
// What the steps ask about the device's hardware.

#include <optional>
#include <string>

namespace corvo {

class HardwareFacts {
 public:
  virtual ~HardwareFacts() = default;
  // The device's WiFi port, when it has one, is this interface.
  virtual bool IsWifiInterface(const std::string& name) = 0;
  // The device's Ethernet port, when it has one, is this interface.
  virtual bool IsEthernetInterface(const std::string& name) = 0;
  // The Ethernet port; nothing on hardware without one.
  virtual std::optional<std::string> EthernetInterface() = 0;
  // The driver the supplicant uses for the WiFi port.
  virtual std::string WifiDriver() = 0;
  virtual std::string OemId() = 0;
  virtual std::string OemModel() = 0;
  // Empty when the device's records hold none.
  virtual std::string SerialNumber() = 0;
  // The WiFi port's address to set, when the device has one to set (WLAN0_HWADDR).
  virtual std::optional<std::string> WifiMacAddress() = 0;

  // The driver the supplicant is told to use for an interface it takes on: "wired" for the
  // Ethernet port, the WiFi driver for any other.
  std::string SupplicantDriver(const std::string& ifname) {
    const std::optional<std::string> wired = EthernetInterface();
    return wired && *wired == ifname ? "wired" : WifiDriver();
  }
};

}  // namespace corvo
