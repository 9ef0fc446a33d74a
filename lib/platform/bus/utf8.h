#pragma once

#include <string>

namespace corvo {

// What the bus can carry as a string: valid UTF-8 without an embedded NUL
// (libdbus aborts the process on anything else).
bool IsValidUtf8(const std::string& text);

}  // namespace corvo
