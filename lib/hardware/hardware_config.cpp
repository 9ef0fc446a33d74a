#include "lib/hardware/hardware_config.h"

#include <cerrno>
#include <cstdlib>
#include <sys/stat.h>

#include "lib/platform/network_ports.h"

namespace corvo {

std::optional<std::uint64_t> ParseAutoBase(const std::string& text) {
  if (text.empty() || text[0] == '-' || text[0] == '+') return std::nullopt;
  errno = 0;
  char* end = nullptr;
  const unsigned long long value = std::strtoull(text.c_str(), &end, 0);
  if (errno != 0 || end == text.c_str() || *end != '\0') return std::nullopt;
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
  if (assume_present || HasEthernet()) return std::string("eth0");
  return std::nullopt;
}

std::optional<std::string> HardwareConfig::GetWifiInterface() const {
  if (NetworkPortExists("wlan0")) return std::string("wlan0");
  return std::nullopt;
}

std::optional<std::string> HardwareConfig::GetModemInterface() const {
  struct stat st;
  if (stat("/dev/modem", &st) == 0) return std::string("ppp0");
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

}  // namespace corvo
