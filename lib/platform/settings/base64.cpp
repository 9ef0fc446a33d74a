#include "lib/platform/settings/base64.h"

#include <climits>
#include <cstring>
#include <stdexcept>

#include "lib/platform/base/assert.h"
#include "lib/platform/settings/gnutls_library.h"

namespace corvo {

namespace {

constexpr char kBase64Prefix[] = "[base64]";
constexpr std::size_t kBase64PrefixLength = sizeof kBase64Prefix - 1;

// Decoded content may be key material: wipe it before the decoder's buffer goes.
struct GnutlsDatum {
  gnutls_datum_t datum{nullptr, 0};
  ~GnutlsDatum() {
    if (datum.data != nullptr) {
      explicit_bzero(datum.data, datum.size);
      Gnutls().free(datum.data);
    }
  }
};

std::string DecodeRaw(const char* text, std::size_t length) {
  if (length > UINT_MAX) throw std::runtime_error("Invalid base64 data: too long");
  gnutls_datum_t input{reinterpret_cast<unsigned char*>(const_cast<char*>(text)),
                       static_cast<unsigned int>(length)};
  GnutlsDatum output;
  const int result = Gnutls().base64_decode2(&input, &output.datum);
  if (result < 0) {
    throw std::runtime_error(std::string("Invalid base64 data: ") + Gnutls().strerror(result));
  }
  return std::string(reinterpret_cast<const char*>(output.datum.data), output.datum.size);
}

}  // namespace

std::string Base64Decode(const std::string& text) { return DecodeRaw(text.data(), text.size()); }

std::string DecodeBase64Value(const std::string& value) {
  if (value.compare(0, kBase64PrefixLength, kBase64Prefix) != 0) return value;
  const std::size_t length = value.size();
  std::string decoded = DecodeRaw(value.data() + kBase64PrefixLength, length - kBase64PrefixLength);
  CORVO_ASSERT(decoded.size() <= ((length - 5) / 4) * 3);
  return decoded;
}

}  // namespace corvo
