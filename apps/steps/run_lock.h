#pragma once
// Runs that overlap take turns. A run holds the lock of its interface for its
// whole action: a VLAN sub-interface shares its parent's (the parent's
// configuration deletes and re-creates its VLANs), and "host" has one of its
// own, which every host-wide change (forwarding, NAT, host name) also takes.
// Locks are flock(2)s on files under /var/run, so a run that is killed lets
// go of them. Runs on unrelated interfaces go on side by side.
//
// An "update" never waits for an interface's lock: dhcpcd runs it from its hook and waits for
// it, while the run holding the lock may be waiting for dhcpcd. It leaves a request and makes
// the update only if the lock is free; every run lets go of the lock before it makes the
// requests it finds, so a request is never left behind.

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "lib/platform/platform.h"

namespace corvo {

// Longer than any run holds a lock for: its own waits are all bounded.
constexpr std::chrono::seconds kLockWait{120};

// "/var/run/linkrig-IF.lock" for the interface, its parent for a VLAN.
std::string RunLockPath(const std::string& ifname);

// Takes the lock, saying once on standard error when it has to wait; raises
// "Gave up waiting for PATH after 120 s" when the wait is over.
std::unique_ptr<HeldLock> TakeRunLock(Platform& platform, const std::string& ifname);

// The lock when no other run holds it, or nothing.
std::unique_ptr<HeldLock> TryRunLock(Platform& platform, const std::string& ifname);

// The lock of host-wide changes (that of "host").
std::unique_ptr<HeldLock> TakeHostLock(Platform& platform);

// Leaves a request ("/var/run/linkrig-IF.update") for an update of the interface.
void RequestUpdate(Platform& platform, const std::string& ifname);

// The interfaces with a request that the holder of ifname's lock makes: ifname's parent and
// its VLANs, each request taken away as it is returned.
std::vector<std::string> TakeUpdateRequests(Platform& platform, const std::string& ifname);

}  // namespace corvo
