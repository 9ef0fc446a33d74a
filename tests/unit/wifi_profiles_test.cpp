// The networks built for the supplicant: station, access point and 802.1X ones,
// with the identity read from certificates that certtool and openssl make afresh.

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "apps/steps/enterprise_profiles.h"
#include "lib/platform/base/hex.h"
#include "lib/platform/base/log.h"
#include "lib/platform/bus/bus_error.h"
#include "lib/platform/settings/x509_identity.h"
#include "tests/unit/step_test.h"

namespace corvo::test {
namespace {

struct StationCase {
  const char* name;
  std::string passphrase;
  const char* options;
  std::vector<PropertySet> networks;
  std::string log;
};

const std::string kWep = "Adding WEP WIFI network: ssid='Home'\n";
const std::string kWpa = "Adding WPA WIFI network: ssid='Home'\n";
const std::string k13 = "abcdefghijklm";  // fits WEP-104 and WPA
const std::string kAll = kDefaults + kWep + kWpa;
const std::string kHex26 = "0123456789abcdef0123456789";
const std::string kHex64 = "00112233445566778899aabbccddeeff00112233445566778899AABBCCDDEEFF";

PropertyValue Hex(const std::string& text) { return HexDecode(text); }

PropertySet Wep(const PropertyValue& key) {
  return {{"scan_ssid", 1}, {"ssid", "Home"}, {"key_mgmt", "NONE"}, {"priority", 2},
          {"wep_key0", key}, {"disabled", 0}, {"auth_alg", "SHARED OPEN"},
          {"group", "WEP104 WEP40"}};
}
PropertySet Wpa(const PropertyValue& psk, const std::string& ciphers = "CCMP TKIP") {
  return {{"scan_ssid", 1}, {"ssid", "Home"}, {"key_mgmt", "WPA-PSK"}, {"pairwise", ciphers},
          {"group", ciphers}, {"priority", 3}, {"psk", psk}, {"disabled", 0}};
}

class StationNetworks : public WifiTest, public ::testing::WithParamInterface<StationCase> {};

TEST_P(StationNetworks, AddsEveryKindThePassphraseFits) {
  const StationCase& c = GetParam();
  WifiSettings settings;
  settings.ssid = "Home";
  settings.passphrase = c.passphrase;
  settings.security_options = c.options;
  // That no passphrase is shown is the command tests' (the plan's and the real run's).
  EXPECT_EQ(Build(settings), c.log);
  EXPECT_EQ(Calls().front(), "supplicant wlan0: remove all networks");
  EXPECT_EQ(Networks(), c.networks);
  EXPECT_EQ(result.added, static_cast<int>(c.networks.size()));
  EXPECT_EQ(result.kind, c.networks.empty() ? WifiNetworkKind::kNone : WifiNetworkKind::kStation);
}

using S = StationCase;
INSTANTIATE_TEST_SUITE_P(
    Cases, StationNetworks,
    ::testing::Values(
        S{"open", "", "", {kOpen}, kDefaults},
        S{"wep13_and_wpa", k13, "", {Wep(k13), Wpa(k13)}, kAll},
        S{"wep_hex26_and_wpa", kHex26, "", {Wep(Hex(kHex26)), Wpa(kHex26)}, kAll},
        S{"wpa_hex64", kHex64, "", {Wpa(Hex(kHex64))}, kDefaults + kWpa},
        S{"ccmp_only", k13, "ccmp", {Wpa(k13, "CCMP")}, kWpa},
        S{"tkip_wep", k13, "tkip  wep", {Wep(k13), Wpa(k13, "TKIP")}, kWep + kWpa},
        S{"wep5", "abcde", "wep", {Wep("abcde")}, kWep},
        S{"wep10_not_hex", "helloworld", "", {Wpa("helloworld")}, kDefaults + kWpa},
        S{"fits_nothing", "abc", "", {}, kDefaults},
        S{"unknown_word", k13, "ccmp wpa3", {},
          "wlan0: Unknown wifi security option wpa3\nwlan0: Wifi security configuration error.\n"}),
    NameOf<StationCase>);

// Open and WPA-PSK access points run on a real radio in the guest's scenarios.
TEST_F(WifiTest, AccessPointTakesAHexadecimalKey) {
  WifiSettings settings;
  settings.ssid = "Player";
  settings.access_point = true;
  settings.frequency = 2437;
  settings.debug = true;
  settings.passphrase = kHex64;
  EXPECT_EQ(Build(settings),
            kDefaults + "Adding WiFi AP network: ssid='Player'\nWiFi AP network added\n");
  const PropertySet expected{{"ssid", "Player"},  {"disabled", 0}, {"mode", 2},
                             {"frequency", 2437}, {"priority", 0}, {"key_mgmt", "WPA-PSK"},
                             {"psk", Hex(kHex64)}};
  EXPECT_EQ(Networks(), std::vector<PropertySet>{expected});
  EXPECT_EQ(result.kind, WifiNetworkKind::kAccessPoint);
}

TEST_F(WifiTest, NoNameAndNoAccessPointOnlyRemovesTheNetworks) {
  WifiSettings settings;
  settings.passphrase = k13;
  world.supplicant_interfaces["wlan0"].networks.push_back({{"ssid", "old"}});
  EXPECT_EQ(Build(settings), "");
  EXPECT_EQ(Calls(), Lines{"supplicant wlan0: remove all networks"});
  EXPECT_TRUE(Networks().empty());
  EXPECT_EQ(result.kind, WifiNetworkKind::kNone);
}

TEST_F(WifiTest, FailuresLeaveNoNetworkBehind) {
  WifiSettings settings;
  settings.ssid = "Home";
  settings.passphrase = std::string(63, 'a') + "g";  // 64 characters, not hexadecimal
  EXPECT_THROW(Build(settings), std::runtime_error);
  EXPECT_EQ(Calls(), Lines{"supplicant wlan0: remove all networks"});

  settings.passphrase = k13;
  int added = 0;
  platform.before_effect = [&](const std::string& effect) {
    if (effect.find("add network") != effect.npos && ++added == 2) {
      throw BusError("fi.w1.wpa_supplicant1.InvalidArgs", "Invalid arguments");
    }
  };
  platform.ClearEffects();
  EXPECT_THROW(Build(settings), BusError);
  EXPECT_EQ(Calls(),
            (Lines{"supplicant wlan0: remove all networks", "supplicant wlan0: add network",
                   "supplicant wlan0: remove all networks"}));
  EXPECT_TRUE(Networks().empty());

  // A name the bus would refuse to carry raises instead of aborting.
  settings.ssid = "\xff\xfe";
  EXPECT_THROW(Build(settings), std::runtime_error);
  EXPECT_TRUE(Networks().empty());
}

// A CA and one client key, made afresh in a directory that goes with the factory.
class CertificateFactory {
 public:
  static constexpr std::time_t kActivation = 1927857906;  // 2031-02-03 04:05:06 UTC
  static constexpr const char* kActivationText = "2031-02-03 04:05:06";

