#pragma once
// Small helpers shared by the D-Bus clients.

#include <cstdint>
#include <cstring>
#include <type_traits>
#include <vector>

#include <dbus-c++/error.h>
#include <dbus-c++/types.h>

namespace corvo {

// Whether the error has exactly this D-Bus error name.
inline bool HasErrorName(const DBus::Error& error, const char* name) {
  return error.name() != nullptr && std::strcmp(error.name(), name) == 0;
}

// Appends an "ay". dbus-c++'s own operator<< takes front() of the vector,
// which is undefined for an empty one, and empty blobs are sent on purpose.
inline void AppendBytes(DBus::MessageIter& iter, const std::vector<std::uint8_t>& bytes) {
  DBus::MessageIter array = iter.new_array("y");
  if (!bytes.empty()) array.append_array('y', bytes.data(), bytes.size());
  iter.close_container(array);
}

// A variant holding the value with its natural D-Bus type.
template <typename T>
DBus::Variant MakeVariant(const T& value) {
  DBus::Variant variant;
  DBus::MessageIter writer = variant.writer();
  if constexpr (std::is_same_v<T, std::vector<std::uint8_t>>) {
    AppendBytes(writer, value);
  } else {
    writer << value;
  }
  return variant;
}

}  // namespace corvo
