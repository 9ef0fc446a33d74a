#include "apps/linkrig/default_steps.h"

#include <stdexcept>

#include "apps/steps/host_forwarding.h"
#include "lib/hardware/led_status.h"
#include "lib/hardware/link_check.h"
#include "lib/platform/network_ports.h"
#include "lib/platform/interface_reader.h"

namespace corvo {

namespace {

// Steps this build does not carry yet fail loudly rather than pretend to succeed.
[[noreturn]] void NotAvailable(const char* step) {
  throw std::runtime_error(std::string(step) + " is not available in this build");
}

}  // namespace

std::unique_ptr<InterfaceReader> DefaultSteps::MakeReader(const std::string& ifname) {
  return std::make_unique<InterfaceReader>(ifname);
}

int DefaultSteps::ModemStartCheck(const std::string&) { NotAvailable("Dial-up"); }

int DefaultSteps::ConfigureDialup(const std::string&, int) { NotAvailable("Dial-up"); }

void DefaultSteps::ConfigureHostForwarding(bool apply) { corvo::ConfigureHostForwarding(apply); }

void DefaultSteps::InitialiseWifi(LedNetworkStatusObserver*, const InterfaceReader&,
                                  const std::string&) {
  NotAvailable("InitialiseWifi");
}

void DefaultSteps::ConfigureWifiOrDot1x(LedNetworkStatusObserver*, const InterfaceReader&,
                                        const std::string&) {
  NotAvailable("ConfigureWifiOrDot1x");
}

void DefaultSteps::ConfigureInterface(LedNetworkStatusObserver*, const InterfaceReader&,
                                      const std::string&, bool) {
  NotAvailable("ConfigureInterface");
}

void DefaultSteps::ConfigureShaper(const InterfaceReader&, const std::string&, bool) {
  NotAvailable("ConfigureShaper");
}

bool DefaultSteps::CheckLink(const std::string& ifname) { return corvo::CheckLinkAction(ifname); }

bool DefaultSteps::AnyNetworkPortHasLink() { return corvo::AnyNetworkPortHasLink(); }

void DefaultSteps::UpdateLed(LedNetworkStatusObserver* observer) { observer->UpdateLed(); }

int DefaultSteps::HostForwardingMode() {
  return corvo::PersistentNetworkConfig::HostReader().Forwarding();
}

void DefaultSteps::ConfigureNat(const std::string& ifname) { corvo::ConfigureNat(ifname); }

}  // namespace corvo
