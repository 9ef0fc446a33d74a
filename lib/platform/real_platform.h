#pragma once
// The player itself behind the Platform seam.

#include "lib/hardware/hardware_config.h"
#include "lib/platform/platform.h"
#include "lib/platform/settings/registry.h"
#include "lib/platform/system/real_os.h"

namespace corvo {

// The stored settings in the registry service, whose client is made on the first reading.
class RegistrySettings : public Settings {
 public:
  std::string Read(const std::string& section, const std::string& key) override {
    return GetRegistry().Read(section, key);
  }
};

class RealPlatform {
 public:
  RealPlatform();
  RealPlatform(const RealPlatform&) = delete;
  RealPlatform& operator=(const RealPlatform&) = delete;

  Platform& Get() { return m_platform; }

 private:
  RealPrograms m_programs;
  RealNetworkState m_network;
  RealFiles m_files;
  RealLocks m_locks;
  RealClock m_clock;
  RealSystemClock m_system_clock;
  RealHostNames m_host_names;
  RealNetworkTimeSource m_network_time;
  RegistrySettings m_settings;
  DeviceHardwareFacts m_hardware;
  supplicant::BusSupplicantConnector m_supplicant;
  Platform m_platform;
};

}  // namespace corvo
