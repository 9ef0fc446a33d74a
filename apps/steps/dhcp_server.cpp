#include <chrono>
#include <csignal>
#include <cstdint>
#include <fmt/printf.h>
#include <exception>
#include <string>
#include <vector>

#include "apps/steps/dhcp.h"
#include "lib/platform/system/net.h"

namespace corvo {

namespace {

using PersistentNetworkConfig::InterfaceReader;

constexpr char kDhcpServer[] = "/sbin/udhcpd";
constexpr std::int64_t kStopGraceUs = 30000000;
constexpr std::chrono::seconds kReadyTimeout(15);
constexpr std::chrono::seconds kReadyPoll(1);

// A server started before the interface has its address would hand out
// nothing; but one that never gets ready is still started.
void WaitUntilReady(const std::string& ifname, Platform& platform) {
  const auto deadline = platform.clock.Now() + kReadyTimeout;
  while (platform.clock.Now() < deadline && !platform.network.InterfaceIsReady(ifname)) {
    platform.clock.Sleep(kReadyPoll);
  }
}

std::vector<std::string> ServerConfiguration(const InterfaceReader& reader,
                                             const std::string& ifname,
                                             const std::string& pid_file) {
  const PersistentNetworkConfig::Ip4Range range = reader.DhcpServerRange();
  std::vector<std::string> lines = {
      "interface " + ifname,
      "pidfile " + pid_file,
      "lease_file " + fmt::sprintf("/var/run/udhcpd-%s.leases", ifname),
      "start " + net::FormatIPv4(range.start),
      "end " + net::FormatIPv4(range.end),
      "option subnet " + net::FormatIPv4(reader.Netmask()),
  };
  if (const std::uint32_t router = reader.DhcpServerGateway()) {
    lines.push_back("option router " + net::FormatIPv4(router));
  }
  for (const std::uint32_t server : reader.DhcpServerNameServers()) {
    lines.push_back("opt dns " + net::FormatIPv4(server));
  }
  const std::string domain = reader.DhcpServerDomain();
  if (net::IsValidDomainName(domain)) lines.push_back("option domain " + domain);
  return lines;
}

void StartServer(const InterfaceReader& reader, const std::string& ifname,
                 const std::string& pid_file, Platform& platform) {
  WaitUntilReady(ifname, platform);
  platform.log.Print("Starting DHCP server for '%s'\n", ifname);

  const std::string conf_file = fmt::sprintf("/var/run/udhcpd-%s.conf", ifname);
  std::string text;
  for (const std::string& line : ServerConfiguration(reader, ifname, pid_file)) {
    text += line + '\n';
  }
  try {
    // Whole or not at all: the server never reads half a configuration.
    platform.files.Replace(conf_file, text, 0644);
  } catch (const std::exception&) {
    // Not reported: the server then fails on its own, and its exit code is.
  }

  const int status = platform.programs.Run(kDhcpServer, {conf_file});
  if (status != 0) platform.log.Print("linkrig: Failed to spawn udhcpd: %d\n", status);
}

}  // namespace

bool DhcpServerAvailable(const RunContext& run) {
  const InterfaceReader& reader = run.reader;
  const std::string& ifname = run.ifname;
  Platform& platform = run.platform;
  if (!reader.DhcpServerEnabled()) return false;
  if (reader.IsDhcp()) {
    platform.log.Print("DHCP server is not available on '%s' since it is also a DHCP client.\n",
                       ifname);
    return false;
  }
  // A VLAN of the WiFi interface serves only when the WiFi is an access point.
  const std::string::size_type dot = ifname.rfind('.');
  const std::string base = dot == std::string::npos ? ifname : ifname.substr(0, dot);
  if (platform.hardware.IsWifiInterface(base)) {
    if (!reader.ForInterface(base).IsAccessPoint()) {
      platform.log.Print("DHCP server not available on '%s' when not in access point mode\n",
                         ifname);
      return false;
    }
  }
  return true;
}

void ConfigureDhcpServer(const RunContext& run, Phase phase) {
  Platform& platform = run.platform;
  const std::string pid_file = fmt::sprintf("/var/run/udhcpd-%s.pid", run.ifname);
  // Every start is preceded by a stop, so a running server is never replaced here.
  if (phase == Phase::kStop || !DhcpServerAvailable(run)) {
    if (const auto pid = platform.programs.ReadPidFile(pid_file, "udhcpd")) {
      platform.programs.KillProcessAndWait(*pid, SIGTERM, kStopGraceUs);
    }
  } else {
    StartServer(run.reader, run.ifname, pid_file, platform);
  }
  run.led.Update();
}

}  // namespace corvo
