#include "lib/platform/settings/gnutls_library.h"

#include "lib/platform/settings/loaded_library.h"

namespace corvo {

namespace {

GnutlsLibrary Load() {
  void* handle = OpenLibrary(LINKRIG_GNUTLS_SONAME, "GnuTLS");
  GnutlsLibrary library;
#define CORVO_GNUTLS_LOAD(name) \
  library.name =                \
      reinterpret_cast<decltype(library.name)>(LibrarySymbol(handle, "gnutls_" #name, "GnuTLS"));
  CORVO_GNUTLS_FUNCTIONS(CORVO_GNUTLS_LOAD)
#undef CORVO_GNUTLS_LOAD
  library.x509_crt_get_activation_time =
      reinterpret_cast<decltype(library.x509_crt_get_activation_time)>(
          LibrarySymbol(handle, "gnutls_x509_crt_get_activation_time", "GnuTLS"));
  // gnutls_free is a variable holding the deallocator.
  library.free =
      *static_cast<gnutls_free_function*>(LibrarySymbol(handle, "gnutls_free", "GnuTLS"));
  return library;
}

}  // namespace

const GnutlsLibrary& Gnutls() {
  static const GnutlsLibrary library = Load();
  return library;
}

}  // namespace corvo
