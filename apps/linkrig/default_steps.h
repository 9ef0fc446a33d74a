#pragma once

#include "apps/linkrig/command_steps.h"

namespace corvo {

// The steps as they run on the player.
class DefaultSteps : public CommandSteps {
 public:
  std::unique_ptr<InterfaceReader> MakeReader(const std::string& ifname) override;
  int ModemStartCheck(const std::string& ifname) override;
  int ConfigureDialup(const std::string& ifname, int action) override;
  void ConfigureHostForwarding(bool apply) override;
  void InitialiseWifi(LedNetworkStatusObserver* observer, const InterfaceReader& reader,
                      const std::string& ifname) override;
  void ConfigureWifiOrDot1x(LedNetworkStatusObserver* observer, const InterfaceReader& reader,
                            const std::string& ifname) override;
  void ConfigureInterface(LedNetworkStatusObserver* observer, const InterfaceReader& reader,
                          const std::string& ifname, bool start) override;
  void ConfigureShaper(const InterfaceReader& reader, const std::string& ifname,
                       bool add) override;
  bool CheckLink(const std::string& ifname) override;
  bool AnyNetworkPortHasLink() override;
  void UpdateLed(LedNetworkStatusObserver* observer) override;
  int HostForwardingMode() override;
  void ConfigureNat(const std::string& ifname) override;
};

}  // namespace corvo
