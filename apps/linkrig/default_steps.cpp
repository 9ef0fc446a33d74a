#include "apps/linkrig/default_steps.h"

#include <stdexcept>

#include "apps/steps/dialup.h"
#include "apps/steps/host_forwarding.h"
#include "apps/steps/interface_configuration.h"
#include "apps/steps/shaper.h"
#include "apps/steps/wifi_bringup.h"
#include "lib/hardware/led_status.h"
#include "lib/hardware/link_check.h"
#include "lib/platform/network_ports.h"
#include "lib/platform/interface_reader.h"

namespace corvo {

std::unique_ptr<InterfaceReader> DefaultSteps::MakeReader(const std::string& ifname) {
  return std::make_unique<InterfaceReader>(ifname);
}

int DefaultSteps::ModemStartCheck(const std::string& ifname) {
  return corvo::ModemStartCheck(ifname);
}

int DefaultSteps::ConfigureDialup(const std::string& ifname, int action) {
  return corvo::ConfigureDialup(ifname, action);
}

void DefaultSteps::ConfigureHostForwarding(bool apply) { corvo::ConfigureHostForwarding(apply); }

void DefaultSteps::InitialiseWifi(LedNetworkStatusObserver* observer,
                                  const InterfaceReader& reader, const std::string& ifname) {
  corvo::InitialiseWifi(observer, reader, ifname, DefaultWifiBringupContext());
}

void DefaultSteps::ConfigureWifiOrDot1x(LedNetworkStatusObserver* observer,
                                        const InterfaceReader& reader, const std::string& ifname) {
  // A join that cannot be started has been reported; the addressing still runs.
  corvo::ConfigureWifiOrDot1x(observer, reader, ifname, DefaultWifiBringupContext());
}

void DefaultSteps::ConfigureInterface(LedNetworkStatusObserver* observer,
                                      const InterfaceReader& reader, const std::string& ifname,
                                      bool start) {
  corvo::ConfigureInterface(observer, reader, ifname.c_str(), start);
}

void DefaultSteps::ConfigureShaper(const InterfaceReader& reader, const std::string& ifname,
                                   bool add) {
  corvo::ConfigureShaper(reader, ifname.c_str(), add);
}

bool DefaultSteps::CheckLink(const std::string& ifname) { return corvo::CheckLinkAction(ifname); }

bool DefaultSteps::AnyNetworkPortHasLink() { return corvo::AnyNetworkPortHasLink(); }

void DefaultSteps::UpdateLed(LedNetworkStatusObserver* observer) { observer->UpdateLed(); }

int DefaultSteps::HostForwardingMode() {
  return corvo::PersistentNetworkConfig::HostReader().Forwarding();
}

void DefaultSteps::ConfigureNat(const std::string& ifname) { corvo::ConfigureNat(ifname); }

}  // namespace corvo
