#pragma once
// Small helpers shared by the D-Bus clients.

#include <cstring>

#include <dbus-c++/error.h>
#include <dbus-c++/types.h>

namespace corvo {

// Whether the error has exactly this D-Bus error name.
inline bool HasErrorName(const DBus::Error& error, const char* name) {
  return error.name() != nullptr && std::strcmp(error.name(), name) == 0;
}

// A variant holding the value with its natural D-Bus type.
template <typename T>
DBus::Variant MakeVariant(const T& value) {
  DBus::Variant variant;
  DBus::MessageIter writer = variant.writer();
  writer << value;
  return variant;
}

}  // namespace corvo
