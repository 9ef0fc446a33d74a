#pragma once
// The system host name, and the name the Avahi daemon announces.

#include <stdexcept>
#include <string>

namespace corvo {

std::string GetHostName();
// Sets the kernel's host name, then Avahi's; a missing Avahi daemon is ignored.
void SetHostName(const std::string& name);

namespace zeroconf {

class AvahiDaemonNotRunningException : public std::runtime_error {
 public:
  AvahiDaemonNotRunningException() : std::runtime_error("Avahi daemon not running") {}
};

void SetAvahiHostName(const std::string& name);

}  // namespace zeroconf
}  // namespace corvo
