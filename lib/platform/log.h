#pragma once
// Diagnostics in printf style that never throw: a message that cannot be
// formatted is replaced by a line naming it and the error.

#include <cstdio>
#include <exception>
#include <fmt/printf.h>

namespace corvo {

void WriteLog(std::FILE* stream, const std::string& text) noexcept;
void ReportFormatFailure(std::FILE* stream, const char* format, const char* error) noexcept;

template <typename... Args>
void Print(std::FILE* stream, const char* format, const Args&... args) noexcept {
  try {
    WriteLog(stream, fmt::sprintf(format, args...));
  } catch (const std::exception& e) {
    ReportFormatFailure(stream, format, e.what());
  } catch (...) {
    ReportFormatFailure(stream, format, "unknown exception");
  }
}

// Standard error: every diagnostic line of the command.
template <typename... Args>
void Log(const char* format, const Args&... args) noexcept {
  Print(stderr, format, args...);
}

}  // namespace corvo
