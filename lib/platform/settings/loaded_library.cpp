#include "lib/platform/settings/loaded_library.h"

#include <dlfcn.h>

#include <stdexcept>
#include <string>

namespace corvo {

void* OpenLibrary(const char* soname, const char* what) {
  // Never unloaded: the run is short, and what the library allocated may
  // outlive any one call.
  void* handle = dlopen(soname, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr)
    throw std::runtime_error(std::string("Cannot load ") + what + ": " + dlerror());
  return handle;
}

void* LibrarySymbol(void* handle, const char* name, const char* what) {
  void* symbol = dlsym(handle, name);
  if (symbol == nullptr) {
    throw std::runtime_error(std::string(what) + " lacks " + name + ": " + dlerror());
  }
  return symbol;
}

}  // namespace corvo
