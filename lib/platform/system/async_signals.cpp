#include "lib/platform/system/async_signals.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <pthread.h>

#include "lib/platform/base/assert.h"
#include "lib/platform/base/log.h"

namespace corvo {

void FillAsyncSignalSet(sigset_t* set) noexcept {
  sigemptyset(set);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGCHLD, SIGRTMIN + 1, SIGRTMIN + 2}) {
    sigaddset(set, signal);
  }
}

void ConfigureSignals(int how) {
  sigset_t set;
  FillAsyncSignalSet(&set);
  // Anything but the two known values is passed on as invalid so that it
  // fails the same way as a refused call.
  const int operation = how == kBlockSignals     ? SIG_BLOCK
                        : how == kUnblockSignals ? SIG_UNBLOCK
                                                 : -1;
  const int result = pthread_sigmask(operation, &set, nullptr);
  if (result != 0) {
    Log("pthread_sigmask failed: %s\n", std::strerror(result));
    CORVO_ASSERT(result == 0);
  }
}

}  // namespace corvo
