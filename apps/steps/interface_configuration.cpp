#include "apps/steps/interface_configuration.h"

#include <cstdint>
#include <exception>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "apps/steps/dhcp.h"
#include "apps/steps/host_forwarding.h"
#include "lib/platform/settings/interface_reader.h"

namespace corvo {

using PersistentNetworkConfig::InterfaceReader;

void ConfigureInterface(LedNetworkStatusObserver* observer, const InterfaceReader& reader,
                        const char* ifname, bool start, Platform& platform) {
  const std::string parent(ifname);
  const std::unique_ptr<VlanLinks> links = platform.network.OpenVlanLinks();

  // VLAN links never survive a stop or a reconfiguration: each start rebuilds
  // them from the stored list. Their clients are stopped before the link goes.
  for (const std::string& vlan : links->ListVlansOn(parent)) {
    ConfigureDhcp(observer, reader.ForInterface(vlan), vlan, false, platform);
    links->DeleteLink(vlan);
  }

  const std::set<std::uint16_t> ids = reader.Vlans();
  if (ids.empty() || !start) {
    ConfigureDhcp(observer, reader, parent, start, platform);
  } else {
    // Tagged traffic needs the parent up; alone, the untagged DHCP step does that.
    if (*ids.rbegin() != 0) links->SetUp(parent);
    for (const std::uint16_t id : ids) {
      if (id == 0) {
        ConfigureDhcp(observer, reader, parent, true, platform);
        continue;
      }
      // One VLAN that fails does not keep the others down.
      try {
        const std::string name = parent + "." + std::to_string(id);
        const InterfaceReader vlan_reader = reader.ForInterface(name);
        links->AddVlan(parent, id, name);
        ConfigureDhcp(observer, vlan_reader, name, true, platform);
      } catch (const std::exception& e) {
        platform.log.Print("Unable to configure VLAN %u for %s: %s\n",
                           static_cast<unsigned int>(id), parent, e.what());
      }
    }
  }

  ConfigureHostForwarding(start, platform);
}

}  // namespace corvo
