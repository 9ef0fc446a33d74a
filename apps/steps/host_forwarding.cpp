#include "apps/steps/host_forwarding.h"

#include <string>
#include <vector>

#include "apps/steps/run_lock.h"
#include "lib/platform/settings/interface_reader.h"

namespace corvo {

namespace {

using PersistentNetworkConfig::HostReader;

constexpr const char* kIptables = "/sbin/iptables";

// Rule changes are best effort: deleting a rule that is not there must not stop the rest.
void RunIptables(Platform& platform, const std::vector<std::string>& args) {
  platform.programs.Run(kIptables, args);
}

HostReader Host(Platform& platform) {
  return HostReader(platform.settings, platform.hardware.SerialNumber());
}

}  // namespace

void ConfigureNat(const std::string& ifname, Platform& platform) {
  const auto host_wide = TakeHostLock(platform);
  if (!platform.network.HasDefaultRoute(ifname)) {
    platform.log.Print("Interface '%s' has no default route (yet).\n", ifname);
    return;
  }
  platform.log.Print("Interface '%s' has a default route.  Configuring it for NAT.\n", ifname);
  // Nothing is forwarded unmasqueraded while the rule changes.
  platform.network.SetIpForwarding(false);
  // Removing one earlier copy first keeps repeated runs from stacking rules.
  RunIptables(platform, {"-t", "nat", "-D", "POSTROUTING", "-o", ifname, "-j", "MASQUERADE"});
  RunIptables(platform, {"-t", "nat", "-A", "POSTROUTING", "-o", ifname, "-j", "MASQUERADE"});
  platform.network.SetIpForwarding(true);
}

void ConfigureHostForwarding(Phase phase, Platform& platform) {
  const bool apply = phase == Phase::kStart;
  const auto host_wide = TakeHostLock(platform);
  if (apply) ApplyStoredHostName(platform);
  platform.network.SetIpForwarding(false);
  RunIptables(platform, {"-t", "nat", "-F", "POSTROUTING"});
  if (!apply) return;
  switch (Host(platform).Forwarding()) {
    case PersistentNetworkConfig::kRouting:
      platform.network.SetIpForwarding(true);
      break;
    case PersistentNetworkConfig::kNat:
      // Only the port holding the default route gets the rule (and forwarding on).
      for (const std::string& port : platform.network.NetworkPorts()) ConfigureNat(port, platform);
      break;
    case PersistentNetworkConfig::kNoForwarding:
      break;
  }
}

void ApplyStoredHostName(Platform& platform) {
  const std::string wanted = Host(platform).HostName();
  // An unchanged name leaves the kernel and Avahi alone.
  if (wanted == platform.host_names.GetHostName()) return;
  platform.host_names.SetHostName(wanted);
}

}  // namespace corvo
