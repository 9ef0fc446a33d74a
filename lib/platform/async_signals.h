#pragma once
// The process keeps a fixed set of asynchronous signals blocked in every
// thread (a dedicated thread collects them); children unblock it before exec.

namespace corvo {

constexpr int kBlockSignals = 0;
constexpr int kUnblockSignals = 1;

// Blocks (kBlockSignals) or unblocks (kUnblockSignals) SIGTERM, SIGINT, SIGHUP,
// SIGCHLD, SIGRTMIN+1 and SIGRTMIN+2 for the calling thread. Aborts on failure.
void ConfigureSignals(int how);

}  // namespace corvo
