#pragma once
// What network hardware this device has, from its hardware variables.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "lib/hardware/boot_environment.h"
#include "lib/hardware/hardware_facts.h"
#include "lib/platform/base/singleton.h"

namespace corvo {

class HardwareConfig : public Singleton<HardwareConfig> {
 public:
  static constexpr std::uint64_t kFeatureEthernet = 0x10;

  // Reads the boot loader's environment.
  HardwareConfig();
  explicit HardwareConfig(const BootEnvironment& environment);

  std::uint64_t Features() const { return m_features; }
  bool HasEthernet() const { return (m_features & kFeatureEthernet) != 0; }
  const std::string& OemId() const { return m_oem_id; }
  const std::string& OemModel() const { return m_oem_model; }
  const std::string& SerialNumber() const { return m_serial; }

  std::optional<std::string> GetEthernetInterface(bool assume_present = false) const;
  std::optional<std::string> GetWifiInterface() const;
  std::optional<std::string> GetModemInterface() const;
  bool IsEthernetInterface(const std::string& name) const;
  bool IsWifiInterface(const std::string& name) const;

  // Driver named when the supplicant is asked to manage the WiFi interface.
  const char* WifiDriver() const { return "nl80211"; }
  // The WiFi MAC address is set from WLAN0_HWADDR when the variable exists.
  bool NeedsWifiMacAddress() const { return m_wlan0_hwaddr.has_value(); }
  const std::optional<std::string>& WifiMacAddressVariable() const { return m_wlan0_hwaddr; }

 private:
  void Load(const BootEnvironment& environment);

  std::uint64_t m_features = ~std::uint64_t{0};
  std::string m_oem_id;
  std::string m_oem_model;
  std::string m_serial;
  std::optional<std::string> m_wlan0_hwaddr;
};

// The facts of the HardwareConfig that exists when they are asked for (asking
// with none is an assertion failure).
class InstalledHardwareFacts : public HardwareFacts {
 public:
  bool IsWifiInterface(const std::string& name) override;
  bool IsEthernetInterface(const std::string& name) override;
  std::optional<std::string> EthernetInterface() override;
  std::string WifiDriver() override;
  std::string OemId() override;
  std::string OemModel() override;
  std::string SerialNumber() override;
  std::optional<std::string> WifiMacAddress() override;
};

// The leading number of the text, with automatic base detection ("0x"
// hexadecimal, leading "0" octal); blanks before it and anything after it are
// ignored. Nothing when the text does not start with a number.
std::optional<std::uint64_t> ParseAutoBase(const std::string& text);

}  // namespace corvo
