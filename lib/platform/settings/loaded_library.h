#pragma once
// Libraries loaded when first used, rather than linked: only some runs need
// them, and a linked library costs every run its loading, its relocations and
// its initialisation.

namespace corvo {

// Opens the library by its SONAME; throws std::runtime_error naming it (what).
void* OpenLibrary(const char* soname, const char* what);

// One of its functions; throws std::runtime_error when it lacks it.
void* LibrarySymbol(void* handle, const char* name, const char* what);

}  // namespace corvo
