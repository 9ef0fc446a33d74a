#include "lib/platform/system/host_name.h"

#include <avahi-client/client.h>
#include <avahi-common/error.h>
#include <avahi-common/simple-watch.h>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <new>
#include <unistd.h>

#include "lib/platform/base/errno_exception.h"

namespace corvo {

std::string GetHostName() {
  char buffer[512];
  if (gethostname(buffer, sizeof buffer) != 0) throw ErrnoException(errno, "gethostbyname");
  return std::string(buffer, strnlen(buffer, sizeof buffer));
}

void SetHostName(const std::string& name) {
  if (sethostname(name.data(), name.size()) != 0) throw ErrnoException(errno, "sethostbyname");
  try {
    zeroconf::SetAvahiHostName(name);
  } catch (const zeroconf::AvahiDaemonNotRunningException&) {
    // Nothing announces names on this device right now; the kernel's name is set.
  }
}

namespace zeroconf {

void SetAvahiHostName(const std::string& name) {
  AvahiSimplePoll* poll = avahi_simple_poll_new();
  if (poll == nullptr) throw std::bad_alloc();
  int error = 0;
  // The poll loop never runs: the request is made at once and the client freed.
  AvahiClient* client = avahi_client_new(
      avahi_simple_poll_get(poll), static_cast<AvahiClientFlags>(0), nullptr, nullptr, &error);
  if (client == nullptr) {
    avahi_simple_poll_free(poll);
    if (error == AVAHI_ERR_NO_DAEMON) throw AvahiDaemonNotRunningException();
    throw std::runtime_error(
        fmt::format("Failed to create avahi client: {}", avahi_strerror(error)));
  }
  if (avahi_client_set_host_name(client, name.c_str()) < 0) {
    const std::string message = fmt::format("Failed to set avahi host name to '{}': {}", name,
                                            avahi_strerror(avahi_client_errno(client)));
    avahi_client_free(client);
    avahi_simple_poll_free(poll);
    throw std::runtime_error(message);
  }
  avahi_client_free(client);
  avahi_simple_poll_free(poll);
}

}  // namespace zeroconf
}  // namespace corvo
