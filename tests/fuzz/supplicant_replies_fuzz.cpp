// wpa_supplicant's replies as the client reads them: its own readings
// (replies.h) and those of the generated accessors, which take a property as a
// variant converted to the accessor's type and a method's result as it is.

#include "lib/platform/supplicant/replies.h"
#include "tests/fuzz/dbus_body.h"
#include "tests/fuzz/fuzz_support.h"

using namespace corvo;
using supplicant::VariantMap;

template <typename T>
T Property(const DBus::Message& reply) {
  DBus::MessageIter reader = reply.reader();
  DBus::Variant value;
  reader >> value;
  return value;
}

template <typename T>
T Result(const DBus::Message& reply) {
  DBus::MessageIter reader = reply.reader();
  T value;
  reader >> value;
  return value;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  const int reading = in.ConsumeIntegral<std::uint8_t>() % 9;
  const DBus::CallMessage reply = fuzz::MessageBody(in);
  // The client turns these into BusError; dbus-c++ calls every one of them InvalidArgs.
  fuzz::Expect([&] {
    try {
      switch (reading) {
        case 0: supplicant::FormatBssid(supplicant::ReadByteArrayReply(reply)); break;  // SSID, BSSID
        case 1: Property<std::int16_t>(reply); break;                                   // Signal
        case 2: Property<std::uint16_t>(reply); break;                                  // Frequency
        case 3: supplicant::FromVariants(Property<VariantMap>(reply)); break;          // Properties
        case 4: supplicant::RssiOf(Result<VariantMap>(reply)); break;                   // SignalPoll
        case 5: Property<std::string>(reply); break;                                    // State
        case 6: Property<bool>(reply); break;                                           // Scanning
        case 7: Property<std::vector<DBus::Path>>(reply); break;                        // BSSs, Networks
        default: Property<DBus::Path>(reply), Result<DBus::Path>(reply);                // CurrentBSS, GetInterface
      }
    } catch (const DBus::Error& e) {
      fuzz::Check(std::strcmp(e.name(), DBUS_ERROR_INVALID_ARGS) == 0, e.message());
    }
  }, {"map::at"});
  return 0;
}
