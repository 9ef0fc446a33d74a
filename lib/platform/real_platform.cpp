#include "lib/platform/real_platform.h"

namespace corvo {

RealPlatform::RealPlatform()
    : m_supplicant([this] {
        return supplicant::InterfaceDrivers{m_hardware.EthernetInterface(),
                                            m_hardware.WifiDriver()};
      }),
      m_platform{m_programs,     m_network,       m_files,         m_locks,    m_clock,
                 m_system_clock, m_host_names,    m_network_time,  m_registry, m_supplicant,
                 m_hardware,     StandardError(), StandardOutput()} {}

}  // namespace corvo
