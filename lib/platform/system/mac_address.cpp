#include "lib/platform/system/mac_address.h"

#include <cerrno>
#include <cstring>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "lib/platform/base/errno_exception.h"

namespace corvo {

namespace {

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::optional<MacAddress> ParseUnicastMacAddress(const std::string& text) {
  constexpr std::size_t kLength = 17;  // six pairs and five separators
  if (text.size() != kLength) return std::nullopt;
  MacAddress address{};
  for (std::size_t i = 0; i < address.size(); ++i) {
    const std::size_t at = i * 3;
    if (i > 0 && text[at - 1] != ':' && text[at - 1] != '-') return std::nullopt;
    const int high = HexValue(text[at]);
    const int low = HexValue(text[at + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    address[i] = static_cast<std::uint8_t>(high * 16 + low);
  }
  bool all_zero = true;
  for (std::uint8_t byte : address) all_zero = all_zero && byte == 0;
  if (all_zero || (address[0] & 0x01) != 0) return std::nullopt;
  return address;
}

void SetInterfaceMacAddress(const std::string& ifname, const MacAddress& address) {
  struct ifreq request;
  std::memset(&request, 0, sizeof request);
  if (ifname.size() >= sizeof request.ifr_name) throw ErrnoException(ENODEV, "SIOCSIFHWADDR");
  std::memcpy(request.ifr_name, ifname.c_str(), ifname.size());
  request.ifr_hwaddr.sa_family = ARPHRD_ETHER;
  std::memcpy(request.ifr_hwaddr.sa_data, address.data(), address.size());
  const int sock = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (sock < 0) throw ErrnoException(errno, "socket");
  const int rc = ioctl(sock, SIOCSIFHWADDR, &request);
  const int error = errno;
  close(sock);
  if (rc < 0) throw ErrnoException(error, "SIOCSIFHWADDR");
}

}  // namespace corvo
