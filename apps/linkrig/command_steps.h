#pragma once
// The configuration steps the front end runs. The front end only decides which
// steps run, in which order; the steps themselves touch the system.

#include <memory>
#include <string>

namespace corvo {

class LedNetworkStatusObserver;
namespace PersistentNetworkConfig {
class InterfaceReader;
}
using PersistentNetworkConfig::InterfaceReader;

// Start, stop and reconfigure as carried to the dial-up step.
enum DialupAction { kDialupStart = 1, kDialupStop = 2, kDialupRestart = 3 };

class CommandSteps {
 public:
  virtual ~CommandSteps() = default;

  virtual std::unique_ptr<InterfaceReader> MakeReader(const std::string& ifname) = 0;

  virtual int ModemStartCheck(const std::string& ifname) = 0;
  virtual int ConfigureDialup(const std::string& ifname, int action) = 0;
  virtual void ConfigureHostForwarding(bool apply) = 0;
  virtual void InitialiseWifi(LedNetworkStatusObserver* observer, const InterfaceReader& reader,
                              const std::string& ifname) = 0;
  virtual void ConfigureWifiOrDot1x(LedNetworkStatusObserver* observer,
                                    const InterfaceReader& reader, const std::string& ifname) = 0;
  virtual void ConfigureInterface(LedNetworkStatusObserver* observer,
                                  const InterfaceReader& reader, const std::string& ifname,
                                  bool start) = 0;
  virtual void ConfigureShaper(const InterfaceReader& reader, const std::string& ifname,
                               bool add) = 0;
  virtual bool CheckLink(const std::string& ifname) = 0;
  virtual bool AnyNetworkPortHasLink() = 0;
  virtual void UpdateLed(LedNetworkStatusObserver* observer) = 0;
  virtual int HostForwardingMode() = 0;
  virtual void ConfigureNat(const std::string& ifname) = 0;
};

}  // namespace corvo
