#include "apps/linkrig/safe_apply.h"

#include <climits>
#include <csignal>
#include <exception>
#include <stdexcept>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "apps/steps/run_lock.h"
#include "lib/platform/base/interface_names.h"
#include "lib/platform/system/net.h"

namespace corvo {

namespace {

using nlohmann::json;

constexpr char kKnownGoodDirectory[] = "/var/lib/linkrig/";
constexpr unsigned int kBootsBeforeRollback = 2;
constexpr int kAttemptMs = 1000;
constexpr std::chrono::milliseconds kBetweenAttempts{500};
constexpr std::int64_t kWatcherEndUs = 2000000;

// Beside the run lock.
std::string WatcherPidPath(const std::string& ifname) {
  return "/var/run/linkrig-" + ifname + ".confirm.pid";
}

json ReadingsJson(const std::vector<Reading>& readings, bool values) {
  json list = json::array();
  for (const Reading& r : readings) {
    list.push_back(values ? json{r.section, r.key, r.value} : json{r.section, r.key});
  }
  return list;
}

std::vector<Reading> ReadingsFrom(const json& list) {
  std::vector<Reading> readings;
  for (const json& r : list) {
    readings.push_back({r.at(0).get<std::string>(), r.at(1).get<std::string>(),
                        r.size() > 2 ? r.at(2).get<std::string>() : std::string()});
  }
  return readings;
}

json SetJson(const KeptSet& set, bool values) {
  return {{"fingerprint", set.fingerprint}, {"readings", ReadingsJson(set.readings, values)}};
}

KeptSet SetFrom(const json& set) {
  return {set.at("fingerprint").get<std::string>(), ReadingsFrom(set.at("readings"))};
}

// A rejected set is known by its keys: read again, they give its fingerprint.
KeptSet KeysOf(const KeptSet& set) {
  KeptSet keys{set.fingerprint, set.readings};
  for (Reading& r : keys.readings) r.value.clear();
  return keys;
}

// The same platform, with the settings and the log given.
Platform Through(Platform& p, Settings& settings, LogSink& log) {
  return Platform{p.programs,    p.network,  p.files,      p.locks,    p.clock,
                  p.system_clock, p.host_names, p.network_time, settings, p.supplicant,
                  p.hardware,    log,        p.out};
}

// Each feature the action touched is "ok" unless its line says otherwise; a failure that
// escaped the steps is the join's when it came from the supplicant's set-up, else the
// addressing's.
void FillOutcomes(RunRecord& record, Platform& run, bool port, const std::exception_ptr& failure) {
  const std::string& ifname = record.ifname;
  const std::string& action = record.action;
  if (action == "update" || ifname == kHost) return;
  if (ifname == kDialupPort) {
    record.outcomes["dialup"] = "ok";
    return;
  }
  record.outcomes["addressing"] = "ok";
  record.outcomes["shaper"] = "ok";
  if (port && action != "stop") record.outcomes["join"] = "ok";
  if (action != "stop") {
    try {
      const PersistentNetworkConfig::InterfaceReader reader(ifname, run.settings, "");
      for (const std::uint16_t id : reader.Vlans()) {
        if (id != 0) record.vlans[id] = "ok";
      }
    } catch (const std::exception&) {
      // The run itself has said what is wrong with the list.
    }
  }
  if (!failure) return;
  try {
    std::rethrow_exception(failure);
  } catch (const std::exception& e) {
    const std::string line = std::string("linkrig: EXCEPTION: ") + e.what();
    const bool join = port && std::string(e.what()).rfind("InitialiseWifi", 0) == 0;
    record.outcomes[join ? "join" : "addressing"] = line;
  } catch (...) {
    record.outcomes["addressing"] = "linkrig: Unknown exception";
  }
}

// Each is read again by every start and reconfigure: the latest few are enough.
constexpr std::size_t kRejectedKept = 8;

void Reject(KnownGood& known, const KeptSet& set) {
  known.rejected.push_back(KeysOf(set));
  if (known.rejected.size() > kRejectedKept) known.rejected.erase(known.rejected.begin());
}

bool IsTried(const std::string& action) { return action == "start" || action == "reconfigure"; }

}  // namespace

std::string KnownGoodPath(const std::string& ifname) {
  return kKnownGoodDirectory + ifname + ".json";
}

KnownGood LoadKnownGood(Platform& platform, const std::string& ifname) {
  const std::string path = KnownGoodPath(ifname);
  KnownGood known;
  const std::optional<std::string> text = platform.files.Read(path);
  if (!text) {
    if (platform.files.Exists(path)) {
      platform.log.Print("linkrig: cannot read %s; taken as absent\n", path);
    }
    return known;
  }
  try {
    const json file = json::parse(*text);
    if (file.contains("good")) known.good = SetFrom(file.at("good"));
    for (const json& set : file.at("rejected")) known.rejected.push_back(SetFrom(set));
    if (file.contains("pending")) {
      const json& pending = file.at("pending");
      known.pending = PendingTrial{SetFrom(pending), pending.at("started").get<std::string>(),
                                   pending.at("boots").get<unsigned int>()};
    }
  } catch (const std::exception& e) {
    platform.log.Print("linkrig: %s is corrupt (%s); taken as absent\n", path, e.what());
    return KnownGood();
  }
  return known;
}

bool SaveKnownGood(Platform& platform, const std::string& ifname, const KnownGood& known) {
  json file = {{"rejected", json::array()}};
  if (known.good) file["good"] = SetJson(*known.good, true);
  for (const KeptSet& set : known.rejected) file["rejected"].push_back(SetJson(set, false));
  if (known.pending) {
    json pending = SetJson(known.pending->set, true);
    pending["started"] = known.pending->started;
    pending["boots"] = known.pending->boots;
    file["pending"] = pending;
  }
  try {
    ReplaceMakingDirectory(platform, KnownGoodPath(ifname), file.dump() + "\n", 0600);
  } catch (const std::exception& e) {
    platform.log.Print("linkrig: %s\n", e.what());
    return false;
  }
  return true;
}

std::string SafeApply::Now() { return UtcTime(m_platform.system_clock.RealtimeMicroseconds()); }

std::optional<SafeApply::Options> SafeApply::ReadOptions() {
  // Read past the run's own readings: the trial's terms are not part of the set it tries.
  const PersistentNetworkConfig::NetworkingReader networking(m_platform.settings);
  try {
    const std::optional<PersistentNetworkConfig::TcpEndpoint> target = networking.ConfirmTarget();
    if (!target) return std::nullopt;
    return Options{*target, networking.ConfirmSeconds()};
  } catch (const std::invalid_argument& e) {
    m_platform.log.Print("linkrig: %s; no trial\n", e.what());
    return std::nullopt;
  }
}

void SafeApply::EndWatcher(const std::string& ifname) {
  const std::string path = WatcherPidPath(ifname);
  // A watcher removes the file when it ends; one killed leaves it behind.
  if (!m_platform.files.Exists(path)) return;
  // Only a linkrig: the PID may be another process's by now.
  if (const std::optional<pid_t> pid = m_platform.programs.ReadPidFile(path, "linkrig")) {
    m_platform.programs.KillProcessAndWait(*pid, SIGTERM, kWatcherEndUs);
  }
  m_platform.files.Remove(path);
}

void SafeApply::StartWatcher(const std::string& ifname) {
  // This program's sibling: linkrig-plan names the linkrig beside it.
  std::string self(PATH_MAX, '\0');
  const ssize_t size = readlink("/proc/self/exe", self.data(), self.size());
  self.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
  const std::string program = self.substr(0, self.rfind('/') + 1) + "linkrig";
  m_platform.programs.StartDetached({program, ifname, kConfirmAction}, WatcherPidPath(ifname));
}

bool SafeApply::StoredAs(const KeptSet& set) {
  // The sets share most of their keys: each is asked for once.
  std::vector<Reading> now = set.readings;
  for (Reading& reading : now) {
    const auto key = std::make_pair(reading.section, reading.key);
    auto known = m_stored.find(key);
    if (known == m_stored.end()) {
      known = m_stored.emplace(key, m_platform.settings.Read(reading.section, reading.key)).first;
    }
    reading.value = known->second;
  }
  return Fingerprint(now) == set.fingerprint;
}

int SafeApply::Run(const std::string& ifname, const std::string& action, bool port) {
  const bool judged = port && (IsTried(action) || action == "stop");
  // A newer run decides afresh, even when the target is gone by now.
  if (judged) EndWatcher(ifname);
  const std::optional<Options> options = judged ? ReadOptions() : std::nullopt;
  KnownGood known;
  RunRecord record{ifname, action, {}, {}, {}, {}, 0};
  bool use_good = false;
  if (options) {
    known = LoadKnownGood(m_platform, ifname);
    bool changed = false;
    if (action == "stop" && known.pending) {
      // Ended without judgement.
      known.pending.reset();
      changed = true;
    } else if (IsTried(action) && known.good) {
      for (const KeptSet& rejected : known.rejected) use_good = use_good || StoredAs(rejected);
      if (use_good) {
        m_platform.log.Print(
            "linkrig: %s: the stored settings were rolled back before; applying the known-good "
            "set\n", ifname);
        record.trial = {"rolled back", Now(), Now()};
      }
    }
    // A start that finds a trial pending follows a restart or a power cut in the middle of it.
    if (!use_good && action == "start" && known.pending && StoredAs(known.pending->set) &&
        ++known.pending->boots >= kBootsBeforeRollback) {
      if (known.good) {
        m_platform.log.Print(
            "linkrig: %s: not confirmed after %u starts; applying the known-good set\n", ifname,
            known.pending->boots);
        Reject(known, known.pending->set);
        use_good = true;
        record.trial = {"rolled back", known.pending->started, Now()};
      } else {
        record.trial = {"not confirmed", known.pending->started, Now()};
      }
      known.pending.reset();
      changed = true;
    }
    if (changed || (known.pending && action == "start")) SaveKnownGood(m_platform, ifname, known);
  }

  std::optional<KeptSettings> kept;
  if (use_good) kept.emplace(known.good->readings);
  ReadingSettings reading(use_good ? static_cast<Settings&>(*kept) : m_platform.settings);
  OutcomeLog log(m_platform.log);
  Platform run = Through(m_platform, reading, log);
  std::exception_ptr failure;
  try {
    record.exit_status = m_actions.Apply(run, ifname, action);
  } catch (...) {
    failure = std::current_exception();
    record.exit_status = 2;
  }
  const std::vector<Reading>& readings = reading.Readings();
  // Only a record or a trial needs it: a plan, say, loads no digest library.
  try {
    if (m_keep_record || options) record.fingerprint = Fingerprint(readings);
  } catch (const std::exception& e) {
    m_platform.log.Print("linkrig: no fingerprint: %s\n", e.what());
  }

  if (options && IsTried(action) && !use_good && !record.fingerprint.empty()) {
    if (known.good && known.good->fingerprint == record.fingerprint) {
      if (known.pending) {
        known.pending.reset();
        SaveKnownGood(m_platform, ifname, known);
      }
    } else {
      // The same set tried again keeps its count of starts.
      const bool same = known.pending && known.pending->set.fingerprint == record.fingerprint;
      const unsigned int boots = same ? known.pending->boots : 0;
      const std::string started = same ? known.pending->started : Now();
      known.pending = PendingTrial{{record.fingerprint, readings}, started, boots};
      if (SaveKnownGood(m_platform, ifname, known)) {
        StartWatcher(ifname);
        record.trial = {"trying", started, {}};
      }
    }
  }

  if (m_keep_record) {
    FillOutcomes(record, run, port, failure);
    log.Fill(record);
    for (auto& [feature, outcome] : record.outcomes) {
      outcome = HideSecrets(outcome, readings, m_platform.settings);
    }
    for (auto& [id, outcome] : record.vlans) {
      outcome = HideSecrets(outcome, readings, m_platform.settings);
    }
    WriteRunRecord(m_platform, record);
  }
  if (failure) std::rethrow_exception(failure);
  return record.exit_status;
}

bool SafeApply::Reach(const std::string& ifname, const Options& options) {
  const auto deadline = m_platform.clock.Now() + std::chrono::seconds(options.seconds);
  do {
    if (net::CanConnectTcp(ifname, options.target.host, options.target.port, kAttemptMs)) {
      return true;
    }
    m_platform.clock.Sleep(kBetweenAttempts);
  } while (m_platform.clock.Now() < deadline);
  return false;
}

int SafeApply::Confirm(const std::string& ifname) {
  try {
    Decide(ifname);
  } catch (...) {
    m_platform.files.Remove(WatcherPidPath(ifname));
    throw;
  }
  m_platform.files.Remove(WatcherPidPath(ifname));
  return 0;
}

void SafeApply::Decide(const std::string& ifname) {
  const std::optional<Options> options = ReadOptions();
  KnownGood known = LoadKnownGood(m_platform, ifname);
  if (!options || !known.pending) return;
  const PendingTrial trial = *known.pending;
  const std::string host = options->target.host + ":" + std::to_string(options->target.port);
  // Under the lock, the trial still this watcher's: a newer run ends the watcher, but may have
  // taken the lock first.
  const auto decide = [&](const std::string& state,
                          const std::function<void(KnownGood&)>& change) {
    {
      const auto lock = TakeRunLock(m_platform, ifname);
      known = LoadKnownGood(m_platform, ifname);
      if (!known.pending || known.pending->set.fingerprint != trial.set.fingerprint) return;
      change(known);
      known.pending.reset();
      SaveKnownGood(m_platform, ifname, known);
      UpdateRecordedTrial(m_platform, ifname, {state, trial.started, Now()});
    }
    m_actions.LockReleased(ifname);
  };
  if (Reach(ifname, *options)) {
    m_platform.log.Print("linkrig: %s: reached %s; the settings are confirmed\n", ifname, host);
    decide("confirmed", [&](KnownGood& now) { now.good = now.pending->set; });
    return;
  }
  if (!known.good) {
    m_platform.log.Print("linkrig: %s: %s not reached; no known-good set to go back to\n", ifname,
                         host);
    decide("not confirmed", [](KnownGood&) {});
    return;
  }
  m_platform.log.Print("linkrig: %s: %s not reached; applying the known-good set\n", ifname, host);
  bool mine = false;
  {
    const auto lock = TakeRunLock(m_platform, ifname);
    known = LoadKnownGood(m_platform, ifname);
    mine = known.pending && known.good && known.pending->set.fingerprint == trial.set.fingerprint;
    if (mine) {
      KeptSettings kept(known.good->readings);
      Platform good = Through(m_platform, kept, m_platform.log);
      m_actions.Apply(good, ifname, "reconfigure");
    }
  }
  m_actions.LockReleased(ifname);
  if (!mine) return;
  if (Reach(ifname, *options)) {
    m_platform.log.Print("linkrig: %s: reached %s with the known-good set; change rolled back\n",
                         ifname, host);
    decide("rolled back", [](KnownGood& now) { Reject(now, now.pending->set); });
    return;
  }
  m_platform.log.Print("linkrig: %s: %s not reached either way; applying the stored settings\n",
                       ifname, host);
  decide("not confirmed", [&](KnownGood&) { m_actions.Apply(m_platform, ifname, "reconfigure"); });
}

}  // namespace corvo
