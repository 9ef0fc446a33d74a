#pragma once
// The PPP dial-up link ppp0: a chat script and a pppd peer file written from
// the stored dial-up settings, and pppd run detached, found through its PID file.

#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>

#include "lib/platform/platform.h"
#include "lib/platform/registry.h"

namespace corvo {

namespace PersistentNetworkConfig {
class InterfaceReader;
}

constexpr char kModemDevice[] = "/dev/modem";
constexpr char kChatScriptPath[] = "/var/volatile/etc/ppp-chatscript";
constexpr char kPeerFilePath[] = "/etc/ppp/peers/peer";
constexpr char kDialupPidFile[] = "/var/run/dialup.pid";

struct DialupSettings {
  std::string user;      // "du"
  std::string password;  // "dp"
  std::string number;    // "dn", dialled after ATDT
  std::string init;      // "di", an optional modem command sent after ATZ
  int link_parameter = 0;  // "im", pppd's ipparam

  static DialupSettings Read(const PersistentNetworkConfig::InterfaceReader& reader);
};

// "ppp0" when the modem device exists (a link is followed), else nothing.
std::optional<std::string> DialupInterfaceName(Files& files = GetPlatform().files);

// Validates the settings, then writes the chat script and the peer file, both
// readable by root only (the peer file holds the password). Throws
// std::runtime_error with the reason.
void WriteDialupConfiguration(const std::string& device, const DialupSettings& settings,
                              Files& files = GetPlatform().files);

// Stops the pppd named by the PID file (SIGTERM, SIGKILL after 5 s) and removes the file.
void StopDialup(Platform& platform = GetPlatform());
// Stops any running pppd, then starts "/sbin/pppd call peer" detached; returns its PID.
pid_t StartDialup(Platform& platform = GetPlatform());

// Action 1 starts, 2 stops, 3 restarts. Returns 0 when done, 1 without a modem
// or when the configuration failed (the failure is printed).
int ConfigureDialup(const std::string& ifname, int action);
int ConfigureDialup(const std::string& ifname, int action, Platform& platform,
                    const std::function<Registry&()>& registry);

// For bringing ppp0 up: 1 without a modem, 2 when the link is already up,
// otherwise ConfigureDialup's start.
int ModemStartCheck(const std::string& ifname);
int ModemStartCheck(const std::string& ifname, Platform& platform,
                    const std::function<Registry&()>& registry);

}  // namespace corvo
