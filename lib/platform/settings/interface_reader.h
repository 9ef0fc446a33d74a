#pragma once
// Typed read views of the stored network settings: of one interface, of the host-wide ones
// and of section "networking". Nothing is cached: every accessor call reads one stored value
// (the name-server list reads its three keys, a customer-key passphrase also reads the
// customer key). The readers also say which stored values are secrets.
//
// Stored numbers are hexadecimal text unless noted. An IPv4 value is read
// from its leading hexadecimal digits (a "0x" prefix and leading blanks are
// accepted, trailing text is ignored); empty, digit-less, negative or wider
// than 32 bits reads as 0, the same on every word size.

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "lib/platform/base/interface_names.h"
#include "lib/platform/settings/settings.h"

namespace corvo {
namespace PersistentNetworkConfig {

// First and last address the DHCP server hands out.
struct Ip4Range {
  std::uint32_t start = 0;
  std::uint32_t end = 0;
};

// The registry section of an interface: "eth0", "wlan0" and "ppp0" have fixed
// sections, any other name (VLANs included) has ".net." followed by the name.
std::string SectionForInterface(const std::string& ifname);

// A text kept as stored has its accessor here; one that is parsed, in interface_reader.cpp.
class InterfaceReader {
 public:
  // The serial number makes the defaults of "ci" and "hn" (empty when unknown).
  InterfaceReader(const std::string& ifname, Settings& settings, std::string serial_number);

  const std::string& InterfaceName() const { return m_ifname; }
  const std::string& Section() const { return m_section; }
  // A reader of another interface (a VLAN, a parent) over the same store.
  InterfaceReader ForInterface(const std::string& ifname) const;

  // Addressing.
  bool IsDhcp() const;                  // "ip" 0 or empty
  std::uint32_t StaticAddress() const;  // "ip"; 0 raises "Invalid static IP configuration"
  std::uint32_t Netmask() const;        // "nm"; 0 raises "Invalid static IP configuration"
  std::uint32_t Gateway() const;        // "gw"; 0 is none
  std::string DomainName() const { return Read("nd"); }
  std::vector<std::uint32_t> StaticNameServers() const;  // "d0".."d2", zeros left out
  std::string ClientIdentifier() const;   // "ci"; empty is "Velmora:" + serial, "-" none
  int InterfaceMetric() const;            // "im"; -1 when unset or unusable
  int Mtu() const;                        // "mtu"; -1 when unset or unusable
  std::set<std::uint16_t> Vlans() const;  // "vlans": decimal ids 0..4095 separated by ","
  // The host name the DHCP client sends in place of the host's own; empty: none.
  std::string DhcpHostName() const { return Read("hh"); }

  // DHCP server.
  bool DhcpServerEnabled() const;  // "dh" not empty
  // "dh": addresses separated by ":" in (start, end) pairs; the server gets
  // the first and the last address. An odd count raises "Malformed IP4 pair";
  // no address at all gives 0.0.0.0 for both.
  Ip4Range DhcpServerRange() const;
  std::uint32_t DhcpServerGateway() const;                   // "dhgw"
  std::string DhcpServerDomain() const { return Read("dhds"); }
  std::vector<std::uint32_t> DhcpServerNameServers() const;  // "dhdn", ":"-separated

  // Wireless and 802.1X.
  std::string Ssid() const { return Read("wi"); }
  std::string Passphrase() const;         // "wp", recovered from its obfuscated form
  std::string Identity() const { return Read("wc"); }
  std::string SecurityOptions() const { return Read("ws"); }
  std::string Dot1xMethod() const { return Read("ww"); }
  std::string Dot1xOptions() const { return Read("wo"); }
  bool IsAccessPoint() const;             // "wm" not empty, whatever it holds
  std::string CaCertificate() const;      // "wa", "[base64]" decoded
  std::string ClientCertificate() const;  // "wt", "[base64]" decoded
  std::string PrivateKey() const;         // "wk", "[base64]" decoded
  // "wf" in decimal; empty is 0. Trailing text is ignored; a value that is not
  // a number raises std::invalid_argument("stoul"); a negative value or one
  // wider than 32 bits raises std::out_of_range("stoul") on every word size.
  unsigned int AccessPointFrequency() const;

  // Traffic and dial-up.
  std::uint32_t InboundRate() const;   // "ir"; empty or "-" is 0 (no limit)
  std::string DialupUser() const { return Read("du"); }
  std::string DialupPassword() const { return Read("dp"); }
  std::string DialupNumber() const { return Read("dn"); }
  std::string DialupInit() const { return Read("di"); }
  // "im" read as the dial-up link's decimal ipparam (std::stoi: leading blanks
  // and trailing text are accepted); empty is 0, so that an unset value does
  // not stop the link. Anything else raises
  // std::runtime_error("Invalid dialup link parameter").
  int DialupLinkParameter() const;

 private:
  std::string Read(const std::string& key) const;
  std::uint32_t ReadIp4(const std::string& key) const;

  std::string m_ifname;
  std::string m_section;
  Settings* m_settings;
  std::string m_serial;
};

// Host-wide "forwarding" setting.
enum ForwardingMode { kNoForwarding = 0, kRouting = 1, kNat = 2 };

// Host-wide settings, kept in the section of "eth0".
class HostReader {
 public:
  HostReader(Settings& settings, std::string serial_number);

  const std::string& Section() const { return m_section; }
  // "forwarding": 0, 1 or 2 in hexadecimal; anything else is kNoForwarding.
  ForwardingMode Forwarding() const;
  // "hn"; empty is "Velmora-" + serial.
  std::string HostName() const;

 private:
  std::string m_section;
  Settings* m_settings;
  std::string m_serial;
};

// Where a changed configuration must reach to count as good.
struct TcpEndpoint {
  std::string host;
  std::uint16_t port = 0;
};

// Host-wide settings of section "networking". A switch is on when its value is not empty.
class NetworkingReader {
 public:
  explicit NetworkingReader(Settings& settings) : m_settings(&settings) {}

  bool DhcpDebug() const;          // "dhcp_debug": dhcpcd runs with -d
  bool WifiDebug() const;          // "wifi_debug": supplicant debugging for the WiFi port
  bool WiredDebug() const;         // "wired_debug": the same for the wired 802.1X port
  std::string TimeServer() const;  // "ntp_server"; empty is "pool.ntp.org"
  std::string PtpDomain() const;   // "ptp_domain", decimal as stored; empty is none
  // "confirm_target": "HOST:PORT", HOST a name, an IPv4 address or an IPv6 one (bracketed or
  // not), PORT decimal 1..65535; nothing when not stored. A value that is not such raises
  // std::invalid_argument with a line that names the key and the value.
  std::optional<TcpEndpoint> ConfirmTarget() const;
  // "confirm_seconds": decimal 1..86400; empty is 60. Raises as ConfirmTarget does.
  unsigned int ConfirmSeconds() const;

 private:
  bool IsOn(const char* key) const;

  Settings* m_settings;
};

// The secrets among the stored values, in every form a run may show them: the dial-up
// password ("dp"), the passphrase ("wp") as stored and as recovered, the private key ("wk") as
// stored and as decoded, and the customer key. None for any other value, or an empty one; a
// form that cannot be recovered is left out (the run itself reports such a value).
std::vector<std::string> SecretForms(const std::string& section, const std::string& key,
                                     const std::string& value, Settings& settings);

// The supplicant network properties that carry the passphrase, in whatever form.
bool IsPassphraseProperty(const std::string& property);

}  // namespace PersistentNetworkConfig
}  // namespace corvo
