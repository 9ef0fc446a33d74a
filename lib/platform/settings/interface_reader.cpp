#include "lib/platform/settings/interface_reader.h"

#include <arpa/inet.h>
#include <boost/tokenizer.hpp>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <fmt/printf.h>
#include <stdexcept>

#include "lib/platform/settings/base64.h"
#include "lib/platform/settings/passphrase_obfuscation.h"

namespace corvo {
namespace PersistentNetworkConfig {

namespace {

constexpr char kHostSection[] = ".omba";
constexpr char kNetworkingSection[] = "networking";
constexpr char kDefaultTimeServer[] = "pool.ntp.org";
constexpr std::size_t kMaxClientIdentifier = 48;
constexpr int kMaxVlanId = 4095;
constexpr unsigned long kDefaultConfirmSeconds = 60;
constexpr unsigned long kMaxConfirmSeconds = 86400;

bool FitsIn32Bits(unsigned long long value) { return value <= 0xFFFFFFFFull; }

// Leading hexadecimal digits; see the header for what reads as 0.
std::uint32_t ParseHex32(const std::string& value) {
  const char* p = value.c_str();
  while (std::isspace(static_cast<unsigned char>(*p))) ++p;
  // strtoull would negate the value instead of refusing it.
  if (*p == '-') return 0;
  errno = 0;
  char* end = nullptr;
  const unsigned long long number = std::strtoull(p, &end, 16);
  if (end == p || errno == ERANGE || !FitsIn32Bits(number)) return 0;
  return static_cast<std::uint32_t>(number);
}

// Hexadecimal with a sign; anything std::stoi refuses is -1.
int ParseSignedHex(const std::string& value) {
  try {
    return std::stoi(value, nullptr, 16);
  } catch (const std::logic_error&) {
    return -1;
  }
}

using Tokenizer = boost::tokenizer<boost::char_separator<char>>;

// Empty pieces between separators are dropped.
std::vector<std::uint32_t> ParseIp4List(const std::string& value) {
  std::vector<std::uint32_t> addresses;
  const boost::char_separator<char> separator(":");
  for (const std::string& token : Tokenizer(value, separator)) {
    addresses.push_back(ParseHex32(token));
  }
  return addresses;
}

std::string CustomerKey(Settings& settings) { return settings.Read("customer", "obfuscation_key"); }

}  // namespace

std::string SectionForInterface(const std::string& ifname) {
  if (ifname == kEthernetPort) return kHostSection;
  if (ifname == kWifiPort) return ".omba1";
  if (ifname == kDialupPort) return ".omba2";
  return ".net." + ifname;
}

InterfaceReader::InterfaceReader(const std::string& ifname, Settings& settings,
                                 std::string serial_number)
    : m_ifname(ifname),
      m_section(SectionForInterface(ifname)),
      m_settings(&settings),
      m_serial(std::move(serial_number)) {}

InterfaceReader InterfaceReader::ForInterface(const std::string& ifname) const {
  return InterfaceReader(ifname, *m_settings, m_serial);
}

std::string InterfaceReader::Read(const std::string& key) const {
  return m_settings->Read(m_section, key);
}

std::uint32_t InterfaceReader::ReadIp4(const std::string& key) const {
  return ParseHex32(Read(key));
}

bool InterfaceReader::IsDhcp() const { return ReadIp4("ip") == 0; }

std::uint32_t InterfaceReader::StaticAddress() const {
  const std::uint32_t address = ReadIp4("ip");
  if (address == 0) throw std::runtime_error("Invalid static IP configuration");
  return address;
}

std::uint32_t InterfaceReader::Netmask() const {
  const std::uint32_t netmask = ReadIp4("nm");
  if (netmask == 0) throw std::runtime_error("Invalid static IP configuration");
  return netmask;
}

std::uint32_t InterfaceReader::Gateway() const { return ReadIp4("gw"); }

std::vector<std::uint32_t> InterfaceReader::StaticNameServers() const {
  std::vector<std::uint32_t> servers;
  for (int i = 0; i < 3; ++i) {
    const std::uint32_t server = ReadIp4(fmt::sprintf("d%d", i));
    if (server != 0) servers.push_back(server);
  }
  return servers;
}

std::string InterfaceReader::ClientIdentifier() const {
  const std::string value = Read("ci");
  if (value.empty()) return "Velmora:" + m_serial;
  if (value == "-") return std::string();
  if (value.size() > kMaxClientIdentifier) return value.substr(0, kMaxClientIdentifier);
  return value;
}

int InterfaceReader::InterfaceMetric() const { return ParseSignedHex(Read("im")); }

// Hexadecimal like every other stored number, although people think of MTUs in decimal.
int InterfaceReader::Mtu() const { return ParseSignedHex(Read("mtu")); }

std::set<std::uint16_t> InterfaceReader::Vlans() const {
  std::set<std::uint16_t> ids;
  const std::string value = Read("vlans");
  const boost::char_separator<char> separator(",");
  for (const std::string& token : Tokenizer(value, separator)) {
    int id;
    try {
      id = std::stoi(token);  // a piece that is not a number raises "stoi"
    } catch (const std::out_of_range&) {
      continue;  // beyond int is beyond 4095 too
    }
    if (id >= 0 && id <= kMaxVlanId) ids.insert(static_cast<std::uint16_t>(id));
  }
  return ids;
}

bool InterfaceReader::DhcpServerEnabled() const { return !Read("dh").empty(); }

Ip4Range InterfaceReader::DhcpServerRange() const {
  const std::vector<std::uint32_t> addresses = ParseIp4List(Read("dh"));
  if (addresses.size() % 2 != 0) throw std::runtime_error("Malformed IP4 pair");
  Ip4Range range;
  if (!addresses.empty()) {
    range.start = addresses.front();
    range.end = addresses.back();
  }
  return range;
}

std::uint32_t InterfaceReader::DhcpServerGateway() const { return ReadIp4("dhgw"); }

std::vector<std::uint32_t> InterfaceReader::DhcpServerNameServers() const {
  return ParseIp4List(Read("dhdn"));
}

std::string InterfaceReader::Passphrase() const {
  const std::string stored = Read("wp");
  if (stored.empty()) return stored;
  Settings* const settings = m_settings;
  return UnobfuscatePassphrase(stored, [settings] { return CustomerKey(*settings); });
}

bool InterfaceReader::IsAccessPoint() const { return !Read("wm").empty(); }

std::string InterfaceReader::CaCertificate() const { return DecodeBase64Value(Read("wa")); }

std::string InterfaceReader::ClientCertificate() const { return DecodeBase64Value(Read("wt")); }

std::string InterfaceReader::PrivateKey() const { return DecodeBase64Value(Read("wk")); }

unsigned int InterfaceReader::AccessPointFrequency() const {
  const std::string value = Read("wf");
  if (value.empty()) return 0;
  const unsigned long frequency = std::stoul(value, nullptr, 10);
  // stoul negates a leading minus, and unsigned long is 64 bits on some hosts.
  const auto first = value.find_first_not_of(" \t\n\v\f\r");
  if (value[first] == '-' || !FitsIn32Bits(frequency)) throw std::out_of_range("stoul");
  return static_cast<unsigned int>(frequency);
}

std::uint32_t InterfaceReader::InboundRate() const {
  const std::string value = Read("ir");
  if (value == "-") return 0;
  return ParseHex32(value);
}

// The same key as the interface metric, but in decimal: it is only handed on as text.
int InterfaceReader::DialupLinkParameter() const {
  const std::string value = Read("im");
  if (value.empty()) return 0;
  try {
    return std::stoi(value);
  } catch (const std::logic_error&) {
    throw std::runtime_error("Invalid dialup link parameter");
  }
}

HostReader::HostReader(Settings& settings, std::string serial_number)
    : m_section(kHostSection), m_settings(&settings), m_serial(std::move(serial_number)) {}

ForwardingMode HostReader::Forwarding() const {
  const std::string value = m_settings->Read(m_section, "forwarding");
  if (value.empty()) return kNoForwarding;
  char* end = nullptr;
  const unsigned long forwarding = std::strtoul(value.c_str(), &end, 16);
  if (end != value.c_str() + value.size() || forwarding > kNat) return kNoForwarding;
  return static_cast<ForwardingMode>(forwarding);
}

std::string HostReader::HostName() const {
  const std::string value = m_settings->Read(m_section, "hn");
  if (value.empty()) return "Velmora-" + m_serial;
  return value;
}

bool NetworkingReader::IsOn(const char* key) const {
  return !m_settings->Read(kNetworkingSection, key).empty();
}

bool NetworkingReader::DhcpDebug() const { return IsOn("dhcp_debug"); }

bool NetworkingReader::WifiDebug() const { return IsOn("wifi_debug"); }

bool NetworkingReader::WiredDebug() const { return IsOn("wired_debug"); }

std::string NetworkingReader::TimeServer() const {
  const std::string value = m_settings->Read(kNetworkingSection, "ntp_server");
  return value.empty() ? kDefaultTimeServer : value;
}

std::string NetworkingReader::PtpDomain() const {
  return m_settings->Read(kNetworkingSection, "ptp_domain");
}

namespace {

// Decimal digits only, within [low, high].
std::optional<unsigned long> ParseDecimal(const std::string& text, unsigned long low,
                                          unsigned long high) {
  if (text.empty() || text.size() > 9) return std::nullopt;
  for (const char c : text) {
    if (!std::isdigit(static_cast<unsigned char>(c))) return std::nullopt;
  }
  const unsigned long value = std::stoul(text);
  if (value < low || value > high) return std::nullopt;
  return value;
}

bool IsAddressLiteral(const std::string& host) {
  unsigned char address[16];
  return inet_pton(AF_INET, host.c_str(), address) == 1 ||
         inet_pton(AF_INET6, host.c_str(), address) == 1;
}

// Letters, digits, hyphens and dots, as a DNS name is written.
bool IsHostName(const std::string& host) {
  if (host.empty() || host.size() > 253 || host.front() == '.' || host.front() == '-') {
    return false;
  }
  for (const char c : host) {
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '.') return false;
  }
  return true;
}

}  // namespace

std::optional<TcpEndpoint> NetworkingReader::ConfirmTarget() const {
  const std::string value = m_settings->Read(kNetworkingSection, "confirm_target");
  if (value.empty()) return std::nullopt;
  const auto bad = [&value] {
    return std::invalid_argument(
        fmt::sprintf("confirm_target \"%s\" is not HOST:PORT", value));
  };
  const std::string::size_type colon = value.rfind(':');
  if (colon == std::string::npos) throw bad();
  std::string host = value.substr(0, colon);
  const std::optional<unsigned long> port = ParseDecimal(value.substr(colon + 1), 1, 65535);
  if (!port) throw bad();
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
    unsigned char address[16];
    if (inet_pton(AF_INET6, host.c_str(), address) != 1) throw bad();
  } else if (!IsAddressLiteral(host) && (host.find(':') != std::string::npos || !IsHostName(host))) {
    throw bad();
  }
  return TcpEndpoint{host, static_cast<std::uint16_t>(*port)};
}

