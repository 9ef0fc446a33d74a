#include "lib/platform/settings/evp_cipher.h"

#include <cstring>
#include <mutex>

#include "lib/platform/settings/gcrypt_library.h"

namespace corvo {

void EnsureGcryptInitialised() {
  static std::once_flag once;
  std::call_once(once, [] {
    if (Gcrypt().check_version(GCRYPT_VERSION) == nullptr) {
      throw std::runtime_error("libgcrypt is older than the version built against");
    }
    // Another library in the process may have finished the set-up already.
    if (Gcrypt().control(GCRYCTL_INITIALIZATION_FINISHED_P)) return;
    // Nothing here asks for secure memory; without this libgcrypt warns on stderr.
    Gcrypt().control(GCRYCTL_DISABLE_SECMEM, 0);
    Gcrypt().control(GCRYCTL_INITIALIZATION_FINISHED, 0);
  });
}

GcryptError::GcryptError(unsigned int error)
    : std::runtime_error(Gcrypt().strerror(error)), m_error(error) {}

namespace EVP {

namespace {

void Wipe(std::vector<std::uint8_t>& buffer) {
  if (!buffer.empty()) explicit_bzero(buffer.data(), buffer.size());
  buffer.clear();
}

// Closes the handle on every path out of an operation.
class Handle {
 public:
  Handle(int algorithm, int mode) {
    const gcry_error_t error = Gcrypt().cipher_open(&m_handle, algorithm, mode, 0);
    if (error) throw GcryptError(error);
  }
  ~Handle() { Gcrypt().cipher_close(m_handle); }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  gcry_cipher_hd_t Get() const { return m_handle; }

 private:
  gcry_cipher_hd_t m_handle = nullptr;
};

void Check(gcry_error_t error) {
  if (error) throw GcryptError(error);
}

}  // namespace

Cipher::Cipher(int algorithm, int mode) : m_algorithm(algorithm), m_mode(mode) {
  EnsureGcryptInitialised();
}

Cipher::~Cipher() {
  Wipe(m_key);
  Wipe(m_iv);
}

std::size_t Cipher::BlockLength() const { return Gcrypt().cipher_get_algo_blklen(m_algorithm); }

void Cipher::SetKey(const std::uint8_t* key, std::size_t size) {
  Wipe(m_key);
  m_key.assign(key, key + size);
}

void Cipher::SetIv(const std::uint8_t* iv, std::size_t size) {
  Wipe(m_iv);
  m_iv.assign(iv, iv + size);
}

std::size_t Cipher::Run(bool encrypt, const std::uint8_t* in, std::size_t in_size,
                        std::uint8_t* out, std::size_t out_size) {
  Handle handle(m_algorithm, m_mode);
  Check(Gcrypt().cipher_setkey(handle.Get(), m_key.data(), m_key.size()));
  if (m_mode == GCRY_CIPHER_MODE_CTR) {
    Check(Gcrypt().cipher_setctr(handle.Get(), m_iv.data(), m_iv.size()));
  } else {
    Check(Gcrypt().cipher_setiv(handle.Get(), m_iv.data(), m_iv.size()));
  }
  // A null input would make libgcrypt work in place on the output.
  if (in_size == 0) return 0;
  if (encrypt) {
    Check(Gcrypt().cipher_encrypt(handle.Get(), out, out_size, in, in_size));
  } else {
    Check(Gcrypt().cipher_decrypt(handle.Get(), out, out_size, in, in_size));
  }
  return in_size;
}

std::size_t Cipher::Decrypt(const std::uint8_t* in, std::size_t in_size, std::uint8_t* out,
                            std::size_t out_size, bool remove_padding) {
  const std::size_t size = Run(false, in, in_size, out, out_size);
  if (!remove_padding) return size;
  // Only the length byte is checked: the other padding bytes carry no rule.
  const std::size_t padding = size == 0 ? 1 : out[size - 1];
  if (padding > size) throw std::runtime_error("Input is not correctly encrypted");
  return size - padding;
}

std::size_t Cipher::Encrypt(const std::uint8_t* in, std::size_t in_size, std::uint8_t* out,
                            std::size_t out_size) {
  return Run(true, in, in_size, out, out_size);
}

}  // namespace EVP
}  // namespace corvo
