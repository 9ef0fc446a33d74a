#include "lib/platform/system/net.h"

#include <net/if.h>  // before the kernel headers, which defer to it
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <linux/wireless.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <unistd.h>

#include <fmt/format.h>

#include "lib/platform/base/assert.h"
#include "lib/platform/base/errno_exception.h"
#include "lib/platform/base/log.h"
#include "lib/platform/system/route_table.h"

namespace corvo::net {

namespace {

int OpenIPv4Socket() {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) throw ErrnoException(errno, "socket");
  return fd;
}

// Kernel requests take at most IFNAMSIZ - 1 characters; longer names are cut.
template <size_t N>
void CopyName(char (&dest)[N], const char* name) {
  std::memset(dest, 0, N);
  std::strncpy(dest, name, N - 1);
}

class SocketCloser {
 public:
  explicit SocketCloser(int fd) : m_fd(fd) {}
  ~SocketCloser() { close(m_fd); }
  SocketCloser(const SocketCloser&) = delete;
  SocketCloser& operator=(const SocketCloser&) = delete;

 private:
  int m_fd;
};

bool AccessPointAddressIsSet(const struct sockaddr& ap) {
  for (int i = 0; i < 6; ++i) {
    const auto byte = static_cast<unsigned char>(ap.sa_data[i]);
    if (byte != 0x00 && byte != 0xFF) return true;
  }
  return false;
}

}  // namespace

InterfaceSocket::InterfaceSocket(std::string name)
    : m_name(std::move(name)), m_sock(OpenIPv4Socket()) {}

InterfaceSocket::~InterfaceSocket() { close(m_sock); }

std::uint32_t GetSockAddrIn(const struct sockaddr& address) {
  if (address.sa_family != AF_INET) {
    throw std::runtime_error("Unexpected address family in GetSockAddrIn");
  }
  struct sockaddr_in in;
  std::memcpy(&in, &address, sizeof in);
  return ntohl(in.sin_addr.s_addr);
}

std::uint32_t GetIPAddress(const InterfaceSocket& socket) {
  struct ifreq ifr;
  CopyName(ifr.ifr_name, socket.Name().c_str());
  if (ioctl(socket.Fd(), SIOCGIFADDR, &ifr) < 0) {
    if (errno == EADDRNOTAVAIL) return 0;
    throw ErrnoException(errno, "GetIPAddress");
  }
  return GetSockAddrIn(ifr.ifr_addr);
}

std::uint32_t GetDefaultGateway(const InterfaceSocket& socket) {
  return FindDefaultGateway(socket.Name());
}

bool InterfaceHasLink(const char* name) {
  CORVO_ASSERT_PTR(name);
  const int fd = OpenIPv4Socket();
  const SocketCloser closer(fd);

  struct ifreq ifr;
  CopyName(ifr.ifr_name, name);
  if (ioctl(fd, SIOCGIFFLAGS, &ifr) < 0 || (ifr.ifr_flags & IFF_UP) == 0) return false;

  struct ethtool_value link = {};
  link.cmd = ETHTOOL_GLINK;
  CopyName(ifr.ifr_name, name);
  ifr.ifr_data = reinterpret_cast<char*>(&link);
  if (ioctl(fd, SIOCETHTOOL, &ifr) == 0) return link.data != 0;

  struct iwreq wrq;
  std::memset(&wrq, 0, sizeof wrq);
  CopyName(wrq.ifr_name, name);
  if (ioctl(fd, SIOCGIWAP, &wrq) == 0) return AccessPointAddressIsSet(wrq.u.ap_addr);

  // A point-to-point link that exists and is up carries traffic.
  if (std::strncmp(name, "ppp", 3) == 0) return true;

  Log("Unable to determine whether interface '%s' has link\n", name);
  return false;
}

bool InterfaceIsReady(const char* name) {
  if (!InterfaceHasLink(name)) return false;
  return GetIPAddress(InterfaceSocket(name)) != 0;
}

std::string FormatIPv4(std::uint32_t address) {
  return fmt::format("{}.{}.{}.{}", (address >> 24) & 0xFF, (address >> 16) & 0xFF,
                     (address >> 8) & 0xFF, address & 0xFF);
}

std::string FormatMac(const unsigned char (&mac)[6]) {
  return fmt::format("{:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", mac[0], mac[1], mac[2], mac[3],
                     mac[4], mac[5]);
}

void SetIpForwarding(bool on, const char* path) {
  std::ofstream out(path, std::ios::out | std::ios::trunc);
  out << (on ? "1" : "0");
  out.close();
  if (!out) throw ErrnoException(errno, path);
}

bool IsValidDomainName(const std::string& name) {
  if (name.empty()) return false;
  for (const unsigned char c : name) {
    const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                    c == '-' || c == '.' || c == '_';
    if (!ok) return false;
  }
  return true;
}

bool CanConnectTcp(const std::string& ifname, const std::string& host, std::uint16_t port,
                   int timeout_ms) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICSERV;
  addrinfo* found = nullptr;
  if (getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) return false;
  bool reached = false;
  for (const addrinfo* a = found; a != nullptr && !reached; a = a->ai_next) {
    const int fd = socket(a->ai_family, a->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) continue;
    if (setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, ifname.c_str(),
                   static_cast<socklen_t>(ifname.size())) == 0) {
      if (connect(fd, a->ai_addr, a->ai_addrlen) == 0) {
        reached = true;
      } else if (errno == EINPROGRESS) {
        pollfd waiting{fd, POLLOUT, 0};
        int error = 0;
        socklen_t size = sizeof error;
        reached = poll(&waiting, 1, timeout_ms) == 1 &&
                  getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
      }
    }
    close(fd);
  }
  freeaddrinfo(found);
  return reached;
}

}  // namespace corvo::net
