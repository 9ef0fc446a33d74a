#pragma once
// Ethernet hardware addresses of network interfaces.

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace corvo {

using MacAddress = std::array<std::uint8_t, 6>;

// "00:11:22:aa:bb:cc" (either case, ":" or "-" between the six bytes). Only a
// unicast address that is not all zeros is accepted.
std::optional<MacAddress> ParseUnicastMacAddress(const std::string& text);

// Assigns the address to the interface; raises an ErrnoException on failure.
void SetInterfaceMacAddress(const std::string& ifname, const MacAddress& address);

}  // namespace corvo
