#pragma once
// Changed settings are tried, and kept only when the player can still reach its management
// server through the port. With "confirm_target" stored, a start or reconfigure of the wired
// or wireless port whose settings differ from the port's known-good set leaves a watcher (this
// program again, with a hidden action) that tries the target for "confirm_seconds": reached,
// the settings become known-good; not reached, the known-good set is applied and tried; reached
// then, the change is rolled back and its fingerprint rejected; still not, the network is at
// fault and the stored settings are applied again, "not confirmed". Every changing run leaves
// a record (run_record.h).

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "apps/linkrig/run_record.h"
#include "apps/linkrig/settings_set.h"
#include "lib/platform/platform.h"
#include "lib/platform/settings/interface_reader.h"

namespace corvo {

// The watcher's action: not one of the command's own.
constexpr char kConfirmAction[] = "confirm-trial";

struct KeptSet {
  std::string fingerprint;
  std::vector<Reading> readings;  // as stored; a rejected set keeps its keys alone
};

struct PendingTrial {
  KeptSet set;
  std::string started;
  unsigned int boots = 0;  // starts that found it pending
};

// "/var/lib/linkrig/IF.json" (0600: it holds stored secrets as stored).
struct KnownGood {
  std::optional<KeptSet> good;
  std::vector<KeptSet> rejected;
  std::optional<PendingTrial> pending;
};

std::string KnownGoodPath(const std::string& ifname);
// A file that cannot be read or parsed is said in one line and taken as absent.
KnownGood LoadKnownGood(Platform& platform, const std::string& ifname);
// False, after one line, when the file cannot be written.
bool SaveKnownGood(Platform& platform, const std::string& ifname, const KnownGood& known);

// What the command does to run an action, for the trial to call.
class Actions {
 public:
  virtual ~Actions() = default;
  // Runs the action's steps for the interface on the platform given.
  virtual int Apply(Platform& platform, const std::string& ifname, const std::string& action) = 0;
  // Called after the run lock was let go.
  virtual void LockReleased(const std::string& ifname) = 0;
};

class SafeApply {
 public:
  // keep_record: write the run's record (not in a plan).
  SafeApply(Platform& platform, Actions& actions, bool keep_record)
      : m_platform(platform), m_actions(actions), m_keep_record(keep_record) {}

  // A changing action, under the run lock; port: the wired or wireless port.
  int Run(const std::string& ifname, const std::string& action, bool port);
  // The watcher: takes the run lock only to decide and to apply.
  int Confirm(const std::string& ifname);

 private:
  struct Options {
    PersistentNetworkConfig::TcpEndpoint target;
    unsigned int seconds;
  };
  std::optional<Options> ReadOptions();
  void EndWatcher(const std::string& ifname);
  void StartWatcher(const std::string& ifname);
  // Whether the set's keys, read again now, give its fingerprint.
  bool StoredAs(const KeptSet& set);
  bool Reach(const std::string& ifname, const Options& options);
  // The watcher's judgement, without its PID file.
  void Decide(const std::string& ifname);
  std::string Now();

  Platform& m_platform;
  Actions& m_actions;
  bool m_keep_record;
  std::map<std::pair<std::string, std::string>, std::string> m_stored;  // for StoredAs
};

}  // namespace corvo
