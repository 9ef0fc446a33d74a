#include "lib/hardware/link_check.h"

#include <cerrno>

#include "lib/platform/errno_exception.h"
#include "lib/platform/log.h"
#include "lib/platform/net.h"

namespace corvo {

bool CheckLinkAction(const std::string& ifname) {
  try {
    if (net::InterfaceHasLink(ifname.c_str())) {
      Print(stdout, "%s: Link is up\n", ifname);
      return true;
    }
    Print(stdout, "%s: Link is down\n", ifname);
    return false;
  } catch (const ErrnoException& e) {
    if (e.Errno() == EOPNOTSUPP) {
      Log("Link detection check not supported on %s. Assuming present.\n", ifname);
      return true;
    }
    Log("Failed to check link on %s: %s\n", ifname, e.what());
    return false;
  }
}

}  // namespace corvo
