#include "apps/steps/host_forwarding.h"

#include <string>
#include <vector>

#include "apps/steps/host_name_step.h"
#include "lib/platform/interface_reader.h"
#include "lib/platform/log.h"
#include "lib/platform/spawn_process.h"

namespace corvo {

namespace {

constexpr const char* kIptables = "/sbin/iptables";
constexpr unsigned int kIptablesFlags = SpawnProcess::kKernelLogOutput | SpawnProcess::kWatchdog;

// Rule changes are best effort: deleting a rule that is not there must not stop the rest.
void RunIptables(Programs& programs, const std::vector<std::string>& args) {
  programs.Run(kIptables, args, kIptablesFlags);
}

enum ForwardingMode { kNoForwarding = 0, kRouting = 1, kNat = 2 };

}  // namespace

void ConfigureNat(const std::string& ifname, Platform& platform) {
  if (!platform.network.HasDefaultRoute(ifname)) {
    Log("Interface '%s' has no default route (yet).\n", ifname);
    return;
  }
  Log("Interface '%s' has a default route.  Configuring it for NAT.\n", ifname);
  // Nothing is forwarded unmasqueraded while the rule changes.
  platform.network.SetIpForwarding(false);
  // Removing one earlier copy first keeps repeated runs from stacking rules.
  RunIptables(platform.programs,
              {"-t", "nat", "-D", "POSTROUTING", "-o", ifname, "-j", "MASQUERADE"});
  RunIptables(platform.programs,
              {"-t", "nat", "-A", "POSTROUTING", "-o", ifname, "-j", "MASQUERADE"});
  platform.network.SetIpForwarding(true);
}

void ConfigureHostForwarding(bool apply) {
  ConfigureHostForwarding(apply, PersistentNetworkConfig::HostReader(), GetPlatform());
}

void ConfigureHostForwarding(bool apply, const PersistentNetworkConfig::HostReader& host,
                             Platform& platform) {
  if (apply) ApplyStoredHostName(host, platform.host_names);
  platform.network.SetIpForwarding(false);
  RunIptables(platform.programs, {"-t", "nat", "-F", "POSTROUTING"});
  if (!apply) return;
  switch (host.Forwarding()) {
    case kRouting:
      platform.network.SetIpForwarding(true);
      break;
    case kNat:
      // Only the port holding the default route gets the rule (and forwarding on).
      for (const std::string& port : platform.network.NetworkPorts()) ConfigureNat(port, platform);
      break;
    default:
      break;
  }
}

}  // namespace corvo
