#pragma once
// Inbound bandwidth policing with tc. Never throws: failures are printed.

#include "lib/platform/platform.h"

namespace corvo {

namespace PersistentNetworkConfig {
class InterfaceReader;
}

// Installs (add) or removes the interface's inbound limit. Returns 0, or -1
// after a failure it has printed; callers go on either way.
int ConfigureShaper(const PersistentNetworkConfig::InterfaceReader& reader, const char* ifname,
                    bool add, Platform& platform);

}  // namespace corvo
