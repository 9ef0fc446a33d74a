#include "apps/linkrig/link_config_command.h"

#include <cstdio>
#include <exception>

#include "lib/hardware/hardware_config.h"
#include "lib/hardware/led_status.h"
#include "lib/platform/interface_reader.h"
#include "lib/platform/log.h"

namespace corvo {

namespace {

constexpr const char* kHost = "host";
constexpr const char* kDialup = "ppp0";

}  // namespace

int LinkConfigCommand::Run(int argc, const char* const* argv) {
  try {
    corvo::HardwareConfig hardware(m_environment);
    if (argc != 3) {
      corvo::Log("%s", kUsage);
      return 1;
    }
    const std::string ifname = argv[1];
    const std::string action = argv[2];
    if (ifname == "eth0" && !hardware.HasEthernet()) {
      std::fputs("Ethernet is not supported on this hardware.\n", stdout);
      std::fflush(stdout);
      return 1;
    }
    return Dispatch(ifname, action);
  } catch (const std::exception& e) {
    corvo::Log("linkrig: EXCEPTION: %s\n", e.what());
  } catch (...) {
    corvo::Log("linkrig: Unknown exception\n");
  }
  return 2;
}

int LinkConfigCommand::Dispatch(const std::string& ifname, const std::string& action) {
  LedNetworkStatusObserver observer(ifname);
  if (action == "init" || action == "add") {
    return ifname == kDialup ? m_steps.ModemStartCheck(ifname) : 0;
  }
  if (action == "remove") {
    return ifname == kDialup ? m_steps.ConfigureDialup(ifname, kDialupStop) : 0;
  }
  if (action == "start") return Start(ifname, observer);
  if (action == "stop") return Stop(ifname, observer);
  if (action == "reconfigure") return Reconfigure(ifname, observer);
  if (action == "checklink") return CheckLink(ifname);
  if (action == "update") return Update(ifname, observer);
  corvo::Log("%s", kUsage);
  return 1;
}

bool LinkConfigCommand::IsSupplicantInterface(const std::string& ifname) const {
  const auto* hardware = corvo::HardwareConfig::GetInstance();
  return hardware->IsWifiInterface(ifname) || hardware->IsEthernetInterface(ifname);
}

int LinkConfigCommand::Start(const std::string& ifname, LedNetworkStatusObserver& observer) {
  if (ifname == kHost) {
    m_steps.ConfigureHostForwarding(true);
    return 0;
  }
  if (ifname == kDialup) return m_steps.ConfigureDialup(ifname, kDialupStart);
  const auto reader = m_steps.MakeReader(ifname);
  if (IsSupplicantInterface(ifname)) m_steps.InitialiseWifi(&observer, *reader, ifname);
  // A start always begins from a stopped configuration; the shaper is only added.
  m_steps.ConfigureInterface(&observer, *reader, ifname, false);
  m_steps.ConfigureInterface(&observer, *reader, ifname, true);
  m_steps.ConfigureShaper(*reader, ifname, true);
  return 0;
}

int LinkConfigCommand::Stop(const std::string& ifname, LedNetworkStatusObserver& observer) {
  if (ifname == kHost) return 0;
  if (ifname == kDialup) return m_steps.ConfigureDialup(ifname, kDialupStop);
  const auto reader = m_steps.MakeReader(ifname);
  m_steps.ConfigureInterface(&observer, *reader, ifname, false);
  m_steps.ConfigureShaper(*reader, ifname, false);
  return 0;
}

int LinkConfigCommand::Reconfigure(const std::string& ifname,
                                   LedNetworkStatusObserver& observer) {
  if (ifname == kHost) {
    m_steps.ConfigureHostForwarding(true);
    return 0;
  }
  if (ifname == kDialup) return m_steps.ConfigureDialup(ifname, kDialupRestart);
  const auto reader = m_steps.MakeReader(ifname);
  m_steps.ConfigureInterface(&observer, *reader, ifname, false);
  m_steps.ConfigureShaper(*reader, ifname, false);
  if (IsSupplicantInterface(ifname)) m_steps.ConfigureWifiOrDot1x(&observer, *reader, ifname);
  m_steps.ConfigureInterface(&observer, *reader, ifname, true);
  m_steps.ConfigureShaper(*reader, ifname, true);
  return 0;
}

int LinkConfigCommand::Update(const std::string& ifname, LedNetworkStatusObserver& observer) {
  m_steps.UpdateLed(&observer);
  if (m_steps.HostForwardingMode() == 2) m_steps.ConfigureNat(ifname);
  return 0;
}

int LinkConfigCommand::CheckLink(const std::string& ifname) {
  const bool up = ifname == kHost ? m_steps.AnyNetworkPortHasLink() : m_steps.CheckLink(ifname);
  return up ? 0 : 1;
}

}  // namespace corvo
