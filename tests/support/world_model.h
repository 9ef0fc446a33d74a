#pragma once
// A model of the world for the tests of the steps: a Platform whose answers come from what a
// test arranges here, and whose changes change it. Tests wrap it in a RecordingPlatform to see
// the changes as lines and to make any of them fail.

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
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

// What the supplicant holds for one interface.
struct SupplicantInterfaceModel {
  std::string state = "disconnected";
  std::vector<supplicant::PropertySet> networks;
  std::map<std::string, supplicant::Bytes> blobs;
};

class WorldModel {
 public:
  WorldModel();
  ~WorldModel();
  WorldModel(const WorldModel&) = delete;
  WorldModel& operator=(const WorldModel&) = delete;

  Platform& Get() { return *m_platform; }
  operator Platform&() { return *m_platform; }

  void Set(const std::string& section, const std::string& key, const std::string& value) {
    settings[{section, key}] = value;
  }

  // Programs: exit codes handed out in turn per program (then 0), running daemons by PID file
  // (path -> PID of a process with the expected name).
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

  // Files: path -> content and mode; paths that cannot be created.
  std::map<std::string, std::string> files;
  std::map<std::string, mode_t> modes;
  std::set<std::string> unwritable;

  // Clocks: the steady clock moves only when something sleeps.
  std::chrono::steady_clock::time_point now{std::chrono::hours(1)};
  std::int64_t realtime_us = 1700000000000000;
  bool time_is_set = true;

  std::string host_name = "localhost";

  // What a time server answers: the time, or why there is none.
  NetworkTimeResult network_time{std::nullopt, "no reply from the recorded network"};

  // Stored settings: (section, key) -> value; on_read may throw like a failing registry.
  std::map<std::pair<std::string, std::string>, std::string> settings;
  std::function<void(const std::string& section, const std::string& key)> on_read;

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

  // The model behind each interface of the Platform.
  class Parts;

 private:
  std::unique_ptr<Parts> m_parts;
  std::unique_ptr<Platform> m_platform;
};

}  // namespace corvo
