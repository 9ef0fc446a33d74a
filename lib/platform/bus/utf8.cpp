#include "lib/platform/bus/utf8.h"

#include <dbus/dbus.h>

namespace corvo {

bool IsValidUtf8(const std::string& text) {
  return text.find('\0') == std::string::npos && dbus_validate_utf8(text.c_str(), nullptr);
}

}  // namespace corvo
