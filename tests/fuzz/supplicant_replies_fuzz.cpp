// wpa_supplicant's replies as the client reads them: replies.h's readings and the generated
// accessors', which convert a property's variant and take a method's result as it is.

#include "lib/platform/supplicant/replies.h"
#include "tests/fuzz/dbus_body.h"
#include "tests/fuzz/fuzz_support.h"

using namespace corvo;
using supplicant::VariantMap;

template <typename T>
T Result(const DBus::Message& reply) {
  DBus::MessageIter reader = reply.reader();
  T value;
  reader >> value;
  return value;
}

// A property comes as a variant, converted to the accessor's type.
template <typename T>
T Property(const DBus::Message& reply) {
  return Result<DBus::Variant>(reply);
}

using Reply = const DBus::Message&;

// What the client reads from the reply to each call.
void (*const kReadings[])(Reply) = {
    [](Reply m) { supplicant::FormatBssid(supplicant::ReadByteArrayReply(m)); },  // SSID, BSSID
    [](Reply m) { Property<std::int16_t>(m); },                                   // Signal
    [](Reply m) { Property<std::uint16_t>(m); },                                  // Frequency
    [](Reply m) { supplicant::FromVariants(Property<VariantMap>(m)); },           // Properties
    [](Reply m) { supplicant::RssiOf(Result<VariantMap>(m)); },                   // SignalPoll
    [](Reply m) { Property<std::string>(m); },                                    // State
    [](Reply m) { Property<bool>(m); },                                           // Scanning
    [](Reply m) { Property<std::vector<DBus::Path>>(m); },                        // BSSs
    [](Reply m) { Property<DBus::Path>(m); },                                     // CurrentBSS
    [](Reply m) { Result<DBus::Path>(m); },                                       // GetInterface
};

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  const auto reading = kReadings[in.ConsumeIntegral<std::uint8_t>() % std::size(kReadings)];
  const DBus::CallMessage reply = fuzz::MessageBody(in);
  auto read = [&] {
    try {
      reading(reply);
    } catch (const DBus::Error& e) {  // the client turns these into BusError
      fuzz::Check(std::strcmp(e.name(), DBUS_ERROR_INVALID_ARGS) == 0, e.message());
    }
  };
  fuzz::Expect(read, {"map::at"});
  return 0;
}
