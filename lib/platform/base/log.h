#pragma once
// Diagnostics in printf style that never throw: a message that cannot be
// formatted is replaced by a line naming it and the error.

#include <cstdio>
#include <exception>
#include <string>

#include <fmt/printf.h>

namespace corvo {

// Where lines of text go: standard error for diagnostics, standard output for
// the few answers the command gives there.
class LogSink {
 public:
  virtual ~LogSink() = default;
  virtual void Write(const std::string& text) noexcept = 0;

  template <typename... Args>
  void Print(const char* format, const Args&... args) noexcept {
    try {
      Write(fmt::sprintf(format, args...));
    } catch (const std::exception& e) {
      FormatFailed(format, e.what());
    } catch (...) {
      FormatFailed(format, "unknown exception");
    }
  }

 private:
  void FormatFailed(const char* format, const char* error) noexcept;
};

// A C stream, flushed after every write.
class StreamSink : public LogSink {
 public:
  explicit StreamSink(std::FILE* stream) : m_stream(stream) {}
  void Write(const std::string& text) noexcept override;

 private:
  std::FILE* m_stream;
};

LogSink& StandardError();
LogSink& StandardOutput();

// Standard error, for the layers below the steps.
template <typename... Args>
void Log(const char* format, const Args&... args) noexcept {
  StandardError().Print(format, args...);
}

}  // namespace corvo
