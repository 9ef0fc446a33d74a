#include "lib/platform/settings/passphrase_obfuscation.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

#include "lib/platform/base/assert.h"
#include "lib/platform/base/hex.h"
#include "lib/platform/base/log.h"
#include "lib/platform/settings/gcrypt_library.h"

namespace corvo {

namespace {

// Fixed device data: changing it makes every stored "A" passphrase unreadable.
constexpr std::uint8_t kBuiltInKey[64] = {
    0x00, 0xc3, 0xbb, 0xb5, 0xff, 0x9b, 0x0b, 0x46, 0x0d, 0xb2, 0x5a, 0x20, 0xac, 0x83, 0xdf, 0x8e,
    0x2e, 0xc2, 0x91, 0x09, 0x7e, 0xa7, 0x37, 0x72, 0x6c, 0xf1, 0x44, 0xc8, 0x6e, 0x74, 0x1b, 0xd5,
    0xfd, 0xc1, 0xbb, 0x6b, 0xf0, 0x5e, 0xc5, 0xf5, 0x04, 0xd0, 0x09, 0x34, 0xf3, 0xc5, 0x2b, 0x2d,
    0x13, 0x1a, 0x16, 0xec, 0x92, 0x3a, 0x25, 0x83, 0x51, 0x04, 0x85, 0x2d, 0x69, 0xa8, 0x0e, 0x07,
};

constexpr std::size_t kDigestSize = 48;
constexpr std::size_t kKeySize = 32;
constexpr std::size_t kIvSize = 16;

// Clears secret bytes when it goes, also when an exception passes.
template <typename T>
class WipeOnExit {
 public:
  WipeOnExit(T* data, std::size_t size) : m_data(data), m_size(size) {}
  ~WipeOnExit() {
    if (m_size != 0) explicit_bzero(m_data, m_size * sizeof(T));
  }
  WipeOnExit(const WipeOnExit&) = delete;
  WipeOnExit& operator=(const WipeOnExit&) = delete;

 private:
  T* m_data;
  std::size_t m_size;
};

class Digest {
 public:
  explicit Digest(int algorithm) {
    const gcry_error_t error = Gcrypt().md_open(&m_handle, algorithm, 0);
    if (error) throw GcryptError(error);
  }
  ~Digest() { Gcrypt().md_close(m_handle); }
  Digest(const Digest&) = delete;
  Digest& operator=(const Digest&) = delete;
  gcry_md_hd_t Get() const { return m_handle; }

 private:
  gcry_md_hd_t m_handle = nullptr;
};

}  // namespace

std::string BuiltInObfuscationKey() {
  return std::string(reinterpret_cast<const char*>(kBuiltInKey), sizeof kBuiltInKey);
}

void ConfigureCipherFromSalt(EVP::Cipher& cipher, const std::uint8_t* salt, std::size_t salt_size,
                             const std::uint8_t* key, std::size_t key_len) {
  if (salt_size != SALT_SIZE) {
    Log("LHS: salt_size = %zu\nRHS: SALT_SIZE = %zu\n", salt_size, SALT_SIZE);
    AssertFailed(__FILE__, __LINE__, __PRETTY_FUNCTION__, "salt_size==SALT_SIZE");
  }
  EnsureGcryptInitialised();

  const std::size_t UNIQUE_SECRET_SIZE = SALT_SIZE + key_len;
  const std::unique_ptr<std::uint8_t[]> storage(new std::uint8_t[UNIQUE_SECRET_SIZE]);
  std::uint8_t* const unique_secret = storage.get();
  const WipeOnExit<std::uint8_t> wipe_secret(unique_secret, UNIQUE_SECRET_SIZE);
  std::uint8_t* p = unique_secret;
  std::memcpy(p, salt, SALT_SIZE);
  p += SALT_SIZE;
  if (key_len != 0) std::memcpy(p, key, key_len);
  p += key_len;
  CORVO_ASSERT(p == unique_secret + UNIQUE_SECRET_SIZE);

  std::uint8_t digest[kDigestSize];
  const WipeOnExit<std::uint8_t> wipe_digest(digest, sizeof digest);
  {
    const Digest md(GCRY_MD_SHA384);
    Gcrypt().md_write(md.Get(), unique_secret, UNIQUE_SECRET_SIZE);
    const std::size_t digest_len = Gcrypt().md_get_algo_dlen(GCRY_MD_SHA384);
    if (digest_len > sizeof digest) throw std::runtime_error("Digest buffer too small");
    CORVO_ASSERT(digest_len == kDigestSize);
    std::memcpy(digest, Gcrypt().md_read(md.Get(), GCRY_MD_SHA384), digest_len);
  }
  cipher.SetKey(digest, kKeySize);
  cipher.SetIv(digest + kKeySize, kIvSize);
}

std::string UnobfuscatePassphraseImpl(const std::string& text, const std::uint8_t* key,
                                      std::size_t key_len) {
  // One tag character and 16 more; a complete text has at least 33.
  if (text.size() < 17) throw std::runtime_error("Insufficient input for UnobfuscatePassphrase");

  // A text that ends inside the salt field is fatal before anything is decoded,
  // so the decoder never looks past the end of the text.
  const std::size_t salt_size = std::min(text.size() - 1, 2 * SALT_SIZE) / 2;
  CORVO_ASSERT(salt_size == SALT_SIZE);
  std::uint8_t salt[SALT_SIZE];
  HexDecode(text.substr(1, 2 * SALT_SIZE), salt, sizeof salt);

  EVP::Cipher cipher(GCRY_CIPHER_AES256, GCRY_CIPHER_MODE_CBC);
  ConfigureCipherFromSalt(cipher, salt, salt_size, key, key_len);

  const std::vector<std::uint8_t> ciphertext = HexDecode(text.substr(1 + 2 * SALT_SIZE));
  if (cipher.BlockLength() == 0) {
    throw std::runtime_error("Unable to get cipher algorithm block length");
  }
  std::vector<std::uint8_t> plain(ciphertext.size());
  const WipeOnExit<std::uint8_t> wipe_plain(plain.data(), plain.size());
  const std::size_t length =
      cipher.Decrypt(ciphertext.data(), ciphertext.size(), plain.data(), plain.size(), true);
  return std::string(plain.begin(), plain.begin() + static_cast<std::ptrdiff_t>(length));
}

std::string UnobfuscatePassphrase(const std::string& text,
                                  const std::function<std::string()>& customer_key_provider) {
  if (text.empty()) throw std::runtime_error("Insufficient input for UnobfuscatePassphrase");
  char tag = text[0];
  if (tag >= 'a' && tag <= 'z') tag = static_cast<char>(tag - 'a' + 'A');
  if (tag == 'A') return UnobfuscatePassphraseImpl(text, kBuiltInKey, sizeof kBuiltInKey);
  if (tag == 'C') {
    if (!customer_key_provider) throw std::runtime_error("Customer obfuscation key unavailable");
    std::string key = customer_key_provider();
    const WipeOnExit<char> wipe_key(key.data(), key.size());
    return UnobfuscatePassphraseImpl(text, reinterpret_cast<const std::uint8_t*>(key.data()),
                                     key.size());
  }
  throw std::runtime_error("Unknown obfuscation algorithm");
}

}  // namespace corvo
