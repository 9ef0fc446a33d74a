#pragma once
// A Platform that changes nothing. Questions are answered from a model of the
// world that its owner arranges; every change is recorded, in order, as one
// line of text, and applied to the model so that later questions see it.
// Secrets (supplicant passwords and keys) never appear in the lines.

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "lib/platform/base/interface_names.h"
#include "lib/platform/platform.h"

namespace corvo {

struct ProgramRun {
  std::string program;
  std::vector<std::string> args;
};

// What the recorded supplicant holds for one interface.
struct SupplicantInterfaceModel {
  std::string state = "disconnected";
  std::optional<std::string> current_mode;  // the current network's "mode"; none: no network
  bool scanning = false;
  std::vector<supplicant::PropertySet> networks;
  std::map<std::string, supplicant::Bytes> blobs;
  std::vector<supplicant::BssInfo> bss;
};

struct WorldModel {
  // Programs: exit codes handed out in turn per program (then 0), running daemons
  // by PID file (path -> PID of a process with the expected name).
  std::map<std::string, std::deque<int>> exit_codes;
  std::map<std::string, pid_t> pid_files;
  std::vector<ProgramRun> runs;

  // The kernel's network state.
  std::vector<std::string> ports;  // in directory order
  std::set<std::string> links;     // interfaces with link
  std::set<std::string> ready;     // link and an IPv4 address
  std::set<std::string> default_routes;
  std::map<std::string, std::vector<InterfaceAddress>> addresses;
  bool addresses_fail = false;
  bool nfs_root = false;
  std::optional<bool> forwarding;
  std::map<std::string, std::vector<std::string>> vlans;  // parent -> VLAN link names

  // Files: path -> content; paths that cannot be created.
  std::map<std::string, std::string> files;
  std::map<std::string, mode_t> modes;
  std::set<std::string> unwritable;

  // Tasks run detached: recorded, and run at once when this is set.
  bool run_detached = false;

  // Clocks: the steady clock moves only when something sleeps.
  std::chrono::steady_clock::time_point now{std::chrono::hours(1)};
  std::function<void()> on_sleep;
  std::int64_t realtime_us = 1700000000000000;
  bool time_is_set = true;
  int set_realtime_error = 0;

  std::string host_name = "localhost";

  // What a time server answers: the time, or why there is none.
  NetworkTimeResult network_time{std::nullopt, "no reply from the recorded network"};

  // Stored settings: (section, key) -> value; on_read may throw like a failing registry.
  std::map<std::pair<std::string, std::string>, std::string> settings;
  std::function<void(const std::string& section, const std::string& key)> on_read;
  // Told every value read, from the model or the source.
  std::function<void(const std::string& section, const std::string& key,
                     const std::string& value)>
      on_value;

  // The supplicant daemon.
  bool supplicant_running = true;
  std::map<std::string, SupplicantInterfaceModel> supplicant_interfaces;

  // Hardware facts.
  std::optional<std::string> wifi_port{kWifiPort};
  std::optional<std::string> ethernet_port{kEthernetPort};
  std::string wifi_driver = "nl80211";
  std::string oem_id;
  std::string oem_model;
  std::string serial_number;
  std::optional<std::string> wifi_mac_address;

  void Set(const std::string& section, const std::string& key, const std::string& value) {
    settings[{section, key}] = value;
  }
};

class RecordingPlatform {
 public:
  // Without a source the model answers every question; with one (the real
  // system) the source answers, except where this run's own changes have.
  explicit RecordingPlatform(Platform* source = nullptr);
  ~RecordingPlatform();
  RecordingPlatform(const RecordingPlatform&) = delete;
  RecordingPlatform& operator=(const RecordingPlatform&) = delete;

  Platform& Get() { return *m_platform; }
  operator Platform&() { return *m_platform; }

  // The changes, in order.
  const std::vector<std::string>& Effects() const { return m_effects; }
  void ClearEffects() { m_effects.clear(); }
  // Text written to standard error and standard output.
  const std::string& Log() const { return m_log; }
  const std::string& Output() const { return m_output; }

  // Called with each change before it is recorded; throwing here makes that
  // change fail the way the real one would.
  std::function<void(const std::string& effect)> before_effect;

  WorldModel world;

  // Records one change (after before_effect).
  void Record(const std::string& effect);

  // Every later record and line of text shows this text as "<redacted>".
  void AddSecret(const std::string& secret);
  std::string Redact(std::string text) const;
  std::recursive_mutex& Mutex() { return m_mutex; }

  // The recorded world behind each interface of the Platform.
  class Parts;

 private:
  // The network time step runs beside the main thread.
  mutable std::recursive_mutex m_mutex;
  std::set<std::string> m_secrets;
  std::vector<std::string> m_effects;
  std::string m_log;
  std::string m_output;
  std::unique_ptr<Parts> m_parts;
  std::unique_ptr<LogSink> m_log_sink;
  std::unique_ptr<LogSink> m_out_sink;
  std::unique_ptr<Platform> m_platform;
};

constexpr char kRedacted[] = "<redacted>";

// One argument as a shell would need it written ('' for an empty one).
std::string QuoteArgument(const std::string& argument);
// Text in double quotes, with C escapes for what is not printable.
std::string QuoteText(const std::string& text);

}  // namespace corvo
