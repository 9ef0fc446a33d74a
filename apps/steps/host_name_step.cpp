#include "apps/steps/host_name_step.h"

#include <string>

#include "lib/platform/interface_reader.h"

namespace corvo {

void ApplyStoredHostName(const PersistentNetworkConfig::HostReader& host, HostNames& host_names) {
  const std::string wanted = host.HostName();
  // An unchanged name leaves the kernel and Avahi alone.
  if (wanted == host_names.GetHostName()) return;
  host_names.SetHostName(wanted);
}

}  // namespace corvo
