#pragma once
// Questions to the kernel about one interface, and address formatting.

#include <cstdint>
#include <string>
#include <sys/socket.h>

namespace corvo::net {

// An interface name with an open IPv4 datagram socket for its ioctls.
class InterfaceSocket {
 public:
  explicit InterfaceSocket(std::string name);
  ~InterfaceSocket();
  InterfaceSocket(const InterfaceSocket&) = delete;
  InterfaceSocket& operator=(const InterfaceSocket&) = delete;

  const std::string& Name() const { return m_name; }
  int Fd() const { return m_sock; }

 private:
  std::string m_name;
  int m_sock;
};

// IPv4 addresses are host-order numbers, first dotted-quad component most significant.
std::uint32_t GetSockAddrIn(const struct sockaddr& address);
// The interface's IPv4 address, or 0 when it has none.
std::uint32_t GetIPAddress(const InterfaceSocket& socket);
// The gateway of the interface's default route, or 0.
std::uint32_t GetDefaultGateway(const InterfaceSocket& socket);

bool InterfaceHasLink(const char* name);
// Link and a non-zero IPv4 address.
bool InterfaceIsReady(const char* name);

// Whether a TCP connection to host:port opens within timeout_ms through the interface alone
// (SO_BINDTODEVICE: another port's route does not count); a name is looked up first. The
// connection is closed at once.
bool CanConnectTcp(const std::string& ifname, const std::string& host, std::uint16_t port,
                   int timeout_ms);

std::string FormatIPv4(std::uint32_t address);
std::string FormatMac(const unsigned char (&mac)[6]);

constexpr const char* kIpForwardPath = "/proc/sys/net/ipv4/ip_forward";
void SetIpForwarding(bool on, const char* path = kIpForwardPath);

bool IsValidDomainName(const std::string& name);

}  // namespace corvo::net
