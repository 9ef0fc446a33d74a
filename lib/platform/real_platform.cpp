#include "lib/platform/real_platform.h"

namespace corvo {

RealPlatform::RealPlatform()
    : m_supplicant(
          [this](const std::string& ifname) { return m_hardware.SupplicantDriver(ifname); }),
      m_platform{m_programs,     m_network,       m_files,         m_locks,    m_clock,
                 m_system_clock, m_host_names,    m_network_time,  m_settings, m_supplicant,
                 m_hardware,     StandardError(), StandardOutput()} {}

}  // namespace corvo
