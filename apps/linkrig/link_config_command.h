#pragma once
// The command's front end: checks the arguments and runs the steps for one
// (interface, action) pair.

#include <optional>
#include <string>

#include "apps/steps/run_context.h"

namespace corvo {

constexpr const char* kUsage =
    "Usage: linkrig <interface> init|add|start|stop|reconfigure|checklink\n";

class LinkConfigCommand {
 public:
  explicit LinkConfigCommand(Platform& platform) : m_platform(platform) {}

  // Everything after the argument echo and the signal set-up; returns the exit status.
  int Run(int argc, const char* const* argv);

 private:
  int Dispatch(const std::string& ifname, const std::string& action);
  int Act(const std::string& ifname, const std::string& action);
  // Makes the updates requested for the interface and its VLANs while the lock is free; their
  // status (2 when one failed), or nothing when another run holds the lock.
  std::optional<int> MakeRequestedUpdates(const std::string& ifname);
  int Start(const RunContext& run);
  int Stop(const RunContext& run);
  int Reconfigure(const RunContext& run);
  int Update(const RunContext& run);
  int CheckLink(const std::string& ifname);
  bool IsSupplicantInterface(const std::string& ifname);

  Platform& m_platform;
};

// What the command does from its start: the echo of its arguments, the check
// of the interface name, the signal mask, and the run. Returns the exit status.
int RunLinkrig(int argc, const char* const* argv, Platform& platform);

}  // namespace corvo
