#include "apps/steps/interface_configuration.h"

#include <cstdint>
#include <exception>
#include <memory>
#include <set>
#include <string>

#include "apps/steps/dhcp.h"
#include "apps/steps/host_forwarding.h"

namespace corvo {

void ConfigureInterface(const RunContext& run, Phase phase) {
  Platform& platform = run.platform;
  const std::string& parent = run.ifname;
  const std::unique_ptr<VlanLinks> links = platform.network.OpenVlanLinks();

  // VLAN links never survive a stop or a reconfiguration: each start rebuilds
  // them from the stored list. Their clients are stopped before the link goes.
  for (const std::string& vlan : links->ListVlansOn(parent)) {
    ConfigureDhcp(run.ForInterface(vlan), Phase::kStop);
    links->DeleteLink(vlan);
  }

  const std::set<std::uint16_t> ids = run.reader.Vlans();
  if (ids.empty() || phase == Phase::kStop) {
    ConfigureDhcp(run, phase);
  } else {
    // Tagged traffic needs the parent up; alone, the untagged DHCP step does that.
    if (*ids.rbegin() != 0) links->SetUp(parent);
    for (const std::uint16_t id : ids) {
      if (id == 0) {
        ConfigureDhcp(run, Phase::kStart);
        continue;
      }
      // One VLAN that fails does not keep the others down.
      try {
        const std::string name = parent + "." + std::to_string(id);
        const RunContext vlan = run.ForInterface(name);
        links->AddVlan(parent, id, name);
        ConfigureDhcp(vlan, Phase::kStart);
      } catch (const std::exception& e) {
        platform.log.Print("Unable to configure VLAN %u for %s: %s\n",
                           static_cast<unsigned int>(id), parent, e.what());
      }
    }
  }

  ConfigureHostForwarding(phase, platform);
}

}  // namespace corvo
