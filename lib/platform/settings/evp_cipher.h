#pragma once
// A symmetric cipher over libgcrypt: algorithm and mode numbers, key and IV.
// Key and IV are wiped when replaced and when the cipher goes.

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace corvo {

// Makes sure libgcrypt is initialised (once per process).
void EnsureGcryptInitialised();

// A libgcrypt failure; the message is libgcrypt's own text for the error.
class GcryptError : public std::runtime_error {
 public:
  explicit GcryptError(unsigned int error);
  unsigned int Code() const noexcept { return m_error; }

 private:
  unsigned int m_error;
};

namespace EVP {

class Cipher {
 public:
  Cipher(int algorithm, int mode);
  ~Cipher();
  Cipher(const Cipher&) = delete;
  Cipher& operator=(const Cipher&) = delete;

  int Algorithm() const { return m_algorithm; }
  int Mode() const { return m_mode; }
  // 0 when libgcrypt does not know the algorithm.
  std::size_t BlockLength() const;

  void SetKey(const std::uint8_t* key, std::size_t size);
  // The counter in CTR mode.
  void SetIv(const std::uint8_t* iv, std::size_t size);

  // Returns the number of output bytes. With remove_padding the last decrypted
  // byte gives the number of padding bytes to drop; a count larger than the
  // data raises "Input is not correctly encrypted".
  std::size_t Decrypt(const std::uint8_t* in, std::size_t in_size, std::uint8_t* out,
                      std::size_t out_size, bool remove_padding);
  // No padding is added: the input must already fill whole blocks.
  std::size_t Encrypt(const std::uint8_t* in, std::size_t in_size, std::uint8_t* out,
                      std::size_t out_size);

 private:
  std::size_t Run(bool encrypt, const std::uint8_t* in, std::size_t in_size, std::uint8_t* out,
                  std::size_t out_size);

  int m_algorithm;
  int m_mode;
  std::vector<std::uint8_t> m_key;
  std::vector<std::uint8_t> m_iv;
};

}  // namespace EVP
}  // namespace corvo
