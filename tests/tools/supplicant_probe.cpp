// Drives the supplicant client for tests: supplicant_probe OP ARGS... [-- OP ARGS...]...,
// OP from kOperations; network properties are KEY=TYPE:VALUE (TYPE s, i, u, or ay in hex).
// One result line each; a failure prints "EXCEPTION <D-Bus error name or std>: <what>", exit 2.

#include <cstdint>
#include <cstdio>
#include <exception>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "apps/steps/status_led.h"
#include "lib/hardware/hardware_config.h"
#include "lib/platform/base/hex.h"
#include "lib/platform/supplicant/supplicant.h"

namespace {

using Args = std::vector<std::string>;

// KEY=TYPE:VALUE arguments from index 1 on.
supplicant::PropertySet ParseProperties(const Args& args) {
  supplicant::PropertySet properties;
  for (size_t i = 1; i < args.size(); ++i) {
    const size_t equals = args[i].find('=');
    const size_t colon = args[i].find(':', equals);
    if (colon == std::string::npos) throw std::invalid_argument("not KEY=TYPE:VALUE: " + args[i]);
    auto& property = properties[args[i].substr(0, equals)];
    const std::string type = args[i].substr(equals + 1, colon - equals - 1);
    const std::string value = args[i].substr(colon + 1);
    if (type == "s") property = value;
    if (type == "i") property = static_cast<std::int32_t>(std::stol(value));
    if (type == "u") property = static_cast<std::uint32_t>(std::stoul(value));
    if (type == "ay") property = corvo::HexDecode(value);
  }
  return properties;
}

void Print(const std::string& text) { std::printf("%s\n", text.c_str()); }

std::string Describe(const supplicant::BssInfo& bss) {
  return fmt::format("ssid={} bssid={} signal={} frequency={}",
                     corvo::HexEncode(bss.ssid.data(), bss.ssid.size()), bss.bssid, bss.signal,
                     bss.frequency);
}

// The drivers as the command chooses them, from the device's hardware description.
std::string DriverFor(const std::string& ifname) {
  static corvo::DeviceHardwareFacts hardware;
  return hardware.SupplicantDriver(ifname);
}

std::shared_ptr<supplicant::Supplicant> Connect() {
  return supplicant::Supplicant::Create(DriverFor);
}

auto Find(const Args& a) { return Connect()->GetInterface(a.at(0)); }

const char* Bool(bool value) { return value ? "true" : "false"; }

const std::map<std::string, std::function<void(const Args&)>> kOperations = {
    {"get", [](const Args& a) { Print(Find(a) ? "ok" : ""); }},
    {"get-or-create",
     [](const Args& a) { Print(Connect()->GetOrCreateInterface(a.at(0)) ? "ok" : ""); }},
    {"state", [](const Args& a) { Print(Find(a)->GetState()); }},
    {"link-state",  // as the status LED reads it
     [](const Args& a) {
       supplicant::BusSupplicantConnector connector(DriverFor);
       Print(std::to_string(corvo::GetWifiLinkState(connector, a.at(0))));
     }},
    {"has-networks", [](const Args& a) { Print(Bool(Find(a)->HasNetworks())); }},
    {"remove-all", [](const Args& a) { Find(a)->RemoveAllNetworks(); }},
    {"set-blob", [](const Args& a) { Find(a)->SetBlob(a.at(1), corvo::HexDecode(a.at(2))); }},
    {"scan", [](const Args& a) { Find(a)->Scan(); }},
    {"scanning", [](const Args& a) { Print(Bool(Find(a)->IsScanning())); }},
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

// Returns the exit status.
int Run(const Args& group) {
  try {
    const auto operation = kOperations.find(group.empty() ? "" : group[0]);
    if (operation == kOperations.end()) throw std::invalid_argument("unknown operation");
    operation->second(Args(group.begin() + 1, group.end()));
    return 0;
  } catch (const corvo::BusError& e) {
    Print("EXCEPTION " + e.Name() + ": " + e.what());
  } catch (const std::exception& e) {
    Print(std::string("EXCEPTION std: ") + e.what());
  }
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  Args group;
  for (int i = 1; i <= argc; ++i) {
    if (i < argc && std::string(argv[i]) != "--") {
      group.push_back(argv[i]);
      continue;
    }
    if (const int status = Run(group); status != 0) return status;
    group.clear();
  }
  return 0;
}
