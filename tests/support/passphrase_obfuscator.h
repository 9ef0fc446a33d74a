#pragma once
// The storing direction of passphrase obfuscation, for tests only: the device never writes it.

#include <cstdint>
#include <string>
#include <vector>

#include "lib/platform/base/hex.h"
#include "lib/platform/settings/evp_cipher.h"
#include "lib/platform/settings/gcrypt_library.h"
#include "lib/platform/settings/passphrase_obfuscation.h"

namespace corvo::test {

// A random salt; padding fills the last block, each padding byte holding the padding length.
inline std::string ObfuscatePassphrase(char tag, const std::string& key,
                                       const std::string& passphrase) {
  EnsureGcryptInitialised();
  std::uint8_t salt[SALT_SIZE];
  Gcrypt().randomize(salt, sizeof salt, GCRY_STRONG_RANDOM);
  EVP::Cipher cipher(GCRY_CIPHER_AES256, GCRY_CIPHER_MODE_CBC);
  ConfigureCipherFromSalt(cipher, salt, SALT_SIZE,
                          reinterpret_cast<const std::uint8_t*>(key.data()), key.size());
  const std::size_t block = cipher.BlockLength();
  const std::size_t padding = block - passphrase.size() % block;
  std::vector<std::uint8_t> plain(passphrase.begin(), passphrase.end());
  plain.insert(plain.end(), padding, static_cast<std::uint8_t>(padding));
  std::vector<std::uint8_t> encrypted(plain.size());
  cipher.Encrypt(plain.data(), plain.size(), encrypted.data(), encrypted.size());
  return std::string(1, tag) + HexEncode(salt, SALT_SIZE) +
         HexEncode(encrypted.data(), encrypted.size());
}

}  // namespace corvo::test
