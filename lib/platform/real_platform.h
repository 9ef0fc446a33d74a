#pragma once
// The player itself behind the Platform seam.

#include "lib/hardware/hardware_config.h"
#include "lib/platform/platform.h"
#include "lib/platform/system/real_os.h"

namespace corvo {

// The registry client is made on the first call, not before.
class RegistryOnFirstUse : public Registry {
 public:
  std::string ReadAllJson() override { return GetRegistry().ReadAllJson(); }
  void WriteJson(const std::string& json) override { GetRegistry().WriteJson(json); }
  std::string Read(const std::string& section, const std::string& key) override {
    return GetRegistry().Read(section, key);
  }
  void Write(const std::string& section, const std::string& key,
             const std::string& value) override {
    GetRegistry().Write(section, key, value);
  }
  bool KeyExists(const std::string& section, const std::string& key) override {
    return GetRegistry().KeyExists(section, key);
  }
  bool SectionExists(const std::string& section) override {
    return GetRegistry().SectionExists(section);
  }
  void DeleteKey(const std::string& section, const std::string& key) override {
    GetRegistry().DeleteKey(section, key);
  }
  void DeleteSection(const std::string& section) override { GetRegistry().DeleteSection(section); }
  void DeleteAll() override { GetRegistry().DeleteAll(); }
  std::vector<std::string> SectionList() override { return GetRegistry().SectionList(); }
  std::map<std::string, std::string> KeyList(const std::string& section) override {
    return GetRegistry().KeyList(section);
  }
  void Flush() override { GetRegistry().Flush(); }
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
  RegistryOnFirstUse m_registry;
  InstalledHardwareFacts m_hardware;
  supplicant::BusSupplicantConnector m_supplicant;
  Platform m_platform;
};

}  // namespace corvo
