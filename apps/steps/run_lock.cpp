#include "apps/steps/run_lock.h"

#include <stdexcept>

#include <fmt/format.h>

#include "lib/platform/base/interface_names.h"

namespace corvo {

namespace {

constexpr char kRunDirectory[] = "/var/run";
constexpr char kPrefix[] = "linkrig-";
constexpr char kUpdateSuffix[] = ".update";

// The interface whose lock a VLAN shares.
std::string LockOwner(const std::string& ifname) { return ifname.substr(0, ifname.find('.')); }

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

std::string RunLockPath(const std::string& ifname) {
  return fmt::format("{}/{}{}.lock", kRunDirectory, kPrefix, LockOwner(ifname));
}

std::unique_ptr<HeldLock> TakeRunLock(Platform& platform, const std::string& ifname) {
  const std::string path = RunLockPath(ifname);
  const auto asked = platform.clock.Now();
  bool waited = false;
  auto lock = platform.locks.Acquire(path, kLockWait, [&] {
    platform.log.Print("linkrig: waiting for another run to release %s\n", path);
    waited = true;
  });
  if (!lock) {
    throw std::runtime_error(
        fmt::format("Gave up waiting for {} after {} s", path, kLockWait.count()));
  }
  // How long, for whoever reads a slow boot's log.
  if (waited) {
    const std::chrono::duration<double> took = platform.clock.Now() - asked;
    platform.log.Print("linkrig: waited %.1f s for %s\n", took.count(), path);
  }
  return lock;
}

std::unique_ptr<HeldLock> TryRunLock(Platform& platform, const std::string& ifname) {
  return platform.locks.Acquire(RunLockPath(ifname), std::chrono::milliseconds(0), [] {});
}

std::unique_ptr<HeldLock> TakeHostLock(Platform& platform) {
  return TakeRunLock(platform, kHost);
}

void RequestUpdate(Platform& platform, const std::string& ifname) {
  platform.files.Replace(fmt::format("{}/{}{}{}", kRunDirectory, kPrefix, ifname, kUpdateSuffix),
                         "", 0644);
}

std::vector<std::string> TakeUpdateRequests(Platform& platform, const std::string& ifname) {
  std::vector<std::string> requested;
  for (const std::string& name : platform.files.List(kRunDirectory)) {
    if (name.rfind(kPrefix, 0) != 0 || !EndsWith(name, kUpdateSuffix)) continue;
    const std::string target =
        name.substr(sizeof kPrefix - 1, name.size() - (sizeof kPrefix - 1) - (sizeof kUpdateSuffix - 1));
    if (target.empty() || LockOwner(target) != LockOwner(ifname)) continue;
    platform.files.Remove(std::string(kRunDirectory) + "/" + name);
    requested.push_back(target);
  }
  return requested;
}

}  // namespace corvo
