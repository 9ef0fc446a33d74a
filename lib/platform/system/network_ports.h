#pragma once
// Scans of the kernel's network-interface directory.

#include <functional>
#include <string>

namespace corvo {

constexpr const char* kSysClassNet = "/sys/class/net/";

// Loopback and the SoC's internal links are never network ports.
bool IsInternalPortName(const std::string& name);

// Calls visit(name) for each network port in directory order until it returns true.
// Returns whether a visit returned true. An unreadable directory counts as empty.
bool ScanNetworkPorts(const std::function<bool(const std::string&)>& visit,
                      const std::string& directory = kSysClassNet);

bool NetworkPortExists(const std::string& name, const std::string& directory = kSysClassNet);
bool AnyNetworkPortHasLink(const std::string& directory = kSysClassNet);

}  // namespace corvo
