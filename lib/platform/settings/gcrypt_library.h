#pragma once

// libgcrypt, loaded at its first use: only stored passphrases need it, and linked in, its
// tables of every cipher and digest would more than double the size of the program.

#include <gcrypt.h>

namespace corvo {

// The functions used, each as gcry_NAME.
#define CORVO_GCRYPT_FUNCTIONS(X)                                                                  \
  X(check_version)                                                                                 \
  X(control) X(strerror) X(cipher_open) X(cipher_close) X(cipher_get_algo_blklen) X(cipher_setkey) \
      X(cipher_setiv) X(cipher_setctr) X(cipher_encrypt) X(cipher_decrypt) X(md_open) X(md_close)  \
          X(md_write) X(md_read) X(md_get_algo_dlen) X(randomize)

struct GcryptLibrary {
#define CORVO_GCRYPT_MEMBER(name) decltype(&::gcry_##name) name;
  CORVO_GCRYPT_FUNCTIONS(CORVO_GCRYPT_MEMBER)
#undef CORVO_GCRYPT_MEMBER
};

// Loads the library on the first call; throws std::runtime_error when it or one of the
// functions is missing. EnsureGcryptInitialised() sets it up for use.
const GcryptLibrary& Gcrypt();

}  // namespace corvo
