#pragma once

#include <sched.h>
#include <sys/mount.h>

namespace corvo {

// For a test's child: assertions write their line to /dev/kmsg by design, and
// the kernel log of the machine running the tests is no place for it. A mount
// namespace of its own with `cover` (by default /dev/null) over /dev/kmsg
// keeps it out; without the rights for that (not root) the line gets through
// and the result is false.
inline bool KeepKernelLogPrivate(const char* cover = "/dev/null") {
  return unshare(CLONE_NEWNS) == 0 &&
         mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount(cover, "/dev/kmsg", nullptr, MS_BIND, nullptr) == 0;
}

}  // namespace corvo
