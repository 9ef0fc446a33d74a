#pragma once

#include <string>

#include "lib/platform/platform.h"

namespace corvo {

// The checklink action: prints whether the interface has link (standard
// output) and returns it.
bool CheckLinkAction(const std::string& ifname, Platform& platform);

// Whether any network port has link ("host checklink").
bool AnyNetworkPortHasLink(Platform& platform);

}  // namespace corvo
