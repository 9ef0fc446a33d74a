#pragma once
// A recording stand-in for the outside world of the configuration steps. Every
// fake writes what it was asked to do into one shared journal, so a test can
// check the order across programs, forwarding, files and host names; each fake
// also keeps its own typed record and scripted answers.

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <stdexcept>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "lib/platform/platform.h"

namespace corvo::test {

using Journal = std::vector<std::string>;

struct ProgramRun {
  std::string program;
  std::vector<std::string> args;
  unsigned int flags = 0;
};

class FakePrograms : public Programs {
 public:
  explicit FakePrograms(Journal& journal) : m_journal(&journal) {}

  // Exit codes handed out in turn for runs of the program; afterwards exit_code.
  void Script(const std::string& program, std::vector<int> codes) {
    for (int code : codes) m_scripted[program].push_back(code);
  }
  // Runs of one program, in order.
  std::vector<ProgramRun> RunsOf(const std::string& program) const {
    std::vector<ProgramRun> found;
    for (const ProgramRun& run : runs) {
      if (run.program == program) found.push_back(run);
    }
    return found;
  }

  int Run(const std::string& program, const std::vector<std::string>& args,
          unsigned int flags) override {
    runs.push_back({program, args, flags});
    std::string line = "run " + program;
    for (const std::string& arg : args) line += " " + arg;
    m_journal->push_back(line);
    if (on_run) on_run(runs.back());
    auto it = m_scripted.find(program);
    if (it == m_scripted.end() || it->second.empty()) return exit_code;
    const int code = it->second.front();
    it->second.pop_front();
    return code;
  }
  pid_t ReadPidFile(const std::string& path, const std::string& name) override {
    m_journal->push_back("read-pid " + path + " " + name);
    const auto it = pid_files.find(path);
    return it == pid_files.end() ? -1 : it->second;
  }
  int KillProcessAndWait(pid_t pid, int signal, std::int64_t timeout_us) override {
    kills.push_back({pid, signal, timeout_us});
    m_journal->push_back("kill " + std::to_string(pid) + " " + std::to_string(signal));
    return 0;
  }
  pid_t StartDetached(const std::vector<std::string>& argv,
                      const std::string& pid_file) override {
    std::string line = "start-detached";
    for (const std::string& arg : argv) line += " " + arg;
    m_journal->push_back(line + " > " + pid_file);
    return 4242;
  }

  struct Kill { pid_t pid; int signal; std::int64_t timeout_us; };

  std::vector<ProgramRun> runs;
  int exit_code = 0;
  std::function<void(const ProgramRun&)> on_run;  // e.g. to throw like a failed fork
  std::map<std::string, pid_t> pid_files;          // path -> running PID
  std::vector<Kill> kills;

 private:
  Journal* m_journal;
  std::map<std::string, std::deque<int>> m_scripted;
};

class FakeNetworkState : public NetworkState {
 public:
  explicit FakeNetworkState(Journal& journal) : m_journal(&journal) {}

  bool InterfaceHasLink(const std::string& ifname) override { return links.count(ifname) != 0; }
  bool InterfaceIsReady(const std::string& ifname) override { return ready.count(ifname) != 0; }
  bool HasDefaultRoute(const std::string& ifname) override {
    return default_routes.count(ifname) != 0;
  }
  void SetIpForwarding(bool on) override {
    forwarding = on;
    m_journal->push_back(on ? "forwarding 1" : "forwarding 0");
  }
  std::vector<std::string> NetworkPorts() override { return ports; }
  bool IsBootedFromNfs() override { return nfs_root; }
  std::vector<InterfaceAddress> InterfaceAddresses(const std::string& ifname) override {
    if (addresses_fail) throw std::runtime_error("Failed to get IP address list");
    const auto it = addresses.find(ifname);
    return it == addresses.end() ? std::vector<InterfaceAddress>() : it->second;
  }

  std::set<std::string> links;
  std::set<std::string> ready;
  std::set<std::string> default_routes;
  std::vector<std::string> ports;
  bool nfs_root = false;
  std::map<std::string, std::vector<InterfaceAddress>> addresses;
  bool addresses_fail = false;
  bool forwarding = false;

 private:
  Journal* m_journal;
};

class FakeFiles : public Files {
 public:
  explicit FakeFiles(Journal& journal) : m_journal(&journal) {}

  // What a stream writes lands in contents[path] when the stream is destroyed.
  // Removing a path while its stream is alive is not supported.
  std::unique_ptr<std::ostream> Create(const std::string& path, mode_t mode) override {
    m_journal->push_back("create " + path);
    if (create_fails) {
      auto failed = std::make_unique<std::ostream>(nullptr);
      failed->setstate(std::ios::badbit);
      return failed;
    }
    std::string& target = contents[path];
    target.clear();
    modes[path] = mode;
    return std::make_unique<SinkStream>(target);
  }
  bool Exists(const std::string& path) override { return contents.count(path) != 0; }
  void Remove(const std::string& path) override {
    m_journal->push_back("remove " + path);
    contents.erase(path);
    modes.erase(path);
  }

  std::map<std::string, std::string> contents;
  std::map<std::string, mode_t> modes;
  bool create_fails = false;

 private:
  class SinkStream : public std::ostringstream {
   public:
    explicit SinkStream(std::string& target) : m_target(&target) {}
    ~SinkStream() override { *m_target = str(); }

   private:
    std::string* m_target;
  };

  Journal* m_journal;
};

// Time moves only when something sleeps.
class FakeClock : public Clock {
 public:
  std::chrono::steady_clock::time_point Now() override { return now; }
  void Sleep(std::chrono::microseconds duration) override {
    sleeps.push_back(duration);
    now += duration;
    if (on_sleep) on_sleep();
  }

  std::chrono::steady_clock::time_point now{std::chrono::hours(1)};
  std::vector<std::chrono::microseconds> sleeps;
  std::function<void()> on_sleep;  // e.g. to make an interface ready after a while
};

class FakeHostNames : public HostNames {
 public:
  explicit FakeHostNames(Journal& journal) : m_journal(&journal) {}

  std::string GetHostName() override { return name; }
  void SetHostName(const std::string& new_name) override {
    m_journal->push_back("sethostname " + new_name);
    set_calls.push_back(new_name);
    name = new_name;
  }

  std::string name = "localhost";
  std::vector<std::string> set_calls;

 private:
  Journal* m_journal;
};

class FakePlatform {
 public:
  FakePlatform() = default;
  FakePlatform(const FakePlatform&) = delete;
  FakePlatform& operator=(const FakePlatform&) = delete;

  operator Platform&() { return platform; }

  Journal journal;
  FakePrograms programs{journal};
  FakeNetworkState network{journal};
  FakeFiles files{journal};
  FakeClock clock;
  FakeHostNames host_names{journal};
  Platform platform{programs, network, files, clock, host_names};
};

}  // namespace corvo::test
