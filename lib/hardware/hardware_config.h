#pragma once
// What network hardware this device has, from its hardware variables.

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "lib/hardware/boot_environment.h"
#include "lib/hardware/hardware_facts.h"

namespace corvo {

class HardwareConfig {
 public:
  static constexpr std::uint64_t kFeatureEthernet = 0x10;

  explicit HardwareConfig(const BootEnvironment& environment);

  std::uint64_t Features() const { return m_features; }
  bool HasEthernet() const { return (m_features & kFeatureEthernet) != 0; }
  const std::string& OemId() const { return m_oem_id; }
  const std::string& OemModel() const { return m_oem_model; }
  const std::string& SerialNumber() const { return m_serial; }

  std::optional<std::string> GetEthernetInterface(bool assume_present = false) const;
  bool IsEthernetInterface(const std::string& name) const;
  // The WiFi port is told by the network ports, not by the variables.
  static std::optional<std::string> GetWifiInterface();
  static bool IsWifiInterface(const std::string& name);

  // Driver named when the supplicant is asked to manage the WiFi interface.
  static const char* WifiDriver() { return "nl80211"; }
  // The WiFi MAC address is set from WLAN0_HWADDR when the variable exists.
  bool NeedsWifiMacAddress() const { return m_wlan0_hwaddr.has_value(); }
  const std::optional<std::string>& WifiMacAddressVariable() const { return m_wlan0_hwaddr; }

 private:
  std::uint64_t m_features = ~std::uint64_t{0};
  std::string m_oem_id;
  std::string m_oem_model;
  std::string m_serial;
  std::optional<std::string> m_wlan0_hwaddr;
};

// The device's own hardware facts. The boot loader's environment is read once, when a fact
// first needs it: a run that asks for none (a link check of most ports) never reads it.
class DeviceHardwareFacts : public HardwareFacts {
 public:
  explicit DeviceHardwareFacts(const char* config_path = UbootBootEnvironment::kDefaultConfig)
      : m_config_path(config_path) {}

  bool IsWifiInterface(const std::string& name) override;
  bool IsEthernetInterface(const std::string& name) override;
  std::optional<std::string> EthernetInterface() override;
  std::string WifiDriver() override;
  std::string OemId() override;
  std::string OemModel() override;
  std::string SerialNumber() override;
  std::optional<std::string> WifiMacAddress() override;

 private:
  const HardwareConfig& Config();

  const char* m_config_path;
  std::once_flag m_read;
  std::optional<HardwareConfig> m_config;
};

// The leading number of the text, with automatic base detection ("0x"
// hexadecimal, leading "0" octal); blanks before it and anything after it are
// ignored. Nothing when the text does not start with a number.
std::optional<std::uint64_t> ParseAutoBase(const std::string& text);

}  // namespace corvo
