#pragma once

#include "lib/platform/platform.h"

namespace corvo {

namespace PersistentNetworkConfig {
class HostReader;
}

// Makes the system host name (and Avahi's) equal to the stored one.
void ApplyStoredHostName(const PersistentNetworkConfig::HostReader& host, HostNames& host_names);

}  // namespace corvo
