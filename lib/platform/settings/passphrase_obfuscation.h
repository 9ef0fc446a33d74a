#pragma once
// Recovery of the wireless passphrases kept obfuscated in the registry.
//
// Stored text: one tag character ("A"/"a" built-in key, "C"/"c" customer key),
// the 16-byte salt as 32 hexadecimal digits, then the AES-256-CBC ciphertext
// in hexadecimal. Key and IV are SHA-384(salt || key): bytes 0-31 and 32-47.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "lib/platform/settings/evp_cipher.h"

namespace corvo {

constexpr std::size_t SALT_SIZE = 16;

// An empty provider means no customer key exists: only "A" texts can be read.
std::string UnobfuscatePassphrase(const std::string& text,
                                  const std::function<std::string()>& customer_key_provider);

// Inner steps, also used by the tests and the developer tools.
std::string UnobfuscatePassphraseImpl(const std::string& text, const std::uint8_t* key,
                                      std::size_t key_len);
void ConfigureCipherFromSalt(EVP::Cipher& cipher, const std::uint8_t* salt, std::size_t salt_size,
                             const std::uint8_t* key, std::size_t key_len);
// The 64 bytes every device shares for "A" texts.
std::string BuiltInObfuscationKey();

}  // namespace corvo
