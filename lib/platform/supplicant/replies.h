#pragma once
// The client's own readings of wpa_supplicant's replies, where the generated
// accessors do not do the work. They take what the bus returned, so they also
// run without a bus. A value of the wrong type raises DBus::ErrorInvalidArgs.

#include <cstdint>
#include <map>
#include <string>

#include <dbus-c++/dbus.h>

#include "lib/platform/supplicant/properties.h"

namespace supplicant {

using VariantMap = std::map<std::string, DBus::Variant>;

// The reply to a Properties "Get" of a byte-array property (SSID, BSSID):
// anything but a variant holding "ay" raises "byte-array expected".
Bytes ReadByteArrayReply(const DBus::Message& reply);

// A network's "Properties": the daemon sends strings; anything else is left out.
PropertySet FromVariants(const VariantMap& variants);

// SignalPoll's "rssi"; a missing key raises std::out_of_range ("map::at").
std::int32_t RssiOf(const VariantMap& poll);

// "00:11:22:aa:bb:cc".
std::string FormatBssid(const Bytes& bytes);

}  // namespace supplicant
