#pragma once

#include <sched.h>
#include <sys/mount.h>

namespace corvo {

// For a test's child: assertions also write to /dev/kmsg, which a private mount of
// `cover` hides from this machine's kernel log. False without the rights (not root).
inline bool KeepKernelLogPrivate(const char* cover = "/dev/null") {
  return unshare(CLONE_NEWNS) == 0 &&
         mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount(cover, "/dev/kmsg", nullptr, MS_BIND, nullptr) == 0;
}

}  // namespace corvo
