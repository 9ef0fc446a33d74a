#include "apps/steps/dhcp.h"

#include <csignal>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "lib/platform/base/interface_names.h"
#include "lib/platform/system/net.h"

namespace corvo {

namespace {

constexpr char kDhcpClient[] = "/sbin/dhcpcd";
constexpr char kDhcpClientPidDir[] = "/run/dhcpcd/";
// How long a stopping client may take: it may be running a hook first.
constexpr std::int64_t kClientStopGraceUs = 10000000;

// A stored address is handed to the client as static option values, so that
// one program owns the interface's addresses in both cases.
void AddStaticOptions(const PersistentNetworkConfig::InterfaceReader& reader,
                      std::vector<std::string>& args) {
  args.push_back("-Sip_address=" + net::FormatIPv4(reader.StaticAddress()));
  args.push_back("-Ssubnet_mask=" + net::FormatIPv4(reader.Netmask()));
  if (const std::uint32_t gateway = reader.Gateway()) {
    args.push_back("-Srouters=" + net::FormatIPv4(gateway));
  }
  const std::string domain = reader.DomainName();
  if (!domain.empty()) args.push_back("-Sdomain_name=" + domain);
  const std::vector<std::uint32_t> servers = reader.StaticNameServers();
  if (!servers.empty()) {
    std::string list;
    for (const std::uint32_t server : servers) {
      if (!list.empty()) list += ' ';
      list += net::FormatIPv4(server);
    }
    args.push_back("-Sdomain_name_servers=" + list);
  }
}

}  // namespace

void ConfigureDhcp(const RunContext& run, Phase phase) {
  Platform& platform = run.platform;
  const std::string& ifname = run.ifname;
  const PersistentNetworkConfig::InterfaceReader& reader = run.reader;
  const bool start = phase == Phase::kStart;
  // The root file system lives on this link: taking its address away, even to
  // restart the client, would cut the system off from itself.
  if (ifname == kEthernetPort && platform.network.IsBootedFromNfs()) {
    run.led.Update();
    return;
  }

  HardwareFacts& hardware = platform.hardware;
  std::vector<std::string> args = {"-I",   reader.ClientIdentifier(),
                                   "-i",   hardware.OemId() + " " + hardware.OemModel(),
                                   "-o43", "-b"};
  if (PersistentNetworkConfig::NetworkingReader(platform.settings).DhcpDebug()) {
    platform.log.Print("Enabling DHCP client debugging\n");
    args.push_back("-d");
  }
  if (!start) {
    args.push_back("-x");
  } else {
    const std::string host_name = reader.DhcpHostName();
    if (!host_name.empty()) args.insert(args.end(), {"-h", host_name});
    if (!reader.IsDhcp()) AddStaticOptions(reader, args);
    const int metric = reader.InterfaceMetric();
    if (metric >= 0) args.push_back("-m" + std::to_string(metric));
    const int mtu = reader.Mtu();
    if (mtu >= 1) args.push_back("-Sinterface_mtu=" + std::to_string(mtu));
  }
  args.push_back(ifname);

  // "-x" only asks the client to stop and returns: busy with a hook, it may still apply a
  // renewed lease after the addresses below are removed. So the client is stopped (as "-x"
  // would) and waited for first.
  if (!start) {
    if (const std::optional<pid_t> running =
            platform.programs.ReadPidFile(kDhcpClientPidDir + ifname + ".pid", "dhcpcd")) {
      try {
        platform.programs.KillProcessAndWait(*running, SIGTERM, kClientStopGraceUs);
      } catch (const std::exception&) {
        // It went by itself in the meantime.
      }
    }
  }
  const int status = platform.programs.Run(kDhcpClient, args);
  // Stopping a client that is not running fails, and that is normal.
  if (start && status != 0) platform.log.Print("linkrig: Failed to spawn dhcpcd: %d\n", status);
  if (!start) {
    // An exiting dhcpcd may leave what it configured ("persistent" in its configuration): the
    // stopped configuration's addresses go now, before another one applies.
    try {
      platform.network.RemoveAddresses(ifname);
    } catch (const std::exception& e) {
      platform.log.Print("linkrig: Unable to remove the addresses of %s: %s\n", ifname, e.what());
    }
  }

  ConfigureDhcpServer(run, phase);
}

}  // namespace corvo
