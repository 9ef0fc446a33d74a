#include "lib/hardware/hardware_config.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <sys/stat.h>

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

HardwareConfig::HardwareConfig() {
  const UbootBootEnvironment environment;
  Load(environment);
}

HardwareConfig::HardwareConfig(const BootEnvironment& environment) { Load(environment); }

void HardwareConfig::Load(const BootEnvironment& environment) {
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

std::optional<std::string> HardwareConfig::GetWifiInterface() const {
  if (NetworkPortExists(kWifiPort)) return std::string(kWifiPort);
  return std::nullopt;
}

std::optional<std::string> HardwareConfig::GetModemInterface() const {
  struct stat st;
  if (stat(kModemDevice, &st) == 0) return std::string(kDialupPort);
  return std::nullopt;
}

bool HardwareConfig::IsEthernetInterface(const std::string& name) const {
  const auto ethernet = GetEthernetInterface();
  return ethernet && *ethernet == name;
}

bool HardwareConfig::IsWifiInterface(const std::string& name) const {
  const auto wifi = GetWifiInterface();
  return wifi && *wifi == name;
}

namespace {

HardwareConfig& Installed() { return *HardwareConfig::GetInstance(); }

}  // namespace

bool InstalledHardwareFacts::IsWifiInterface(const std::string& name) {
  return Installed().IsWifiInterface(name);
}

bool InstalledHardwareFacts::IsEthernetInterface(const std::string& name) {
  return Installed().IsEthernetInterface(name);
}

std::optional<std::string> InstalledHardwareFacts::EthernetInterface() {
  return Installed().GetEthernetInterface();
}

std::string InstalledHardwareFacts::WifiDriver() { return Installed().WifiDriver(); }

std::string InstalledHardwareFacts::OemId() { return Installed().OemId(); }

std::string InstalledHardwareFacts::OemModel() { return Installed().OemModel(); }

std::string InstalledHardwareFacts::SerialNumber() { return Installed().SerialNumber(); }

std::optional<std::string> InstalledHardwareFacts::WifiMacAddress() {
  const HardwareConfig& hardware = Installed();
  if (!hardware.NeedsWifiMacAddress()) return std::nullopt;
  return hardware.WifiMacAddressVariable();
}

}  // namespace corvo
