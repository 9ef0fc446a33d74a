#pragma once
// Client of wpa_supplicant's D-Bus interface (fi.w1.wpa_supplicant1 on the
// system bus). Calls block until the reply; signals are received and dropped.
// Bus failures arrive as corvo::BusError and the types below.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "lib/platform/bus/bus_error.h"
#include "lib/platform/supplicant/properties.h"

namespace supplicant {

struct BssInfo {
  std::string ssid;             // raw bytes
  std::string bssid;            // "00:11:22:aa:bb:cc"
  std::int16_t signal = 0;      // dBm
  std::uint16_t frequency = 0;  // MHz
};

struct SignalInfo {
  BssInfo bss;
  std::int32_t rssi = 0;
};

// The daemon does not manage the interface.
class InterfaceUnknown : public corvo::BusError {
 public:
  using BusError::BusError;
};

// A scan could not be started (one is usually under way already).
class ScanError : public corvo::BusError {
 public:
  using BusError::BusError;
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
  virtual void SetBlob(const std::string& name, const Bytes& bytes) = 0;
  // Empty when the interface has no current network.
  virtual std::shared_ptr<Network> GetCurrentNetwork() = 0;
};

// The driver the daemon is told to use for an interface it is asked to take on.
using DriverChoice = std::function<std::string(const std::string& ifname)>;

class Supplicant {
 public:
  virtual ~Supplicant() = default;
  virtual std::shared_ptr<Interface> GetInterface(const std::string& ifname) = 0;
  virtual std::shared_ptr<Interface> GetOrCreateInterface(const std::string& ifname) = 0;
  virtual void SetDebugLevel(bool verbose) = 0;

  // A new client with its own bus connection on every call.
  static std::shared_ptr<Supplicant> Create(DriverChoice driver_for);
};

// Makes clients; the steps reach the daemon only through one of these.
class SupplicantConnector {
 public:
  virtual ~SupplicantConnector() = default;
  virtual std::shared_ptr<Supplicant> Connect() = 0;
};

// The daemon on the system bus. One client serves the connector's owner (a run)
// throughout: every client opens a bus connection of its own, and a run asks
// the daemon several times (the join, then each refresh of the LED).
class BusSupplicantConnector : public SupplicantConnector {
 public:
  explicit BusSupplicantConnector(DriverChoice driver_for) : m_driver_for(std::move(driver_for)) {}
  std::shared_ptr<Supplicant> Connect() override {
    if (!m_client) m_client = Supplicant::Create(m_driver_for);
    return m_client;
  }

 private:
  DriverChoice m_driver_for;
  std::shared_ptr<Supplicant> m_client;
};

}  // namespace supplicant
