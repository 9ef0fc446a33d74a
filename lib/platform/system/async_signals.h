#pragma once
// A fixed set of asynchronous signals that the process may keep blocked in
// every thread; every child unblocks it before exec, so that the programs
// linkrig starts get them.

#include <csignal>

namespace corvo {

constexpr int kBlockSignals = 0;
constexpr int kUnblockSignals = 1;

// SIGTERM, SIGINT, SIGHUP, SIGCHLD, SIGRTMIN+1 and SIGRTMIN+2.
void FillAsyncSignalSet(sigset_t* set) noexcept;

// Blocks (kBlockSignals) or unblocks (kUnblockSignals) the set for the calling
// thread. Aborts on failure.
void ConfigureSignals(int how);

}  // namespace corvo
