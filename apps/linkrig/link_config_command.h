#pragma once
// The command's front end: checks the arguments and runs the steps for one
// (interface, action) pair.

#include <optional>
#include <string>

#include "apps/linkrig/safe_apply.h"
#include "apps/steps/run_context.h"

namespace corvo {

constexpr const char* kUsage =
    "Usage: linkrig <interface> init|add|start|stop|reconfigure|checklink\n";

class LinkConfigCommand : private Actions {
 public:
  // keep_record: each changing run leaves its record (run_record.h); a plan leaves none.
  explicit LinkConfigCommand(Platform& platform, bool keep_record = false)
      : m_platform(platform), m_keep_record(keep_record) {}

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
  // The changing actions, with their record and trial.
  int Recorded(const std::string& ifname, const std::string& action);
  int Apply(Platform& platform, const std::string& ifname, const std::string& action) override;
  void LockReleased(const std::string& ifname) override { MakeRequestedUpdates(ifname); }

  Platform& m_platform;
  bool m_keep_record;
};

// What the command does from its start: the echo of its arguments, the check
// of the interface name, the signal mask, and the run. Returns the exit status.
int RunLinkrig(int argc, const char* const* argv, Platform& platform, bool keep_record = false);

}  // namespace corvo
