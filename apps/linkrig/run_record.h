#pragma once
// The record of a changing run, for a management agent that must not parse log lines:
// "/run/linkrig/IF.json", written whole. It names the action, the fingerprint of the settings
// read, each feature's outcome ("ok" or its failure line), the trial and the exit status. It
// holds no stored value.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "apps/linkrig/settings_set.h"
#include "lib/platform/platform.h"

namespace corvo {

std::string RunRecordPath(const std::string& ifname);

// Microseconds since the epoch as "2026-11-25T16:09:04Z".
std::string UtcTime(std::int64_t microseconds);

struct TrialTimes {
  std::string state = "none";  // none, trying, confirmed, rolled back, not confirmed
  std::string started;         // when the trial began; empty when there is none
  std::string decided;         // when it ended; empty until then
};

struct RunRecord {
  std::string ifname;
  std::string action;
  std::string fingerprint;
  // "addressing", "join", "shaper", "dialup": "ok" or the feature's failure line.
  std::map<std::string, std::string> outcomes;
  std::map<unsigned int, std::string> vlans;  // by VLAN id, the same
  TrialTimes trial;
  int exit_status = 0;
};

std::string RecordJson(const RunRecord& record);

// Writes the record; a failure is said in one line and changes nothing else.
void WriteRunRecord(Platform& platform, const RunRecord& record);

// Sets the trial of the record on file, the rest as it is (a record that cannot be read is
// written anew with the trial alone).
void UpdateRecordedTrial(Platform& platform, const std::string& ifname, const TrialTimes& trial);

// Files::Replace, making the file's directory first when it is missing (this program's own
// directories under /run and /var/lib are made on first use).
void ReplaceMakingDirectory(Platform& platform, const std::string& path,
                            const std::string& content, mode_t mode);

// Passes every line on and notes the failure lines of the features.
class OutcomeLog : public LogSink {
 public:
  explicit OutcomeLog(LogSink& below) : m_below(below) {}
  void Write(const std::string& text) noexcept override;

  // Sets the failures seen in the record's outcomes; features not failed are left as they are.
  void Fill(RunRecord& record) const;

 private:
  LogSink& m_below;
  std::map<std::string, std::string> m_failures;
  std::map<unsigned int, std::string> m_vlan_failures;
};

// Replaces every stored secret among the readings in the text.
std::string HideSecrets(std::string text, const std::vector<Reading>& readings, Settings& store);

}  // namespace corvo
