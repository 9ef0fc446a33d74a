#include "lib/platform/settings/gcrypt_library.h"

#include "lib/platform/settings/loaded_library.h"

namespace corvo {

namespace {

GcryptLibrary Load() {
  void* handle = OpenLibrary(LINKRIG_GCRYPT_SONAME, "libgcrypt");
  GcryptLibrary library;
#define CORVO_GCRYPT_LOAD(name) \
  library.name =                \
      reinterpret_cast<decltype(library.name)>(LibrarySymbol(handle, "gcry_" #name, "libgcrypt"));
  CORVO_GCRYPT_FUNCTIONS(CORVO_GCRYPT_LOAD)
#undef CORVO_GCRYPT_LOAD
  return library;
}

}  // namespace

const GcryptLibrary& Gcrypt() {
  static const GcryptLibrary library = Load();
  return library;
}

}  // namespace corvo
