#include "lib/platform/log.h"

namespace corvo {

void WriteLog(std::FILE* stream, const std::string& text) noexcept {
  std::fwrite(text.data(), 1, text.size(), stream);
  std::fflush(stream);
}

void ReportFormatFailure(std::FILE* stream, const char* format, const char* error) noexcept {
  std::fprintf(stream, "Message '%s' threw '%s'\n", format, error);
  std::fflush(stream);
}

}  // namespace corvo
