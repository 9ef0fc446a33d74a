// Entry point: linkrig <interface> <action>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <pthread.h>

#include "apps/linkrig/interface_name.h"
#include "apps/linkrig/link_config_command.h"
#include "lib/platform/base/assert.h"
#include "lib/platform/base/log.h"
#include "lib/platform/real_platform.h"

int main(int argc, char** argv) {
  if (argc >= 3) {
    corvo::Log("linkrig: %s %s\n", argv[1], argv[2]);
  } else {
    corvo::Log("linkrig: too few args\n");
  }
  if (argc >= 2 && !corvo::IsUsableInterfaceName(argv[1])) {
    corvo::Log("%s", corvo::kUsage);
    return 1;
  }

  // Blocked before any other thread exists, so that every later thread inherits it.
  sigset_t hangup;
  sigemptyset(&hangup);
  sigaddset(&hangup, SIGHUP);
  const int rc = pthread_sigmask(SIG_BLOCK, &hangup, nullptr);
  if (rc != 0) {
    std::fprintf(stderr, "pthread_sigmask failed: %s\n", std::strerror(rc));
    CORVO_ASSERT(false);
  }

  const corvo::UbootBootEnvironment environment;
  corvo::RealPlatform platform;
  return corvo::LinkConfigCommand(environment, platform.Get()).Run(argc, argv);
}
