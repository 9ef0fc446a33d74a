#include "apps/linkrig/interface_name.h"

#include <net/if.h>

namespace corvo {

bool IsUsableInterfaceName(const std::string& name) {
  if (name.empty() || name.size() >= IFNAMSIZ || name == "." || name == "..") return false;
  for (const unsigned char c : name) {
    if (c == '/' || c == ':' || c <= ' ' || c == 0x7F) return false;
  }
  return true;
}

}  // namespace corvo
