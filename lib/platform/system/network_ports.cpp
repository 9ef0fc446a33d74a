#include "lib/platform/system/network_ports.h"

#include <boost/filesystem.hpp>

#include "lib/platform/system/net.h"

namespace corvo {

bool IsInternalPortName(const std::string& name) {
  return name == "lo" || name.compare(0, 3, "ipc") == 0 || name.compare(0, 5, "rgmii") == 0 ||
         name.compare(0, 4, "peth") == 0;
}

bool ScanNetworkPorts(const std::function<bool(const std::string&)>& visit,
                      const std::string& directory) {
  boost::system::error_code ec;
  boost::filesystem::directory_iterator it(directory, ec), end;
  for (; !ec && it != end; it.increment(ec)) {
    const std::string name = it->path().filename().string();
    if (IsInternalPortName(name)) continue;
    if (visit(name)) return true;
  }
  return false;
}

bool NetworkPortExists(const std::string& name, const std::string& directory) {
  return ScanNetworkPorts([&](const std::string& port) { return port == name; }, directory);
}

bool AnyNetworkPortHasLink(const std::string& directory) {
  return ScanNetworkPorts(
      [](const std::string& port) { return net::InterfaceHasLink(port.c_str()); }, directory);
}

}  // namespace corvo
