// A daemon's PID file, kept in a memory file so that nothing is left behind.

#include <cerrno>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include "lib/platform/system/process_control.h"
#include "tests/fuzz/fuzz_support.h"

using namespace corvo;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const int fd = memfd_create("pid_file_fuzz", MFD_CLOEXEC);
  static const std::string path = "/proc/self/fd/" + std::to_string(fd);
  fuzz::Check(fd >= 0 && ftruncate(fd, 0) == 0, "memory file");
  fuzz::Check(pwrite(fd, data, size, 0) == static_cast<ssize_t>(size), "memory file write");
  errno = 0;
  const pid_t pid = ReadPidFile(path, "udhcpd");
  fuzz::Check(pid > 0 || (pid == -1 && errno == ESRCH), "neither a PID nor ESRCH");
  return 0;
}
