#include "apps/steps/status_led.h"

#include <netinet/in.h>
#include <optional>
#include <stdexcept>
#include <sys/socket.h>

namespace corvo {

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

void UpdateLed(const LedNetworkStatusObserver& observer, Platform& platform) {
  const std::string& ifname = observer.InterfaceName();
  std::optional<bool> link;
  const auto has_link = [&] {
    if (!link) link = platform.network.InterfaceHasLink(ifname);
    return *link;
  };
  // Only a configured address, not one the link made up for itself, gives steady on.
  if (!observer.LedDirectory().empty() && has_link() &&
      HasUsableAddress(platform.network.InterfaceAddresses(ifname))) {
    SetLedPattern(observer, 1000);
    return;
  }
  if (observer.GetKind() == LedNetworkStatusObserver::kWired) {
    SetLedPattern(observer, has_link() ? 500 : 0);
    return;
  }
  static const int kPatternForLevel[] = {0, 100, 100, 500, 1000};
  const int level = supplicant::GetWifiLinkState(platform.supplicant, ifname);
  if (level >= 0 && level <= 4) SetLedPattern(observer, kPatternForLevel[level]);
}

void UpdateLed(const LedNetworkStatusObserver* observer, Platform& platform) {
  if (observer != nullptr) UpdateLed(*observer, platform);
}

}  // namespace corvo
