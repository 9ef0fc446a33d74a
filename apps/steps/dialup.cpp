#include "apps/steps/dialup.h"

#include <csignal>
#include <cstdint>
#include <exception>
#include <stdexcept>
#include <vector>

#include <fmt/printf.h>

#include "apps/steps/contained.h"

namespace corvo {

namespace {

constexpr std::int64_t kStopTimeoutUs = 5000000;
// The peer file holds the dial-up password; the chat script is kept as private.
constexpr mode_t kPrivateFile = 0600;

// Between apostrophes on one line: neither may end the value early.
constexpr char kQuotedForbidden[] = "'\n\r";
constexpr char kNumberCharacters[] = "0123456789,*#";

// chat reads "\ooo" in a quoted string as an octal byte.
std::string EscapeForChat(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte <= 0x7E && c != '\\' && c != '"') {
      escaped += c;
    } else {
      escaped += fmt::sprintf("\\%03o", static_cast<unsigned int>(byte));
    }
  }
  return escaped;
}

void Validate(const DialupSettings& settings) {
  if (settings.user.find_first_of(kQuotedForbidden) != std::string::npos) {
    throw std::runtime_error("Dialup user contains invalid character");
  }
  if (settings.password.find_first_of(kQuotedForbidden) != std::string::npos) {
    throw std::runtime_error("Dialup password contains invalid character");
  }
  if (settings.number.find_first_not_of(kNumberCharacters) != std::string::npos) {
    throw std::runtime_error("Dialup number contains invalid character");
  }
}

// Whole or not at all, private from the first byte: pppd may redial at any moment and must
// never read half a file. Errors become the step's own message.
void WritePrivateFile(Files& files, const char* path, const std::string& content,
                      const char* failure) {
  try {
    files.Replace(path, content, kPrivateFile);
  } catch (const std::exception&) {
    throw std::runtime_error(failure);
  }
}

void WriteChatScript(const DialupSettings& settings, Files& files) {
  std::string script =
      "ABORT BUSY\n"
      "ABORT VOICE\n"
      "ABORT \"NO CARRIER\"\n"
      "ABORT \"NO DIALTONE\"\n"
      "ABORT \"NO DIAL TONE\"\n"
      "ABORT \"ERROR\"\n"
      "\"\" ATZ\n";
  if (!settings.init.empty()) script += "OK \"" + EscapeForChat(settings.init) + "\"\n";
  script += "OK ATDT" + settings.number + "\nCONNECT \"\"\n";
  WritePrivateFile(files, kChatScriptPath, script, "Failed to create peer chatscript");
}

void WritePeerFile(const std::string& device, const DialupSettings& settings, Files& files) {
  const std::string peer = device + "\n" +
                           "115200\n"
                           "connect \"/sbin/chat -s 2>/dev/kmsg -v -f " + kChatScriptPath + "\"\n"
                           "noipdefault\n"
                           "usepeerdns\n"
                           "noauth\n"
                           "user '" + settings.user + "'\n"
                           "password '" + settings.password + "'\n"
                           "nodetach\n"
                           "unit 0\n"
                           "logfile /dev/kmsg\n"
                           "linkname peer\n"
                           "lock\n"
                           "persist\n"
                           "holdoff 15\n"
                           "maxfail 0\n"
                           "ipparam " + std::to_string(settings.link_parameter) + "\n";
  WritePrivateFile(files, kPeerFilePath, peer, "Failed to create peer configuration file");
}

}  // namespace

DialupSettings DialupSettings::Read(const PersistentNetworkConfig::InterfaceReader& reader) {
  DialupSettings settings;
  settings.user = reader.DialupUser();
  settings.password = reader.DialupPassword();
  settings.number = reader.DialupNumber();
  settings.init = reader.DialupInit();
  settings.link_parameter = reader.DialupLinkParameter();
  return settings;
}

std::optional<std::string> DialupInterfaceName(Platform& platform) {
  if (platform.files.Exists(kModemDevice)) return std::string(kDialupPort);
  return std::nullopt;
}

void WriteDialupConfiguration(const std::string& device, const DialupSettings& settings,
                              Files& files) {
  Validate(settings);
  WriteChatScript(settings, files);
  WritePeerFile(device, settings, files);
}

void StopDialup(Platform& platform) {
  const auto pid = platform.programs.ReadPidFile(kDialupPidFile, "pppd");
  if (pid && *pid > 0) {
    platform.programs.KillProcessAndWait(*pid, SIGTERM, kStopTimeoutUs);
    platform.files.Remove(kDialupPidFile);
  }
}

pid_t StartDialup(Platform& platform) {
  StopDialup(platform);
  return platform.programs.StartDetached({"/sbin/pppd", "call", "peer"}, kDialupPidFile);
}

int ConfigureDialup(const RunContext& run, DialupAction action) {
  Platform& platform = run.platform;
  if (!DialupInterfaceName(platform)) return 1;
  const bool done = Contained(
      [&] {
        const DialupSettings settings = DialupSettings::Read(run.reader);
        WriteDialupConfiguration(kModemDevice, settings, platform.files);
        if (action == kDialupStop || action == kDialupRestart) StopDialup(platform);
        // Without a number there is nothing to dial; the files are ready for when there is.
        if ((action == kDialupStart || action == kDialupRestart) && !settings.number.empty()) {
          StartDialup(platform);
        }
      },
      [&](const std::exception* e) {
        if (e != nullptr) {
          platform.log.Print("Failed to configure dialup: %s\n", e->what());
        } else {
          platform.log.Print("Failed to configure dialup: Unknown exception.\n");
        }
      });
  return done ? 0 : 1;
}

int ModemStartCheck(const RunContext& run) {
  Platform& platform = run.platform;
  if (!platform.files.Exists(kModemDevice)) {
    platform.log.Print("linkrig: Modem not found\n");
    return 1;
  }
  if (platform.network.InterfaceHasLink(run.ifname)) {
    platform.log.Print("linkrig: Interface already connected\n");
    return 2;
  }
  return ConfigureDialup(run, kDialupStart);
}

}  // namespace corvo
