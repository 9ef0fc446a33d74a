#include "apps/linkrig/run_record.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <exception>

#include <nlohmann/json.hpp>

#include "lib/platform/base/errno_exception.h"
#include "lib/platform/settings/interface_reader.h"

namespace corvo {

namespace {

constexpr char kRecordDirectory[] = "/run/linkrig/";

// The civil date of a day count since 1970-01-01 (proleptic Gregorian), without time_t, which
// is 32 bits wide on the player.
void CivilDate(std::int64_t days, std::int64_t& year, unsigned& month, unsigned& day) {
  days += 719468;
  const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const unsigned doe = static_cast<unsigned>(days - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  day = doy - (153 * mp + 2) / 5 + 1;
  month = mp < 10 ? mp + 3 : mp - 9;
  year = static_cast<std::int64_t>(yoe) + era * 400 + (month <= 2 ? 1 : 0);
}

nlohmann::json TrialJson(const TrialTimes& trial) {
  nlohmann::json json = {{"state", trial.state}};
  if (!trial.started.empty()) json["started"] = trial.started;
  if (!trial.decided.empty()) json["decided"] = trial.decided;
  return json;
}

struct Failure {
  const char* prefix;
  const char* feature;
};

// The failure lines of the features (see the error contract of the steps).
constexpr Failure kFailures[] = {
    {"ConfigureShaper failed: ", "shaper"},
    {"Failed to initiate ", "join"},
    {"Failed to configure dialup: ", "dialup"},
    {"linkrig: Failed to spawn dhcpcd: ", "addressing"},
};

}  // namespace

std::string RunRecordPath(const std::string& ifname) { return kRecordDirectory + ifname + ".json"; }

std::string UtcTime(std::int64_t microseconds) {
  std::int64_t seconds = microseconds / 1000000;
  if (microseconds % 1000000 < 0) --seconds;
  std::int64_t days = seconds / 86400;
  std::int64_t rest = seconds % 86400;
  if (rest < 0) {
    rest += 86400;
    --days;
  }
  std::int64_t year = 0;
  unsigned month = 0;
  unsigned day = 0;
  CivilDate(days, year, month, day);
  char text[40];
  std::snprintf(text, sizeof text, "%04" PRId64 "-%02u-%02uT%02u:%02u:%02uZ", year, month, day,
                static_cast<unsigned>(rest / 3600), static_cast<unsigned>(rest / 60 % 60),
                static_cast<unsigned>(rest % 60));
  return text;
}

std::string RecordJson(const RunRecord& record) {
  nlohmann::json outcomes = nlohmann::json::object();
  for (const auto& [feature, outcome] : record.outcomes) outcomes[feature] = outcome;
  if (!record.vlans.empty()) {
    nlohmann::json vlans = nlohmann::json::object();
    for (const auto& [id, outcome] : record.vlans) vlans[std::to_string(id)] = outcome;
    outcomes["vlans"] = vlans;
  }
  const nlohmann::json json = {{"interface", record.ifname},
                               {"action", record.action},
                               {"fingerprint", record.fingerprint},
                               {"outcomes", outcomes},
                               {"trial", TrialJson(record.trial)},
                               {"exit_status", record.exit_status}};
  return json.dump(2) + "\n";
}

void WriteRunRecord(Platform& platform, const RunRecord& record) {
  try {
    ReplaceMakingDirectory(platform, RunRecordPath(record.ifname), RecordJson(record), 0644);
  } catch (const std::exception& e) {
    platform.log.Print("linkrig: no record: %s\n", e.what());
  }
}

void UpdateRecordedTrial(Platform& platform, const std::string& ifname, const TrialTimes& trial) {
  nlohmann::json json = nlohmann::json::object();
  if (const auto text = platform.files.Read(RunRecordPath(ifname))) {
    json = nlohmann::json::parse(*text, nullptr, false);
    if (!json.is_object()) json = {{"interface", ifname}};
  }
  json["trial"] = TrialJson(trial);
  try {
    ReplaceMakingDirectory(platform, RunRecordPath(ifname), json.dump(2) + "\n", 0644);
  } catch (const std::exception& e) {
    platform.log.Print("linkrig: no record: %s\n", e.what());
  }
}

void ReplaceMakingDirectory(Platform& platform, const std::string& path,
                            const std::string& content, mode_t mode) {
  try {
    platform.files.Replace(path, content, mode);
  } catch (const ErrnoException& e) {
    if (e.Errno() != ENOENT) throw;
    platform.files.MakeDirectory(path.substr(0, path.rfind('/')), 0755);
    platform.files.Replace(path, content, mode);
  }
}

void OutcomeLog::Write(const std::string& text) noexcept {
  m_below.Write(text);
  try {
    const std::string line = text.substr(0, text.find('\n'));
    for (const Failure& failure : kFailures) {
      if (line.rfind(failure.prefix, 0) == 0) m_failures[failure.feature] = line;
    }
    unsigned int id = 0;
    if (std::sscanf(line.c_str(), "Unable to configure VLAN %u ", &id) == 1) {
      m_vlan_failures[id] = line;
    }
  } catch (...) {
    // The line has been written; only its note is lost.
  }
}

void OutcomeLog::Fill(RunRecord& record) const {
  for (const auto& [feature, line] : m_failures) record.outcomes[feature] = line;
  for (const auto& [id, line] : m_vlan_failures) record.vlans[id] = line;
}

std::string HideSecrets(std::string text, const std::vector<Reading>& readings, Settings& store) {
  for (const Reading& reading : readings) {
    for (const std::string& secret :
         PersistentNetworkConfig::SecretForms(reading.section, reading.key, reading.value, store)) {
      for (std::string::size_type at = text.find(secret); at != std::string::npos;
           at = text.find(secret, at)) {
        text.replace(at, secret.size(), "<redacted>");
        at += 10;
      }
    }
  }
  return text;
}

}  // namespace corvo
