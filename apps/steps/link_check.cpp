#include "apps/steps/link_check.h"

#include <cerrno>

#include "lib/platform/base/errno_exception.h"

namespace corvo {

bool CheckLinkAction(const std::string& ifname, Platform& platform) {
  try {
    if (platform.network.InterfaceHasLink(ifname)) {
      platform.out.Print("%s: Link is up\n", ifname);
      return true;
    }
    platform.out.Print("%s: Link is down\n", ifname);
    return false;
  } catch (const ErrnoException& e) {
    if (e.Errno() == EOPNOTSUPP) {
      platform.log.Print("Link detection check not supported on %s. Assuming present.\n", ifname);
      return true;
    }
    platform.log.Print("Failed to check link on %s: %s\n", ifname, e.what());
    return false;
  }
}

bool AnyNetworkPortHasLink(Platform& platform) {
  for (const std::string& port : platform.network.NetworkPorts()) {
    if (platform.network.InterfaceHasLink(port)) return true;
  }
  return false;
}

}  // namespace corvo
