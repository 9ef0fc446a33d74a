#pragma once
// Stored values marked "[base64]" carry binary content (certificates, keys).

#include <string>

namespace corvo {

// Standard base64 with "=" padding; white space is ignored. Anything else
// raises "Invalid base64 data: " followed by the decoder's reason.
std::string Base64Decode(const std::string& text);

// A value starting with "[base64]" is decoded; any other value is returned as it is.
std::string DecodeBase64Value(const std::string& value);

}  // namespace corvo
