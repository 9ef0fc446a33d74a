#pragma once
// The kernel's IPv4 route table as /proc/net/route shows it.

#include <cstdint>
#include <cstdio>
#include <string>

namespace corvo::net {

constexpr const char* kProcNetRoute = "/proc/net/route";

// Gateway of the first default route (up, via a gateway) of the interface, or 0.
std::uint32_t FindDefaultGateway(std::FILE* table, const std::string& ifname);
std::uint32_t FindDefaultGateway(const std::string& ifname, const char* path = kProcNetRoute);

}  // namespace corvo::net
