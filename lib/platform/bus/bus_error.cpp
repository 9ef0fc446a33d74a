#include "lib/platform/bus/bus_error.h"

namespace corvo {

void ThrowBusError(const std::string& name, const std::string& message) {
  using namespace bus_errors;
  for (const char* absent :
       {kServiceUnknown, kNameHasNoOwner, kNoServer, kFileNotFound, kDisconnected}) {
    if (name == absent) throw BusServiceUnavailable(name, message);
  }
  if (name == kNoReply || name == kTimeout) throw BusNoReply(name, message);
  throw BusError(name, message);
}

}  // namespace corvo
