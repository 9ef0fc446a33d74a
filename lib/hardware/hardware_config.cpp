#include "lib/hardware/hardware_config.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>

#include "lib/platform/base/interface_names.h"
#include "lib/platform/system/network_ports.h"

namespace corvo {

std::optional<std::uint64_t> ParseAutoBase(const std::string& text) {
  // The leading number counts: a blank or a line end left after it by
  // whoever wrote the variable changes nothing.
  const char* start = text.c_str();
  while (std::isspace(static_cast<unsigned char>(*start))) ++start;
  if (*start == '-' || *start == '+') return std::nullopt;
  errno = 0;
  char* end = nullptr;
  const unsigned long long value = std::strtoull(start, &end, 0);
  if (errno != 0 || end == start) return std::nullopt;
  return static_cast<std::uint64_t>(value);
}

HardwareConfig::HardwareConfig(const BootEnvironment& environment) {
  if (const auto flags = environment.Get("VL_HWFLAGS")) {
    // A value that does not parse leaves no feature bits, rather than claiming all.
    m_features = ParseAutoBase(*flags).value_or(0);
  }
  m_oem_id = environment.Get("VL_OEM_ID").value_or("");
  m_oem_model = environment.Get("VL_OEM_MODEL").value_or("");
  if (environment.Get("VL_FORMAT").value_or("") == "1") {
    m_serial = environment.Get("VL_SERIAL").value_or("");
  }
  m_wlan0_hwaddr = environment.Get("WLAN0_HWADDR");
}

std::optional<std::string> HardwareConfig::GetEthernetInterface(bool assume_present) const {
  if (assume_present || HasEthernet()) return std::string(kEthernetPort);
  return std::nullopt;
}

std::optional<std::string> HardwareConfig::GetWifiInterface() {
  if (NetworkPortExists(kWifiPort)) return std::string(kWifiPort);
  return std::nullopt;
}

bool HardwareConfig::IsEthernetInterface(const std::string& name) const {
  const auto ethernet = GetEthernetInterface();
  return ethernet && *ethernet == name;
}

bool HardwareConfig::IsWifiInterface(const std::string& name) {
  const auto wifi = GetWifiInterface();
  return wifi && *wifi == name;
}

const HardwareConfig& DeviceHardwareFacts::Config() {
  std::call_once(m_read, [this] { m_config.emplace(UbootBootEnvironment(m_config_path)); });
  return *m_config;
}

bool DeviceHardwareFacts::IsWifiInterface(const std::string& name) {
  return HardwareConfig::IsWifiInterface(name);
}

bool DeviceHardwareFacts::IsEthernetInterface(const std::string& name) {
  return Config().IsEthernetInterface(name);
}

std::optional<std::string> DeviceHardwareFacts::EthernetInterface() {
  return Config().GetEthernetInterface();
}

std::string DeviceHardwareFacts::WifiDriver() { return HardwareConfig::WifiDriver(); }

std::string DeviceHardwareFacts::OemId() { return Config().OemId(); }

std::string DeviceHardwareFacts::OemModel() { return Config().OemModel(); }

std::string DeviceHardwareFacts::SerialNumber() { return Config().SerialNumber(); }

std::optional<std::string> DeviceHardwareFacts::WifiMacAddress() {
  const HardwareConfig& hardware = Config();
  if (!hardware.NeedsWifiMacAddress()) return std::nullopt;
  return hardware.WifiMacAddressVariable();
}

}  // namespace corvo
