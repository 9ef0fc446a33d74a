#pragma once

#include <sched.h>
#include <sys/mount.h>

namespace corvo {

// For the child of a death test: assertions write their line to /dev/kmsg by
// design, and the kernel log of the machine running the tests is no place for
// it. A mount namespace of its own with /dev/null over /dev/kmsg keeps it out;
// without the rights for that (not root) the line gets through.
inline void KeepKernelLogPrivate() {
  if (unshare(CLONE_NEWNS) != 0) return;
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return;
  mount("/dev/null", "/dev/kmsg", nullptr, MS_BIND, nullptr);
}

}  // namespace corvo
