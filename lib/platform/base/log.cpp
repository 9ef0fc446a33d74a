#include "lib/platform/base/log.h"

namespace corvo {

void LogSink::FormatFailed(const char* format, const char* error) noexcept {
  // snprintf into a fixed buffer: this path must not fail again.
  char line[512];
  const int length = std::snprintf(line, sizeof line, "Message '%s' threw '%s'\n", format, error);
  if (length <= 0) return;
  try {
    const std::size_t size = static_cast<std::size_t>(length);
    Write(std::string(line, size < sizeof line ? size : sizeof line - 1));
  } catch (...) {
  }
}

void StreamSink::Write(const std::string& text) noexcept {
  std::fwrite(text.data(), 1, text.size(), m_stream);
  std::fflush(m_stream);
}

LogSink& StandardError() {
  static StreamSink sink(stderr);
  return sink;
}

LogSink& StandardOutput() {
  static StreamSink sink(stdout);
  return sink;
}

}  // namespace corvo
