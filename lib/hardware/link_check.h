#pragma once

#include <string>

namespace corvo {

// Prints whether the interface has link (standard output) and returns it.
bool CheckLinkAction(const std::string& ifname);

}  // namespace corvo
