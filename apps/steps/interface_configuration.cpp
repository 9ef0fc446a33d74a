#include "apps/steps/interface_configuration.h"

#include <cstdint>
#include <exception>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "apps/steps/dhcp.h"
#include "apps/steps/host_forwarding.h"
#include "lib/platform/interface_reader.h"
#include "lib/platform/log.h"
#include "lib/platform/vlan_links.h"

namespace corvo {

using PersistentNetworkConfig::HostReader;
using PersistentNetworkConfig::InterfaceReader;

void ConfigureInterface(LedNetworkStatusObserver* observer, const InterfaceReader& reader,
                        const char* ifname, bool start) {
  const std::unique_ptr<VlanLinks> links = OpenVlanLinks();
  ConfigureInterface(observer, reader, ifname, start, *links, GetPlatform());
}

void ConfigureInterface(LedNetworkStatusObserver* observer, const InterfaceReader& reader,
                        const char* ifname, bool start, VlanLinks& links, Platform& platform) {
  const std::string parent(ifname);

  // VLAN links never survive a stop or a reconfiguration: each start rebuilds
  // them from the stored list. Their clients are stopped before the link goes.
  for (const std::string& vlan : links.ListVlansOn(parent)) {
    const InterfaceReader vlan_reader(vlan, reader.Store());
    ConfigureDhcp(observer, vlan_reader, vlan, false, platform);
    links.DeleteLink(vlan);
  }

  const std::set<std::uint16_t> ids = reader.Vlans();
  if (ids.empty() || !start) {
    ConfigureDhcp(observer, reader, parent, start, platform);
  } else {
    // Tagged traffic needs the parent up; alone, the untagged DHCP step does that.
    if (*ids.rbegin() != 0) links.SetUp(parent);
    for (const std::uint16_t id : ids) {
      if (id == 0) {
        ConfigureDhcp(observer, reader, parent, true, platform);
        continue;
      }
      try {
        const std::string name = parent + "." + std::to_string(id);
        const InterfaceReader vlan_reader(name, reader.Store());
        links.AddVlan(parent, id, name);
        ConfigureDhcp(observer, vlan_reader, name, true, platform);
      } catch (const std::exception& e) {
        Log("Unable to configure VLAN %u for %s: %s\n", static_cast<unsigned int>(id), parent,
            e.what());
      }
    }
  }

  ConfigureHostForwarding(start, HostReader(reader.Store()), platform);
}

}  // namespace corvo
