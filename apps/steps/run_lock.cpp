#include "apps/steps/run_lock.h"

#include <stdexcept>

#include <fmt/format.h>

#include "lib/platform/base/interface_names.h"

namespace corvo {

std::string RunLockPath(const std::string& ifname) {
  return "/var/run/linkrig-" + ifname.substr(0, ifname.find('.')) + ".lock";
}

std::unique_ptr<HeldLock> TakeRunLock(Platform& platform, const std::string& ifname) {
  const std::string path = RunLockPath(ifname);
  auto lock = platform.locks.Acquire(path, kLockWait, [&] {
    platform.log.Print("linkrig: waiting for another run to release %s\n", path);
  });
  if (!lock) {
    throw std::runtime_error(
        fmt::format("Gave up waiting for {} after {} s", path, kLockWait.count()));
  }
  return lock;
}

std::unique_ptr<HeldLock> TakeHostLock(Platform& platform) {
  return TakeRunLock(platform, kHost);
}

}  // namespace corvo
