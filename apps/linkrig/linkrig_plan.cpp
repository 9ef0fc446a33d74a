// linkrig-plan <interface> <action>: what the same run of linkrig would do,
// without doing it. It reads the registry, the boot environment, the kernel's
// links, addresses and routes and the supplicant's state for real, runs the
// same front end and steps, and prints every change they would make, in order,
// one a line on standard output; the run's own messages go to standard error.
// It exits with the status the run would have had. The run goes through a recorder over an
// overlay over the real platform: the recorder makes the lines, the overlay keeps the
// changes from the player and answers for them.

#include <cstdio>
#include <string>
#include <vector>

#include "apps/linkrig/link_config_command.h"
#include "lib/platform/overlay_platform.h"
#include "lib/platform/real_platform.h"
#include "lib/platform/recording_platform.h"

namespace {

constexpr char kAssumed[] =
    "# Assumed: every program exits with status 0, the supplicant takes every change,\n"
    "# and no time server is asked.\n";

// Where only a real run could know, the plan assumes: a plan asks no time server.
class NoTimeServer : public corvo::NetworkTimeSource {
 public:
  corvo::NetworkTimeResult Query(const std::string&) override {
    return {std::nullopt, "a plan asks no time server"};
  }
};

// One line for each change; the same wait many times over is one line.
void PrintEffects(const std::vector<std::string>& effects) {
  for (std::size_t i = 0; i < effects.size();) {
    std::size_t same = 1;
    while (i + same < effects.size() && effects[i + same] == effects[i] &&
           effects[i].rfind("sleep ", 0) == 0) {
      ++same;
    }
    if (same > 1) {
      std::printf("%s (%zu times)\n", effects[i].c_str(), same);
    } else {
      std::printf("%s\n", effects[i].c_str());
    }
    i += same;
  }
}

}  // namespace

int main(int argc, char** argv) {
  corvo::RealPlatform real;
  corvo::Platform& r = real.Get();
  NoTimeServer no_time_server;
  corvo::Platform player{r.programs,   r.network,      r.files,    r.locks,      r.clock,
                         r.system_clock, r.host_names, no_time_server, r.settings, r.supplicant,
                         r.hardware,     r.log,        r.out};
  corvo::OverlayPlatform overlay(player);
  corvo::RecordingPlatform plan(overlay);

  const int status = corvo::RunLinkrig(argc, argv, plan.Get());

  std::string title = "# linkrig-plan";
  for (int i = 1; i < argc; ++i) title += std::string(" ") + argv[i];
  std::printf("%s\n%s", plan.Redact(title).c_str(), kAssumed);
  PrintEffects(plan.Effects());
  std::printf("# exit status %d\n", status);
  std::fflush(stdout);
  std::fputs(plan.Output().c_str(), stderr);
  std::fputs(plan.Log().c_str(), stderr);
  return status;
}