unsigned int NetworkingReader::ConfirmSeconds() const {
  const std::string value = m_settings->Read(kNetworkingSection, "confirm_seconds");
  if (value.empty()) return kDefaultConfirmSeconds;
  const std::optional<unsigned long> seconds = ParseDecimal(value, 1, kMaxConfirmSeconds);
  if (!seconds) {
    throw std::invalid_argument(fmt::sprintf(
        "confirm_seconds \"%s\" is not a number of seconds from 1 to %lu", value,
        kMaxConfirmSeconds));
  }
  return static_cast<unsigned int>(*seconds);
}

std::vector<std::string> SecretForms(const std::string& section, const std::string& key,
                                     const std::string& value, Settings& settings) {
  if (value.empty()) return {};
  std::vector<std::string> forms;
  if (key == "dp" || (section == "customer" && key == "obfuscation_key")) {
    forms.push_back(value);
  } else if (key == "wp") {
    forms.push_back(value);
    try {
      forms.push_back(UnobfuscatePassphrase(value, [&settings] { return CustomerKey(settings); }));
    } catch (const std::exception&) {
    }
  } else if (key == "wk") {
    forms.push_back(value);
    try {
      forms.push_back(DecodeBase64Value(value));
    } catch (const std::exception&) {
    }
  }
  return forms;
}

bool IsPassphraseProperty(const std::string& property) {
  return property == "psk" || property == "password" || property == "wep_key0" ||
         property == "private_key_passwd";
}

}  // namespace PersistentNetworkConfig
}  // namespace corvo
