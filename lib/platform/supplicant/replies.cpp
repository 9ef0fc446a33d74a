#include "lib/platform/supplicant/replies.h"

#include <fmt/format.h>

namespace supplicant {

Bytes ReadByteArrayReply(const DBus::Message& reply) {
  DBus::MessageIter reader = reply.reader();
  DBus::Variant value;
  reader >> value;
  DBus::MessageIter bytes = value.reader();
  if (!bytes.is_array() || bytes.array_type() != 'y') {
    throw DBus::ErrorInvalidArgs("byte-array expected");
  }
  DBus::MessageIter elements = bytes.recurse();
  std::uint8_t* data = nullptr;
  const int length = elements.get_array(&data);
  if (length <= 0 || data == nullptr) return {};
  return Bytes(data, data + length);
}

PropertySet FromVariants(const VariantMap& variants) {
  PropertySet properties;
  for (const auto& [key, variant] : variants) {
    if (variant.signature() == "s") properties.emplace(key, static_cast<std::string>(variant));
  }
  return properties;
}

std::int32_t RssiOf(const VariantMap& poll) { return poll.at("rssi"); }

std::string FormatBssid(const Bytes& bytes) {
  std::string text;
  for (std::uint8_t byte : bytes) text += fmt::format("{:02x}:", byte);
  if (!text.empty()) text.pop_back();
  return text;
}

}  // namespace supplicant
