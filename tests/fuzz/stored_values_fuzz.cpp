// Every parsed stored value of eth0 and of the host (one section), all holding the input.

#include "lib/platform/settings/interface_reader.h"
#include "tests/fuzz/fuzz_support.h"
#include "tests/support/world_model.h"

using namespace corvo;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  WorldModel world;
  for (const char* key : {"ip", "nm", "gw", "d0", "d1", "d2", "ci", "im", "mtu", "vlans", "dh",
                          "dhgw", "dhdn", "wa", "wf", "ir", "forwarding", "hn"}) {
    world.Set(".omba", key, fuzz::Text(data, size));
  }
  const PersistentNetworkConfig::InterfaceReader reader("eth0", world.Get().settings, "S1");
  const PersistentNetworkConfig::HostReader host(world.Get().settings, "S1");
  // These never refuse a value.
  reader.IsDhcp(), reader.Gateway(), reader.DhcpServerGateway(), reader.InboundRate();
  reader.InterfaceMetric(), reader.Mtu(), host.Forwarding(), host.HostName();
  fuzz::Check(reader.StaticNameServers().size() <= 3, "more than three name servers");
  fuzz::Check(reader.DhcpServerNameServers().size() <= size / 2 + 1, "more servers than pieces");
  fuzz::Check(reader.ClientIdentifier().size() <= 48, "client identifier over 48 characters");
  fuzz::Expect([&] { reader.StaticAddress(); }, {"Invalid static IP configuration"});
  fuzz::Expect([&] { reader.Netmask(); }, {"Invalid static IP configuration"});
  fuzz::Expect(
      [&] {
        const std::set<std::uint16_t> ids = reader.Vlans();
        fuzz::Check(ids.empty() || *ids.rbegin() <= 4095, "VLAN id over 4095");
      },
      {"stoi"});
  fuzz::Expect([&] { reader.DhcpServerRange(); }, {"Malformed IP4 pair"});
  fuzz::Expect([&] { fuzz::Check(reader.CaCertificate().size() <= size, "decoded value grew"); },
               {"Invalid base64 data: "});
  fuzz::Expect([&] { reader.AccessPointFrequency(); }, {"stoul"});
  fuzz::Expect([&] { reader.DialupLinkParameter(); }, {"Invalid dialup link parameter"});
  return 0;
}
