#include "lib/platform/base/errno_exception.h"

#include <cstring>

namespace corvo {

namespace {

std::string Describe(int err, const std::string& context) {
  char buffer[256];
  const char* text = strerror_r(err, buffer, sizeof buffer);  // GNU variant
  return context.empty() ? std::string(text) : context + ": " + text;
}

}  // namespace

ErrnoException::ErrnoException(int err, const std::string& context)
    : std::runtime_error(Describe(err, context)), m_errno(err), m_context(context) {}

}  // namespace corvo
