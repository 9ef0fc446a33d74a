#pragma once

// GnuTLS, loaded at its first use: only stored certificates and keys need it, and a linked
// GnuTLS would cost every run its loading, its relocations and its global initialisation.

#include <cstdint>

#include <gnutls/gnutls.h>
#include <gnutls/pkcs12.h>
#include <gnutls/x509.h>

namespace corvo {

// The functions used, each as gnutls_NAME.
#define CORVO_GNUTLS_FUNCTIONS(X)                                                                \
  X(base64_decode2)                                                                              \
  X(strerror) X(x509_crt_init) X(x509_crt_deinit) X(x509_crt_import)                             \
      X(x509_crt_get_subject_alt_name) X(x509_crt_get_dn_by_oid) X(x509_crt_export2)              \
          X(pkcs12_init) X(pkcs12_deinit) X(pkcs12_import) X(pkcs12_get_bag) X(pkcs12_bag_init)  \
              X(pkcs12_bag_deinit) X(pkcs12_bag_get_type) X(pkcs12_bag_decrypt)                  \
                  X(pkcs12_bag_get_count) X(pkcs12_bag_get_key_id) X(pkcs12_bag_get_data)

// time_t as the library was built, which need not be this program's: Debian 12's 32-bit
// libraries keep a 32-bit time_t, while linkrig's is 64 bits wide on every target.
#ifndef LINKRIG_LIBRARY_TIME_BITS
#error "LINKRIG_LIBRARY_TIME_BITS (cmake/Time.cmake) tells the width of time_t in GnuTLS"
#elif LINKRIG_LIBRARY_TIME_BITS == 32
using GnutlsTime = std::int32_t;
#else
using GnutlsTime = std::int64_t;
#endif
// A 32-bit GnuTLS answers every date from 2038 on with this one (2037-12-31 23:23:23).
constexpr GnutlsTime kGnutlsLastTime32 = 2145914603;

struct GnutlsLibrary {
#define CORVO_GNUTLS_MEMBER(name) decltype(&::gnutls_##name) name;
  CORVO_GNUTLS_FUNCTIONS(CORVO_GNUTLS_MEMBER)
#undef CORVO_GNUTLS_MEMBER
  // Declared with the library's width of time_t, not with the header's.
  GnutlsTime (*x509_crt_get_activation_time)(gnutls_x509_crt_t);
  // The library's deallocator (gnutls_free is a variable holding it).
  gnutls_free_function free;
};

// Loads the library on the first call; throws std::runtime_error when it or one of the
// functions is missing.
const GnutlsLibrary& Gnutls();

}  // namespace corvo
