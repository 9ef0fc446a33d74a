#pragma once

#include <string>

namespace corvo {

// Interface names end up in file paths: refuse any name the kernel could never have.
bool IsUsableInterfaceName(const std::string& name);

}  // namespace corvo
