#pragma once
// Inbound bandwidth policing with tc. Never throws: failures are printed.

#include "lib/platform/platform.h"

namespace corvo {

namespace PersistentNetworkConfig {
class InterfaceReader;
}

int ConfigureShaper(const PersistentNetworkConfig::InterfaceReader& reader, const char* ifname,
                    bool add, Programs& programs = GetPlatform().programs);

}  // namespace corvo
