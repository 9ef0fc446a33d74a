#include "lib/platform/base/assert.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace corvo {

namespace {

// Source files are named without their extension, as the player's logs always have.
std::string SourceName(const char* file) {
  std::string name(file);
  const auto slash = name.find_last_of('/');
  const auto dot = name.find_last_of('.');
  if (dot != std::string::npos && (slash == std::string::npos || dot > slash)) {
    name.erase(dot);
  }
  return name;
}

}  // namespace

void AssertFailed(const char* file, int line, const char* function, const char* expression) {
  char what[1024];
  std::snprintf(what, sizeof what, "%s:%d: %s: Assertion `%s' failed.", SourceName(file).c_str(),
                line, function, expression);
  char record[1200];
  const int len = std::snprintf(record, sizeof record, "<2>User space assert from process %d: %s\n",
                                static_cast<int>(getpid()), what);
  const int fd = open("/dev/kmsg", O_WRONLY | O_CLOEXEC);
  if (fd >= 0 && len > 0) {
    const ssize_t ignored = write(fd, record, static_cast<size_t>(len));
    (void)ignored;
    close(fd);
  }
  std::fprintf(stderr, "User space assert from process %d: %s\n", static_cast<int>(getpid()), what);
  std::fflush(stderr);
  std::abort();
}

}  // namespace corvo
