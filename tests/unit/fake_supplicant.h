#pragma once
// A supplicant interface that records what it is asked to do, and renders
// network properties with their D-Bus types ("s:text", "i:3", "ay:0a0b") so
// tests can compare exact property sets.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <dbus-c++/error.h>
#include <dbus-c++/message.h>

#include "lib/platform/hex.h"
#include "lib/platform/supplicant.h"

namespace supplicant::test {

using Rendered = std::map<std::string, std::string>;

inline std::string Render(const DBus::Variant& value) {
  const std::string signature = value.signature();
  DBus::MessageIter reader = value.reader();
  if (signature == "s") return "s:" + std::string(reader.get_string());
  if (signature == "i") return "i:" + std::to_string(reader.get_int32());
  if (signature == "ay") {
    std::vector<std::uint8_t> bytes;
    reader >> bytes;
    return "ay:" + corvo::HexEncode(bytes.data(), bytes.size());
  }
  return "?" + signature;
}

inline Rendered Render(const PropertySet& properties) {
  Rendered rendered;
  for (const auto& [key, value] : properties) rendered[key] = Render(value);
  return rendered;
}

class FakeInterface : public Interface {
 public:
  void AddNetwork(const PropertySet& properties) override { Add("AddNetwork", properties); }
  void AddAndSelectNetwork(const PropertySet& properties) override {
    Add("AddAndSelectNetwork", properties);
  }
  void RemoveAllNetworks() override {
    calls.push_back("RemoveAllNetworks");
    networks.clear();
  }
  void ForEachBSS(const std::function<void(const BssInfo&)>&) override {}
  SignalInfo GetSignalInfo() override { return {}; }
  std::string GetState() override { return "disconnected"; }
  bool IsScanning() override { return false; }
  void Scan() override {
    calls.push_back("Scan");
    if (scan_error) scan_error();
  }
  bool HasNetworks() override { return !networks.empty(); }
  void SetBlob(const std::string& name, const std::vector<std::uint8_t>& bytes) override {
    calls.push_back("SetBlob " + name);
    if (set_blob_error) set_blob_error(name);
    blobs[name] = std::string(bytes.begin(), bytes.end());
  }
  std::shared_ptr<Network> GetCurrentNetwork() override { return nullptr; }

  std::vector<std::string> calls;
  std::vector<Rendered> networks;  // those the interface holds now
  std::map<std::string, std::string> blobs;
  // Called before a network or blob is taken; throw to fail the call.
  std::function<void(std::size_t)> add_network_error;
  std::function<void(const std::string&)> set_blob_error;
  std::function<void()> scan_error;

 private:
  void Add(const char* call, const PropertySet& properties) {
    calls.push_back(call);
    if (add_network_error) add_network_error(networks.size());
    networks.push_back(Render(properties));
  }
};

// Knows the interfaces in `interfaces`; GetOrCreateInterface adds a new one.
class FakeSupplicant : public Supplicant {
 public:
  std::shared_ptr<Interface> GetInterface(const std::string& ifname) override {
    calls.push_back("GetInterface " + ifname);
    const auto it = interfaces.find(ifname);
    if (it == interfaces.end()) {
      throw DBus::Error("fi.w1.wpa_supplicant1.InterfaceUnknown",
                        "wpa_supplicant knows nothing about this interface.");
    }
    return it->second;
  }
  std::shared_ptr<Interface> GetOrCreateInterface(const std::string& ifname) override {
    calls.push_back("GetOrCreateInterface " + ifname);
    auto& interface = interfaces[ifname];
    if (!interface) interface = std::make_shared<FakeInterface>();
    return interface;
  }
  void SetDebugLevel(bool verbose) override {
    calls.push_back(verbose ? "SetDebugLevel verbose" : "SetDebugLevel quiet");
  }

  std::vector<std::string> calls;
  std::map<std::string, std::shared_ptr<FakeInterface>> interfaces;
};

}  // namespace supplicant::test
