#pragma once
// What the fuzz targets share. A parser may refuse input only with a message it documents;
// any other escape is a finding, as a crash or a sanitizer report would be.

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <initializer_list>
#include <string>

#include <sanitizer/common_interface_defs.h>

#include "lib/platform/base/log.h"

namespace corvo::fuzz {

inline std::string Text(const std::uint8_t* data, std::size_t size) {
  return std::string(reinterpret_cast<const char*>(data), size);
}

// Reported where the sanitizers report, which stays open when libFuzzer closes standard error.
[[noreturn]] inline void Finding(const char* what) {
  __sanitizer_report_error_summary((std::string("fuzz finding: ") + what).c_str());
  std::abort();
}

inline void Check(bool holds, const char* what) {
  if (!holds) Finding(what);
}

// Runs parse; an exception passes only when its message starts with one of `allowed`.
template <typename Parse>
void Expect(Parse parse, std::initializer_list<const char*> allowed = {}) {
  try {
    parse();
  } catch (const std::exception& e) {
    for (const char* message : allowed) {
      if (std::string(e.what()).rfind(message, 0) == 0) return;
    }
    Finding(e.what());
  }
}

struct NullSink : LogSink {
  void Write(const std::string&) noexcept override {}
};

}  // namespace corvo::fuzz
