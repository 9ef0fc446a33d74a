// Entry point: linkrig <interface> <action>

#include "apps/linkrig/link_config_command.h"
#include "lib/platform/real_platform.h"

int main(int argc, char** argv) {
  corvo::RealPlatform platform;
  return corvo::RunLinkrig(argc, argv, platform.Get(), /*keep_record=*/true);
}
