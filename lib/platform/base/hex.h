#pragma once
// Hexadecimal text <-> bytes, two digits a byte, either case accepted on input.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace corvo {

// Raises "Invalid hexadecimal string length" for an odd number of digits and
// "Invalid hexadecimal digit" for anything that is not 0-9, a-f or A-F.
std::vector<std::uint8_t> HexDecode(const std::string& text);

// Decodes into out[0..capacity) and returns the number of bytes written; text
// that would not fit raises "Hexadecimal string too long" before anything is written.
std::size_t HexDecode(const std::string& text, std::uint8_t* out, std::size_t capacity);

// Lower-case digits.
std::string HexEncode(const void* data, std::size_t size);

}  // namespace corvo
