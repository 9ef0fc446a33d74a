#include "apps/linkrig/link_config_command.h"

#include <csignal>
#include <cstring>
#include <exception>
#include <pthread.h>
#include <optional>

#include "apps/linkrig/interface_name.h"
#include "apps/steps/dialup.h"
#include "apps/steps/host_forwarding.h"
#include "apps/steps/interface_configuration.h"
#include "apps/steps/link_check.h"
#include "apps/steps/network_time.h"
#include "apps/steps/run_lock.h"
#include "apps/steps/shaper.h"
#include "apps/steps/wifi_bringup.h"
#include "lib/platform/base/assert.h"
#include "lib/platform/base/interface_names.h"
#include "lib/platform/settings/interface_reader.h"

namespace corvo {

namespace {

using PersistentNetworkConfig::HostReader;

}  // namespace

int LinkConfigCommand::Run(int argc, const char* const* argv) {
  try {
    if (argc != 3) {
      m_platform.log.Print("%s", kUsage);
      return 1;
    }
    const std::string ifname = argv[1];
    const std::string action = argv[2];
    if (ifname == kEthernetPort && !m_platform.hardware.EthernetInterface()) {
      m_platform.out.Print("Ethernet is not supported on this hardware.\n");
      return 1;
    }
    return Dispatch(ifname, action);
  } catch (const std::exception& e) {
    m_platform.log.Print("linkrig: EXCEPTION: %s\n", e.what());
  } catch (...) {
    m_platform.log.Print("linkrig: Unknown exception\n");
  }
  return 2;
}

int LinkConfigCommand::Dispatch(const std::string& ifname, const std::string& action) {
  static const char* const kChanging[] = {"init", "add", "remove", "start", "stop", "reconfigure"};
  // A trial's watcher takes the lock only while it decides.
  if (action == kConfirmAction && ifname != kHost) {
    return SafeApply(m_platform, *this, m_keep_record).Confirm(ifname);
  }
  // The update of an interface never waits for its lock (run_lock.h): dhcpcd waits for it.
  if (action == "update" && ifname != kHost) {
    RequestUpdate(m_platform, ifname);
    const std::optional<int> status = MakeRequestedUpdates(ifname);
    if (!status) {
      m_platform.log.Print("linkrig: the run holding %s makes this update\n",
                           RunLockPath(ifname));
    }
    return status.value_or(0);
  }
  // Overlapping runs of one interface take turns; a link check changes nothing.
  bool changing = action == "update";
  for (const char* name : kChanging) changing = changing || action == name;
  if (!changing) return Act(ifname, action);
  int status = 2;
  try {
    const auto lock = TakeRunLock(m_platform, ifname);
    status = Recorded(ifname, action);
  } catch (...) {
    MakeRequestedUpdates(ifname);
    throw;
  }
  // Updates requested while this run held the lock.
  const std::optional<int> updates = MakeRequestedUpdates(ifname);
  return status != 0 ? status : updates.value_or(0);
}

int LinkConfigCommand::Act(const std::string& ifname, const std::string& action) {
  // A link check needs neither the stored settings nor the LED.
  if (action == "checklink") return CheckLink(ifname);
  const RunContext run(m_platform, ifname);
  if (action == "init" || action == "add") {
    return ifname == kDialupPort ? ModemStartCheck(run) : 0;
  }
  if (action == "remove") return ifname == kDialupPort ? ConfigureDialup(run, kDialupStop) : 0;
  if (action == "start") return Start(run);
  if (action == "stop") return Stop(run);
  if (action == "reconfigure") return Reconfigure(run);
  if (action == "update") return Update(run);
  m_platform.log.Print("%s", kUsage);
  return 1;
}

int LinkConfigCommand::Recorded(const std::string& ifname, const std::string& action) {
  if (action != "start" && action != "stop" && action != "reconfigure" && action != "update") {
    return Act(ifname, action);
  }
  return SafeApply(m_platform, *this, m_keep_record)
      .Run(ifname, action, IsSupplicantInterface(ifname));
}

int LinkConfigCommand::Apply(Platform& platform, const std::string& ifname,
                             const std::string& action) {
  return LinkConfigCommand(platform).Act(ifname, action);
}

std::optional<int> LinkConfigCommand::MakeRequestedUpdates(const std::string& ifname) {
  if (ifname == kHost) return 0;
  int status = 0;
  for (;;) {
    const auto lock = TryRunLock(m_platform, ifname);
    // Its holder makes them once it lets go.
    if (!lock) return std::nullopt;
    const std::vector<std::string> requested = TakeUpdateRequests(m_platform, ifname);
    if (requested.empty()) return status;
    for (const std::string& name : requested) {
      try {
        Recorded(name, "update");
      } catch (const std::exception& e) {
        m_platform.log.Print("linkrig: EXCEPTION: %s\n", e.what());
        status = 2;
      }
    }
  }
}

bool LinkConfigCommand::IsSupplicantInterface(const std::string& ifname) {
  return m_platform.hardware.IsWifiInterface(ifname) ||
         m_platform.hardware.IsEthernetInterface(ifname);
}

int LinkConfigCommand::Start(const RunContext& run) {
  if (run.ifname == kHost) {
    // The clock is set from the network beside the host's own configuration.
    NetworkTimeThread network_time(m_platform);
    ConfigureHostForwarding(Phase::kStart, m_platform);
    network_time.Join();
    return 0;
  }
  if (run.ifname == kDialupPort) return ConfigureDialup(run, kDialupStart);
  if (IsSupplicantInterface(run.ifname)) InitialiseWifi(run);
  // A start always begins from a stopped configuration; the shaper is only added.
  ConfigureInterface(run, Phase::kStop);
  ConfigureInterface(run, Phase::kStart);
  ConfigureShaper(run, Phase::kStart);
  return 0;
}

int LinkConfigCommand::Stop(const RunContext& run) {
  if (run.ifname == kHost) return 0;
  if (run.ifname == kDialupPort) return ConfigureDialup(run, kDialupStop);
  ConfigureInterface(run, Phase::kStop);
  ConfigureShaper(run, Phase::kStop);
  return 0;
}

int LinkConfigCommand::Reconfigure(const RunContext& run) {
  if (run.ifname == kHost) {
    ConfigureHostForwarding(Phase::kStart, m_platform);
    return 0;
  }
  if (run.ifname == kDialupPort) return ConfigureDialup(run, kDialupRestart);
  ConfigureInterface(run, Phase::kStop);
  ConfigureShaper(run, Phase::kStop);
  // A join that cannot be started has been reported; the addressing still runs.
  if (IsSupplicantInterface(run.ifname)) ConfigureWifiOrDot1x(run);
  ConfigureInterface(run, Phase::kStart);
  ConfigureShaper(run, Phase::kStart);
  return 0;
}

int LinkConfigCommand::Update(const RunContext& run) {
  // A default route is what a lease brings: the network may have a time server now. The
  // query goes on without this run, which dhcpcd waits for.
  if (run.ifname != kHost && m_platform.network.HasDefaultRoute(run.ifname) &&
      NetworkTimeIsDue(m_platform)) {
    StartDetachedNetworkTime(m_platform);
  }
  run.led.Update();
  const HostReader host(m_platform.settings, m_platform.hardware.SerialNumber());
  if (host.Forwarding() == PersistentNetworkConfig::kNat) ConfigureNat(run.ifname, m_platform);
  return 0;
}

int LinkConfigCommand::CheckLink(const std::string& ifname) {
  const bool up =
      ifname == kHost ? AnyNetworkPortHasLink(m_platform) : CheckLinkAction(ifname, m_platform);
  return up ? 0 : 1;
}

int RunLinkrig(int argc, const char* const* argv, Platform& platform, bool keep_record) {
  if (argc >= 3) {
    platform.log.Print("linkrig: %s %s\n", argv[1], argv[2]);
  } else {
    platform.log.Print("linkrig: too few args\n");
  }
  if (argc >= 2 && !IsUsableInterfaceName(argv[1])) {
    platform.log.Print("%s", kUsage);
    return 1;
  }

  // Blocked before any other thread exists, so that every later thread inherits it.
  sigset_t hangup;
  sigemptyset(&hangup);
  sigaddset(&hangup, SIGHUP);
  const int rc = pthread_sigmask(SIG_BLOCK, &hangup, nullptr);
  if (rc != 0) {
    platform.log.Print("pthread_sigmask failed: %s\n", std::strerror(rc));
    CORVO_ASSERT(false);
  }

  return LinkConfigCommand(platform, keep_record).Run(argc, argv);
}

}  // namespace corvo
