// Runs supplicant client operations so that tests can drive the client from
// outside: supplicant_probe OP ARGS... [-- OP ARGS...]..., with the operations
// of kOperations below; network properties are KEY=TYPE:VALUE (TYPE s, i, u, or
// ay in hex). Results go to standard output, one line each. A failure prints
// "EXCEPTION <D-Bus error name or std>: <what>" and exits 2.

#include <cstdint>
#include <cstdio>
#include <exception>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "lib/hardware/hardware_config.h"
#include "lib/platform/supplicant/supplicant.h"

namespace {

using Args = std::vector<std::string>;

std::vector<std::uint8_t> DecodeHex(const std::string& hex) {
  if (hex.size() % 2 != 0) throw std::invalid_argument("odd number of hex digits: " + hex);
  std::vector<std::uint8_t> bytes;
  for (size_t i = 0; i < hex.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

std::string Hex(const std::string& bytes) {
  std::string text;
  for (unsigned char c : bytes) text += fmt::format("{:02x}", c);
  return text;
}

// KEY=TYPE:VALUE arguments from index 1 on.
supplicant::PropertySet ParseProperties(const Args& args) {
  supplicant::PropertySet properties;
  for (size_t i = 1; i < args.size(); ++i) {
    const size_t equals = args[i].find('=');
    const size_t colon = args[i].find(':', equals);
    if (equals == std::string::npos || colon == std::string::npos) {
      throw std::invalid_argument("expected KEY=TYPE:VALUE: " + args[i]);
    }
    auto& property = properties[args[i].substr(0, equals)];
    const std::string type = args[i].substr(equals + 1, colon - equals - 1);
    const std::string value = args[i].substr(colon + 1);
    if (type == "s") property = value;
    if (type == "i") property = static_cast<std::int32_t>(std::stol(value));
    if (type == "u") property = static_cast<std::uint32_t>(std::stoul(value));
    if (type == "ay") property = DecodeHex(value);
  }
  return properties;
}

std::string Describe(const supplicant::BssInfo& bss) {
  return fmt::format("ssid={} bssid={} signal={} frequency={}", Hex(bss.ssid), bss.bssid,
                     bss.signal, bss.frequency);
}

// The drivers as the command chooses them, from the device's hardware description.
std::shared_ptr<supplicant::Supplicant> Connect() {
  const corvo::HardwareConfig* hardware = corvo::HardwareConfig::GetInstance();
  return supplicant::Supplicant::Create({hardware->GetEthernetInterface(), hardware->WifiDriver()});
}

std::shared_ptr<supplicant::Interface> Find(const Args& args) {
  if (args.empty()) throw std::invalid_argument("missing interface name");
  return Connect()->GetInterface(args[0]);
}

void Print(const std::string& text) { std::printf("%s\n", text.c_str()); }

const std::map<std::string, std::function<void(const Args&)>> kOperations = {
    {"get", [](const Args& a) { Print(Find(a) ? "ok" : ""); }},
    {"get-or-create",
     [](const Args& a) { Print(Connect()->GetOrCreateInterface(a.at(0)) ? "ok" : ""); }},
    {"state", [](const Args& a) { Print(Find(a)->GetState()); }},
    {"link-state",
     [](const Args& a) { Print(std::to_string(supplicant::GetWifiLinkState(a.at(0)))); }},
    {"has-networks", [](const Args& a) { Print(Find(a)->HasNetworks() ? "true" : "false"); }},
    {"remove-all", [](const Args& a) { Find(a)->RemoveAllNetworks(); }},
    {"set-blob", [](const Args& a) { Find(a)->SetBlob(a.at(1), DecodeHex(a.at(2))); }},
    {"scan", [](const Args& a) { Find(a)->Scan(); }},
    {"scanning", [](const Args& a) { Print(Find(a)->IsScanning() ? "true" : "false"); }},
    {"add-network", [](const Args& a) { Find(a)->AddNetwork(ParseProperties(a)); }},
    {"add-select-network", [](const Args& a) { Find(a)->AddAndSelectNetwork(ParseProperties(a)); }},
    {"bss",
     [](const Args& a) {
       Find(a)->ForEachBSS([](const supplicant::BssInfo& bss) { Print(Describe(bss)); });
     }},
    {"signal",
     [](const Args& a) {
       const supplicant::SignalInfo info = Find(a)->GetSignalInfo();
       Print(Describe(info.bss) + fmt::format(" rssi={}", info.rssi));
     }},
    {"current-network",  // reads the current network's properties; prints how many
     [](const Args& a) {
       const auto network = Find(a)->GetCurrentNetwork();
       Print(network ? std::to_string(network->GetProperties().size()) : "none");
     }},
    {"debug", [](const Args& a) { Connect()->SetDebugLevel(a.at(0) == "on"); }},
};

int Run(const std::string& name, const Args& args) {
  std::string kind;
  std::string what;
  try {
    const auto operation = kOperations.find(name);
    if (operation == kOperations.end()) throw std::invalid_argument("unknown operation " + name);
    operation->second(args);
    return 0;
  } catch (const corvo::BusError& e) {
    kind = e.Name();
    what = e.what();
  } catch (const std::exception& e) {
    kind = "std";
    what = e.what();
  }
  Print("EXCEPTION " + kind + ": " + what);
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: supplicant_probe OP [ARGS...] [-- OP [ARGS...]]...\n");
    return 1;
  }
  corvo::HardwareConfig hardware;
  std::vector<Args> groups(1);
  for (int i = 1; i < argc; ++i) {
    if (std::string(argv[i]) == "--") {
      groups.emplace_back();
    } else {
      groups.back().push_back(argv[i]);
    }
  }
  for (const Args& group : groups) {
    if (group.empty()) continue;
    const int status = Run(group[0], Args(group.begin() + 1, group.end()));
    std::fflush(stdout);
    if (status != 0) return status;
  }
  return 0;
}
