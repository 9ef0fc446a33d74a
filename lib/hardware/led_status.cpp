#include "lib/hardware/led_status.h"

#include "lib/platform/base/interface_names.h"

namespace corvo {

LedNetworkStatusObserver::LedNetworkStatusObserver(const std::string& ifname, Files& files,
                                                   const std::string& led_root)
    : m_kind(kWired), m_ifname(ifname), m_files(&files) {
  if (ifname == kEthernetPort) {
    m_led_dir = led_root + "ethernet/";
  } else if (ifname == kWifiPort) {
    m_kind = kWireless;
    m_led_dir = led_root + "wifi/";
  }
  if (!m_led_dir.empty() && !files.Exists(m_led_dir)) m_led_dir.clear();
}

// LED writes are best effort: a failed write is not reported.
void SetLedPattern(const LedNetworkStatusObserver& observer, int on_time_ms) {
  const std::string& dir = observer.LedDirectory();
  if (dir.empty()) return;
  Files& files = observer.LedFiles();
  const bool timer_active = files.Exists(dir + "delay_on");
  if (on_time_ms <= 0 || on_time_ms >= 1000) {
    if (timer_active) files.Write(dir + "trigger", "none");
    files.Write(dir + "brightness", on_time_ms >= 1000 ? "255" : "0");
    return;
  }
  // Selecting the timer trigger makes the kernel create the delay files.
  if (!timer_active) files.Write(dir + "trigger", "timer");
  files.Write(dir + "brightness", "255");
  // Off-time first, deliberately.
  files.Write(dir + "delay_off", std::to_string(1000 - on_time_ms));
  files.Write(dir + "delay_on", std::to_string(on_time_ms));
}

}  // namespace corvo
