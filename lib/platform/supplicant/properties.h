#pragma once
// Network properties as the supplicant takes them: strings, 32-bit integers and
// byte arrays, sent as a dictionary in key order.

#include <cstdint>
#include <map>
#include <string>
#include <variant>
#include <vector>

namespace supplicant {

using Bytes = std::vector<std::uint8_t>;
using PropertyValue = std::variant<std::string, std::int32_t, std::uint32_t, Bytes>;
using PropertySet = std::map<std::string, PropertyValue>;

// A string value; it must be valid UTF-8 without NUL, or the bus would refuse
// it: raises "Network property KEY is not valid UTF-8" (the value is never named).
PropertyValue StringProperty(const std::string& key, const std::string& value);
inline PropertyValue IntProperty(std::int32_t value) { return value; }
inline PropertyValue BytesProperty(Bytes value) { return value; }

// The string under key, or "" when the key is absent or holds no string.
std::string LookupPropertyString(const PropertySet& properties, const std::string& key);

}  // namespace supplicant
