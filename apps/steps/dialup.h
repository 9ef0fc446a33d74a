#pragma once
// The PPP dial-up link ppp0: a chat script and a pppd peer file written from
// the stored dial-up settings, and pppd run detached, found through its PID file.

#include <optional>
#include <string>
#include <sys/types.h>

#include "apps/steps/run_context.h"
#include "lib/platform/base/interface_names.h"

namespace corvo {

constexpr char kChatScriptPath[] = "/var/volatile/etc/ppp-chatscript";
constexpr char kPeerFilePath[] = "/etc/ppp/peers/peer";
constexpr char kDialupPidFile[] = "/var/run/dialup.pid";

struct DialupSettings {
  std::string user;        // "du"
  std::string password;    // "dp"
  std::string number;      // "dn", dialled after ATDT
  std::string init;        // "di", an optional modem command sent after ATZ
  int link_parameter = 0;  // "im", pppd's ipparam

  static DialupSettings Read(const PersistentNetworkConfig::InterfaceReader& reader);
};

// Start, stop and restart as the front end hands them over.
enum DialupAction : int { kDialupStart = 1, kDialupStop = 2, kDialupRestart = 3 };

// "ppp0" when the modem device exists (a link is followed), else nothing.
std::optional<std::string> DialupInterfaceName(Platform& platform);

// Validates the settings, then writes the chat script and the peer file, both
// readable by root only (the peer file holds the password). Throws
// std::runtime_error with the reason.
void WriteDialupConfiguration(const std::string& device, const DialupSettings& settings,
                              Files& files);

// Stops the pppd named by the PID file (SIGTERM, SIGKILL after 5 s) and removes the file.
void StopDialup(Platform& platform);
// Stops any running pppd, then starts "/sbin/pppd call peer" detached; returns its PID.
pid_t StartDialup(Platform& platform);

// The dial-up actions give the run's exit status: 0 when done, 1 without a modem or when the
// configuration failed (the failure is printed).
int ConfigureDialup(const RunContext& run, DialupAction action);

// Bringing ppp0 up ("init", "add"): as ConfigureDialup's start, but 2 when the link is up
// already.
int ModemStartCheck(const RunContext& run);

}  // namespace corvo
