#pragma once
// The wired and wireless network status LEDs, driven through the LED class
// files. Which pattern an LED shows is decided by the steps.

#include <string>

#include "lib/platform/system/os.h"

namespace corvo {

class LedNetworkStatusObserver {
 public:
  enum Kind { kWired = 0, kWireless = 1 };

  LedNetworkStatusObserver(const std::string& ifname, Files& files,
                           const std::string& led_root = "/sys/class/leds/");

  Kind GetKind() const { return m_kind; }
  const std::string& InterfaceName() const { return m_ifname; }
  // With a trailing slash; empty when this interface has no LED.
  const std::string& LedDirectory() const { return m_led_dir; }
  Files& LedFiles() const { return *m_files; }

 private:
  Kind m_kind;
  std::string m_ifname;
  std::string m_led_dir;
  Files* m_files;
};

// On-time in milliseconds within a 1000 ms period: 0 steady off, 1000 steady on.
void SetLedPattern(const LedNetworkStatusObserver& observer, int on_time_ms);

}  // namespace corvo
