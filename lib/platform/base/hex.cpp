#include "lib/platform/base/hex.h"

#include <algorithm>
#include <boost/algorithm/hex.hpp>
#include <iterator>
#include <stdexcept>

namespace corvo {

std::size_t HexDecode(const std::string& text, std::uint8_t* out, std::size_t capacity) {
  if (text.size() % 2 != 0) throw std::runtime_error("Invalid hexadecimal string length");
  if (text.size() / 2 > capacity) throw std::runtime_error("Hexadecimal string too long");
  try {
    const auto end = boost::algorithm::unhex(text.begin(), text.end(), out);
    return static_cast<std::size_t>(end - out);
  } catch (const boost::algorithm::hex_decode_error&) {
    throw std::runtime_error("Invalid hexadecimal digit");
  }
}

std::vector<std::uint8_t> HexDecode(const std::string& text) {
  std::vector<std::uint8_t> bytes(text.size() / 2);
  bytes.resize(HexDecode(text, bytes.data(), bytes.size()));
  return bytes;
}

std::string HexEncode(const void* data, std::size_t size) {
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  std::string text;
  text.reserve(size * 2);
  boost::algorithm::hex_lower(bytes, bytes + size, std::back_inserter(text));
  return text;
}

}  // namespace corvo
