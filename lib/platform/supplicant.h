#pragma once
// Client of wpa_supplicant's D-Bus interface (fi.w1.wpa_supplicant1 on the
// system bus). Calls block until the reply; signals are received and dropped.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <dbus-c++/types.h>

namespace supplicant {

// Network properties as AddNetwork takes them, sent in key order.
using PropertySet = std::map<std::string, DBus::Variant>;

struct BssInfo {
  std::string ssid;   // raw bytes
  std::string bssid;  // "00:11:22:aa:bb:cc"
  std::int16_t signal = 0;      // dBm
  std::uint16_t frequency = 0;  // MHz
};

struct SignalInfo {
  BssInfo bss;
  std::int32_t rssi = 0;
};

enum WifiLinkState {
  kNoInterface = 0,
  kNotAssociated = 1,
  kConnecting = 2,
  kConnectedStation = 3,
  kConnectedAccessPoint = 4,
};

class Network {
 public:
  virtual ~Network() = default;
  virtual PropertySet GetProperties() = 0;
};

class Interface {
 public:
  virtual ~Interface() = default;
  virtual void AddNetwork(const PropertySet& properties) = 0;
  virtual void AddAndSelectNetwork(const PropertySet& properties) = 0;
  virtual void RemoveAllNetworks() = 0;
  virtual void ForEachBSS(const std::function<void(const BssInfo&)>& callback) = 0;
  virtual SignalInfo GetSignalInfo() = 0;
  virtual std::string GetState() = 0;
  virtual bool IsScanning() = 0;
  virtual void Scan() = 0;
  virtual bool HasNetworks() = 0;
  virtual void SetBlob(const std::string& name, const std::vector<std::uint8_t>& bytes) = 0;
  // Empty when the interface has no current network.
  virtual std::shared_ptr<Network> GetCurrentNetwork() = 0;
};

class Supplicant {
 public:
  virtual ~Supplicant() = default;
  virtual std::shared_ptr<Interface> GetInterface(const std::string& ifname) = 0;
  virtual std::shared_ptr<Interface> GetOrCreateInterface(const std::string& ifname) = 0;
  virtual void SetDebugLevel(bool verbose) = 0;

  // A new client with its own bus connection on every call.
  static std::shared_ptr<Supplicant> Create();
};

WifiLinkState GetWifiLinkState(const std::string& ifname);

// The string under key, or "" when the key is absent.
std::string LookupPropertyString(const PropertySet& properties, const std::string& key);

}  // namespace supplicant
