#include "lib/hardware/led_status.h"

#include <fstream>
#include <netinet/in.h>
#include <optional>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <utility>

#include "lib/platform/supplicant.h"

namespace corvo {

namespace {

bool Exists(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

// LED writes are best effort: a failed write is not reported.
void WriteLedFile(const std::string& dir, const char* file, const std::string& text) {
  std::ofstream out(dir + file, std::ios::out | std::ios::trunc);
  out << text;
}

}  // namespace

LedNetworkStatusObserver::LedNetworkStatusObserver(const std::string& ifname,
                                                   const std::string& led_root,
                                                   NetworkState& network)
    : m_kind(kWired),
      m_ifname(ifname),
      m_network(&network),
      m_wireless_level([](const std::string& name) {
        return static_cast<int>(supplicant::GetWifiLinkState(name));
      }) {
  if (ifname == "eth0") {
    m_led_dir = led_root + "ethernet/";
  } else if (ifname == "wlan0") {
    m_kind = kWireless;
    m_led_dir = led_root + "wifi/";
  }
  if (!m_led_dir.empty() && !Exists(m_led_dir)) m_led_dir.clear();
}

void SetLedPattern(const LedNetworkStatusObserver& observer, int on_time_ms) {
  const std::string& dir = observer.LedDirectory();
  if (dir.empty()) return;
  const bool timer_active = Exists(dir + "delay_on");
  if (on_time_ms <= 0 || on_time_ms >= 1000) {
    if (timer_active) WriteLedFile(dir, "trigger", "none");
    WriteLedFile(dir, "brightness", on_time_ms >= 1000 ? "255" : "0");
    return;
  }
  // Selecting the timer trigger makes the kernel create the delay files.
  if (!timer_active) WriteLedFile(dir, "trigger", "timer");
  WriteLedFile(dir, "brightness", "255");
  // Off-time first, deliberately.
  WriteLedFile(dir, "delay_off", std::to_string(1000 - on_time_ms));
  WriteLedFile(dir, "delay_on", std::to_string(on_time_ms));
}

bool IsLinkLocalAddress(const InterfaceAddress& entry) {
  if (entry.netmask_family != AF_INET && entry.netmask_family != AF_INET6) {
    throw std::runtime_error("not an IPv4 or IPv6 address");
  }
  const std::vector<std::uint8_t>& a = entry.address;
  const std::vector<std::uint8_t>& mask = entry.netmask;
  if (entry.family == AF_INET) {
    return a.size() >= 2 && a[0] == 169 && a[1] == 254 && mask.size() >= 2 && mask[0] == 0xFF &&
           mask[1] == 0xFF;
  }
  if (entry.family == AF_INET6) {
    return a.size() >= 2 && a[0] == 0xFE && (a[1] & 0xC0) == 0x80;
  }
  return false;
}

bool HasUsableAddress(const std::vector<InterfaceAddress>& entries) {
  for (const InterfaceAddress& entry : entries) {
    if (entry.family == AF_UNSPEC) return true;
    if ((entry.family == AF_INET || entry.family == AF_INET6) && !IsLinkLocalAddress(entry)) {
      return true;
    }
  }
  return false;
}

void LedNetworkStatusObserver::UpdateLed() {
  std::optional<bool> link;
  const auto has_link = [&] {
    if (!link) link = m_network->InterfaceHasLink(m_ifname);
    return *link;
  };
  // Only a configured address, not one the link made up for itself, gives steady on.
  if (!m_led_dir.empty() && has_link() &&
      HasUsableAddress(m_network->InterfaceAddresses(m_ifname))) {
    SetLedPattern(*this, 1000);
    return;
  }
  if (m_kind == kWired) {
    SetLedPattern(*this, has_link() ? 500 : 0);
    return;
  }
  static const int kPatternForLevel[] = {0, 100, 100, 500, 1000};
  const int level = m_wireless_level ? m_wireless_level(m_ifname) : kUnknownWirelessLevel;
  if (level >= 0 && level <= 4) SetLedPattern(*this, kPatternForLevel[level]);
}

}  // namespace corvo
