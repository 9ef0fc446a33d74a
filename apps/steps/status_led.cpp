#include "apps/steps/status_led.h"

#include <netinet/in.h>
#include <optional>
#include <stdexcept>
#include <sys/socket.h>

#include "lib/platform/base/interface_names.h"
#include "lib/platform/supplicant/names.h"

namespace corvo {

namespace {

constexpr char kLedRoot[] = "/sys/class/leds/";

// The wireless LED for each link state: off, short flashes while not associated or
// connecting, blinking as a station, steady on as the access point.
constexpr int kPatternForState[] = {0, 100, 100, 500, 1000};

}  // namespace

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

WifiLinkState GetWifiLinkState(supplicant::SupplicantConnector& connector,
                               const std::string& ifname) {
  std::shared_ptr<supplicant::Interface> interface;
  try {
    interface = connector.Connect()->GetInterface(ifname);
  } catch (const std::exception&) {
    return kNoInterface;
  }
  const std::string state = interface->GetState();
  if (state == "disconnected" || state == "inactive" || state == "unknown" || state == "scanning") {
    return kNotAssociated;
  }
  if (state != "completed") return kConnecting;
  try {
    const std::shared_ptr<supplicant::Network> network = interface->GetCurrentNetwork();
    if (network &&
        supplicant::LookupPropertyString(network->GetProperties(), supplicant::key::kMode) == "2") {
      return kConnectedAccessPoint;
    }
  } catch (const std::exception&) {
    // A network that cannot be read still leaves the station connected.
  }
  return kConnectedStation;
}

StatusLed::StatusLed(const std::string& ifname, Platform& platform)
    : m_ifname(ifname), m_platform(&platform) {
  if (ifname == kEthernetPort) {
    m_led_dir = std::string(kLedRoot) + "ethernet/";
  } else if (ifname == kWifiPort) {
    m_kind = kWireless;
    m_led_dir = std::string(kLedRoot) + "wifi/";
  }
  if (!m_led_dir.empty() && !platform.files.Exists(m_led_dir)) m_led_dir.clear();
}

void StatusLed::Update() const {
  NetworkState& network = m_platform->network;
  std::optional<bool> link;
  const auto has_link = [&] {
    if (!link) link = network.InterfaceHasLink(m_ifname);
    return *link;
  };
  // Only a configured address, not one the link made up for itself, gives steady on.
  if (!m_led_dir.empty() && has_link() && HasUsableAddress(network.InterfaceAddresses(m_ifname))) {
    SetPattern(1000);
    return;
  }
  if (m_kind == kWired) {
    SetPattern(has_link() ? 500 : 0);
    return;
  }
  SetPattern(kPatternForState[GetWifiLinkState(m_platform->supplicant, m_ifname)]);
}

void StatusLed::SetPattern(int on_time_ms) const {
  if (m_led_dir.empty()) return;
  Files& files = m_platform->files;
  const bool timer_active = files.Exists(m_led_dir + "delay_on");
  if (on_time_ms <= 0 || on_time_ms >= 1000) {
    if (timer_active) files.Write(m_led_dir + "trigger", "none");
    files.Write(m_led_dir + "brightness", on_time_ms >= 1000 ? "255" : "0");
    return;
  }
  // Selecting the timer trigger makes the kernel create the delay files.
  if (!timer_active) files.Write(m_led_dir + "trigger", "timer");
  files.Write(m_led_dir + "brightness", "255");
  // Off-time first, deliberately.
  files.Write(m_led_dir + "delay_off", std::to_string(1000 - on_time_ms));
  files.Write(m_led_dir + "delay_on", std::to_string(on_time_ms));
}

}  // namespace corvo
