#include "lib/platform/system/route_table.h"

#include <arpa/inet.h>
#include <memory>
#include <net/route.h>
#include <stdexcept>

namespace corvo::net {

std::uint32_t FindDefaultGateway(std::FILE* table, const std::string& ifname) {
  if (std::fscanf(table, "%*[^\n]\n") == EOF) {
    throw std::runtime_error("/proc/net/route is not readable");
  }
  for (;;) {
    char name[64];
    unsigned int destination = 0, gateway = 0, flags = 0, mask = 0;
    int refcnt = 0, use = 0, metric = 0, mtu = 0, window = 0, irtt = 0;
    const int fields =
        std::fscanf(table, "%63s%x%x%X%d%d%d%x%d%d%d\n", name, &destination, &gateway, &flags,
                    &refcnt, &use, &metric, &mask, &mtu, &window, &irtt);
    if (fields == EOF) return 0;
    if (fields != 11) throw std::runtime_error("Malformed /proc/net/route line");
    // The file shows addresses in network byte order.
    destination = ntohl(destination);
    gateway = ntohl(gateway);
    mask = ntohl(mask);
    const unsigned int wanted = RTF_UP | RTF_GATEWAY;
    if (ifname == name && destination == 0 && mask == 0 && (flags & wanted) == wanted) {
      return gateway;
    }
  }
}

std::uint32_t FindDefaultGateway(const std::string& ifname, const char* path) {
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> table(std::fopen(path, "re"), &std::fclose);
  if (!table) throw std::runtime_error("Could not open /proc/net/route");
  return FindDefaultGateway(table.get(), ifname);
}

}  // namespace corvo::net