  CertificateFactory() {
    if (mkdtemp(m_dir.data()) == nullptr) throw std::runtime_error("mkdtemp");
    std::ofstream(m_dir + "/ca.tmpl") << "cn = \"Test CA\"\nca\ncert_signing_key\n"
                                         "expiration_days = 3650\n";
    Run("certtool --generate-privkey --key-type=ecdsa --outfile ca.key && "
        "certtool --generate-self-signed --load-privkey ca.key --template ca.tmpl "
        "--outfile ca.pem && certtool --generate-privkey --key-type=ecdsa --outfile client.key");
  }
  ~CertificateFactory() {
    std::error_code ignored;
    std::filesystem::remove_all(m_dir, ignored);
  }

  void Run(const std::string& command) {
    const std::string line = "(cd " + m_dir + " && " + command + ") >/dev/null 2>&1";
    if (std::system(line.c_str()) != 0) throw std::runtime_error("failed: " + command);
  }
  std::string Contents(const std::string& name) const {
    std::ifstream in(m_dir + "/" + name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
  // A client certificate signed by the CA, valid from the activation date (UTC), from the
  // template's lines; written as NAME.pem and NAME.der.
  void Client(const std::string& name, const std::string& lines,
              const std::string& activation = kActivationText) {
    std::ofstream(m_dir + "/" + name + ".tmpl") << lines << "activation_date = \"" << activation
                                                << "\"\nexpiration_date = \"2049-01-01 00:00:00\"\n";
    Run("certtool --generate-certificate --load-privkey client.key --load-ca-certificate ca.pem "
        "--load-ca-privkey ca.key --template " + name + ".tmpl --outfile " + name + ".pem && "
        "certtool --certificate-info --infile " + name + ".pem --outder --outfile " + name +
        ".der");
  }
  // The client key with certificate NAME.pem (and extra openssl options) as NAME.p12.
  std::string Pkcs12(const std::string& name, const std::string& password,
                     const std::string& options = "") {
    Run("openssl pkcs12 -export -in " + name + ".pem -inkey client.key " + options +
        " -passout pass:" + password + " -out " + name + ".p12");
    return Contents(name + ".p12");
  }

 private:
  std::string m_dir = "/tmp/certificates-XXXXXX";
};

// Keeps the lines the readers print.
struct LogText : LogSink {
  void Write(const std::string& line) noexcept override { text += line; }
  std::string text;
};

// Made once, on first use; its directory goes when the program ends.
CertificateFactory& Certs() {
  static CertificateFactory certs;
  return certs;
}

struct CertificateCase {
  const char* name;
  const char* alt_names;  // after the Common Name; nullptr: no name at all
  std::string identity;
  const char* activation_text = CertificateFactory::kActivationText;
  std::int64_t activation = CertificateFactory::kActivation;
};

class CertificateReader : public ::testing::TestWithParam<CertificateCase> {};

TEST_P(CertificateReader, ReadsIdentityAndActivationFromDerAndPem) {
  const CertificateCase& c = GetParam();
  Certs().Client(c.name,
                 c.alt_names ? "cn = \"client-cn\"\n" + std::string(c.alt_names)
                             : "organization = \"Org\"\n",
                 c.activation_text);
  const std::string expected_log =
      c.identity.empty()           ? ""
      : c.identity == "client-cn" ? "eth0: Using identity from Common Name client-cn\n"
                                  : "Using identity from subjectAltName " + c.identity + "\n";
  for (const char* form : {".der", ".pem"}) {
    CertificateIdentity result;
    LogText log;
    const bool read = ReadCertificateIdentity(
        "eth0", Certs().Contents(std::string(c.name) + form), result, log);
    EXPECT_EQ(log.text, expected_log) << form;
    EXPECT_EQ(read, !c.identity.empty()) << form;
    EXPECT_EQ(result.identity, c.identity) << form;
    EXPECT_EQ(result.activation, c.activation) << form;
  }
}

// An IP address alone falls back to the Common Name.
using C = CertificateCase;
INSTANTIATE_TEST_SUITE_P(
    Names, CertificateReader,
    ::testing::Values(C{"dns", "dns_name = \"host.example.org\"\n", "host.example.org"},
                      C{"ip_then_email", "ip_address = \"10.1.2.3\"\nemail = \"a@b.example\"\n",
                        "a@b.example"},
                      C{"ip_only", "ip_address = \"10.1.2.3\"\n", "client-cn"},
                      C{"no_name", nullptr, ""},
                      // A 32-bit GnuTLS cannot tell this date: it is read from the certificate.
                      C{"after_2038", "", "client-cn", "2041-03-04 05:06:07", 2245986367}),
    [](const auto& param_info) { return std::string(param_info.param.name); });

// The right password is the enterprise profile tests' case.
TEST(X509Identity, Pkcs12WithTheWrongPasswordReadsNothing) {
  Certs().Client("p12", "cn = \"client-cn\"\nemail = \"user@example.org\"\n");
  const std::string p12 = Certs().Pkcs12("p12", "s3cret", "-certfile ca.pem");
  CertificateIdentity result;
  LogText log;
  EXPECT_FALSE(ReadPkcs12Identity("wlan0", p12, "Pw-7734", result, log));
  EXPECT_EQ(log.text.rfind("wlan0: PKCS#12: Bag 0 decrypted\n"
                           "  -- which is still encrypted (wrong password?)\n", 0), 0u)
      << log.text;
  EXPECT_EQ(log.text.find("Pw-7734"), std::string::npos);
  EXPECT_EQ(result.identity, "");
  EXPECT_EQ(result.activation, 0);
}

TEST(X509Identity, Pkcs12CertificateWithoutKeyIdIsSkipped) {
  const std::string p12 = Certs().Pkcs12("ca", "x", "-nokeys");
  CertificateIdentity result;
  LogText log;
  EXPECT_FALSE(ReadPkcs12Identity("eth0", p12, "x", result, log));
  EXPECT_EQ(log.text, "eth0: PKCS#12: Bag 0 decrypted\neth0: PKCS#12: no key ID, skipping\n");
}

TEST(X509Identity, BrokenInputReadsNothing) {
  const std::string pem = Certs().Contents("ca.pem");
  LogText log;
  for (const std::string& bytes :
       {std::string(), std::string("garbage"), std::string(4096, '\xff'),
        pem.substr(0, pem.size() / 2), std::string("\x30\x82\xff\xff", 4)}) {
    CertificateIdentity result;
    EXPECT_FALSE(ReadCertificateIdentity("eth0", bytes, result, log));
    EXPECT_EQ(result.activation, 0);
    EXPECT_FALSE(ReadPkcs12Identity("eth0", bytes, "x", result, log));
  }
  CertificateIdentity result;
  EXPECT_FALSE(ReadPkcs12Identity("eth0", pem, "x", result, log));  // not PKCS#12
}

const std::string kKeyPassword = "Kp-93551";
constexpr std::time_t kActivation = CertificateFactory::kActivation;

class Enterprise : public WifiTest {
 protected:
  static void SetUpTestSuite() {
    Certs().Client("c", "cn = \"client-cn\"\nemail = \"user@example.org\"\n");
    s_certificate = Certs().Contents("c.pem");
    s_pkcs12 = Certs().Pkcs12("c", kKeyPassword);
  }

  static WifiSettings EapTls() {
    WifiSettings settings;
    settings.ssid = "Corp";
    settings.passphrase = kKeyPassword;
    settings.ca_certificate = "CA-BYTES";
    settings.client_certificate = s_certificate;
    settings.private_key = "KEY-BYTES";
    return settings;
  }
  static WifiSettings Peap() {
    WifiSettings settings = EapTls();
    settings.passphrase = "Pw-60317";
    settings.identity = "alice";
    settings.dot1x_method = "peap";
    settings.client_certificate = settings.private_key = "";
    return settings;
  }
  // Builds and checks that no secret is shown, in the log or the record.
  std::string Configure(const WifiSettings& settings, bool time_is_set = true,
                        const std::string& ifname = "wlan0") {
    const std::string log = Build(settings, time_is_set, ifname);
    for (const std::string& text : Join(platform.Effects(), {log})) {
      EXPECT_TRUE(settings.passphrase.empty() || text.find(settings.passphrase) == text.npos);
      EXPECT_EQ(text.find("KEY-BYTES"), text.npos);
    }
    return log;
  }

  inline static std::string s_certificate;
  inline static std::string s_pkcs12;
};

const PropertySet kEapTlsNetwork{
    {"ssid", "Corp"}, {"key_mgmt", "WPA-EAP"}, {"pairwise", "CCMP TKIP"}, {"group", "CCMP TKIP"},
    {"eap", "TLS"}, {"phase1", "tls_allow_md5=1"}, {"identity", "user@example.org"},
    {"disabled", 0}, {"ca_cert", "blob://ca_cert"}, {"client_cert", "blob://client_cert"},
    {"private_key", "blob://private_key"}, {"private_key_passwd", kKeyPassword}};

TEST_F(Enterprise, EapTlsTakesTheIdentityFromTheCertificateAndShowsNoSecrets) {
  EXPECT_EQ(Configure(EapTls()),
            kDefaults + "wlan0: EAP-TLS Private key found, using WPA/Enterprise\n"
                "Using identity from subjectAltName user@example.org\n"
                "wlan0: WPA/Enterprise: (from certificate) Identity user@example.org\n");
  // The blobs are the ones a real server accepts in the command tests.
  EXPECT_EQ(Networks(), std::vector<PropertySet>{kEapTlsNetwork});
  EXPECT_EQ(result.kind, WifiNetworkKind::kEapTls);
  EXPECT_EQ(result.certificate_start, kActivation);

  WifiSettings debug = EapTls();
  debug.debug = true;
  char starts[64] = {};
  ctime_r(&kActivation, starts);
  EXPECT_EQ(Configure(debug),
            kDefaults + "wlan0: EAP-TLS Private key found, using WPA/Enterprise\n"
                "wlan0: WPA/Enterprise: SSID Corp\n"
                "Using identity from subjectAltName user@example.org\n"
                "wlan0: WPA/Enterprise: (from certificate) Identity user@example.org\n"
                "wlan0: WPA/Enterprise: client certificate starts " + starts +
                "wlan0: WPA/Enterprise: CA cert is 8 bytes\n"
                "wlan0: WPA/Enterprise: Client cert is " +
                std::to_string(s_certificate.size()) + " bytes\n"
                "wlan0: WPA/Enterprise: Private key is 9 bytes\n"
                "wlan0: WPA/Enterprise: Private key password present\n");
}

TEST_F(Enterprise, EapTlsWithConfiguredIdentityAndUnreadableCertificate) {
  WifiSettings settings = EapTls();
  settings.client_certificate = "not a certificate";
  settings.identity = "bob";
  settings.dot1x_options = "hidden MD5=Disable";
  settings.security_options = "ccmp";
  settings.passphrase.clear();
  EXPECT_EQ(Configure(settings),
            "wlan0: EAP-TLS Private key found, using WPA/Enterprise\n"
            "wlan0: Unable to read identity from client certificate\n"
            "wlan0: WPA/Enterprise: (configured) Identity bob\n");
  PropertySet expected = kEapTlsNetwork;
  expected["scan_ssid"] = 1;
  expected["phase1"] = "";
  expected["identity"] = "bob";
  expected["pairwise"] = expected["group"] = "CCMP";
  expected.erase("private_key_passwd");
  EXPECT_EQ(Networks(), std::vector<PropertySet>{expected});
  EXPECT_EQ(result.certificate_start, 0);
}

TEST_F(Enterprise, EapTlsReadsTheIdentityFromAPkcs12Key) {
  WifiSettings settings = EapTls();
  settings.client_certificate.clear();
  settings.ca_certificate.clear();
  settings.private_key = s_pkcs12;
  const std::string log = Configure(settings, true, "eth0");
  EXPECT_NE(log.find("eth0: PKCS#12: certificate read\n"), std::string::npos) << log;
  PropertySet expected = kEapTlsNetwork;
  expected["key_mgmt"] = "IEEE8021X";  // a wired port: no 4-way handshake follows
  EXPECT_EQ(Networks("eth0"), std::vector<PropertySet>{expected});
  // Without a CA certificate the network is still built (and cannot be joined).
  EXPECT_TRUE(world.supplicant_interfaces["eth0"].blobs.at("ca_cert").empty());
  EXPECT_EQ(result.certificate_start, kActivation);
  EXPECT_EQ(Calls().back(), "supplicant eth0: select network");  // nothing else would

  settings.passphrase = "Pw-0000";
  EXPECT_NE(Configure(settings, true, "eth0")
                .find("eth0: Unable to read identity from private key (not PKCS#12?)\n"),
            std::string::npos);
}

TEST_F(Enterprise, SupplicantErrorsEndTheBuildWithoutANetwork) {
  platform.before_effect = [](const std::string& effect) {
    if (effect.find("blob client_cert") != effect.npos) {
      throw BusError("fi.w1.wpa_supplicant1.InvalidArgs", "bad blob");
    }
  };
  EXPECT_NE(Configure(EapTls()).find(
                "wlan0: DBus error adding network properties fi.w1.wpa_supplicant1.InvalidArgs"
                " : bad blob\n"),
            std::string::npos);
  EXPECT_TRUE(Networks().empty());
  EXPECT_EQ(result.kind, WifiNetworkKind::kNone);

  platform.before_effect = [](const std::string& effect) {
    if (effect.find("add network") != effect.npos) throw std::runtime_error("lost");
  };
  EXPECT_NE(Configure(Peap()).find("wlan0: Error adding network properties lost\n"),
            std::string::npos);
  EXPECT_EQ(result.kind, WifiNetworkKind::kNone);
}

TEST_F(Enterprise, PeapWithClockUnsetAllowsAnyCertificateTime) {
  EXPECT_EQ(Configure(Peap(), false),
            kDefaults + "System time not set; accepting server certificate without time check\n"
                "wlan0: PEAP/MS-CHAPv2 Identity alice\n"
                "wlan0: PEAP/MSCHAPv2 enabled\n");
  // The rest of the network is what real servers accept in the command and guest tests.
  ASSERT_EQ(Networks().size(), 1u);
  EXPECT_EQ(Networks()[0].at("phase1"),
            PropertyValue("peaplabel=0 tls_disable_time_checks=1 tls_allow_md5=1"));
  EXPECT_EQ(result.kind, WifiNetworkKind::kPeap);
}

TEST_F(Enterprise, PeapOptionsAndEmptyPassword) {
  WifiSettings settings = Peap();
  settings.dot1x_options = "md5=DISABLE anonymous_identity=anon@example.org hidden";
  settings.passphrase.clear();
  EXPECT_EQ(Configure(settings, true, "eth0"),
            "eth0: No security configuration; using defaults.\n"
            "eth0: PEAP/MS-CHAPv2: Using anonymous identity anon@example.org\n"
            "eth0: PEAP/MS-CHAPv2 Identity alice\n"
            "eth0: PEAP/MS-CHAPv2 - passphrase is empty, but trying anyway.\n"
            "eth0: PEAP/MSCHAPv2 enabled\n");
  ASSERT_EQ(Networks("eth0").size(), 1u);
  const PropertySet& network = Networks("eth0")[0];
  EXPECT_EQ(network.at("phase1"), PropertyValue("peaplabel=0"));
  EXPECT_EQ(network.at("anonymous_identity"), PropertyValue("anon@example.org"));
  EXPECT_EQ(network.at("scan_ssid"), PropertyValue(1));
  EXPECT_EQ(network.at("password"), PropertyValue(""));
}

TEST_F(Enterprise, PeapWithoutIdentityAddsNothingElse) {
  WifiSettings settings = Peap();
  settings.identity.clear();
  settings.passphrase = "abcdefghijklm";  // would fit WEP and WPA
  EXPECT_EQ(Configure(settings), kDefaults + "wlan0: EAP-PEAP/MSCHAPv2: No identity configured\n");
  EXPECT_EQ(Calls(), Lines{"supplicant wlan0: remove all networks"});
  EXPECT_EQ(result.kind, WifiNetworkKind::kNone);
}

}  // namespace
}  // namespace corvo::test
