#include <ctime>
#include <stdexcept>

#include "apps/steps/enterprise_profiles.h"
#include "lib/platform/bus/bus_error.h"
#include "tests/unit/test_certificates.h"
#include "tests/unit/wifi_test.h"

namespace corvo::test {
namespace {

const std::string kKeyPassword = "Kp-93551";
constexpr std::time_t kActivation = CertificateFactory::kActivation;

class Enterprise : public WifiTest {
 protected:
  static void SetUpTestSuite() {
    CertificateFactory certs;
    certs.Client("c", "cn = \"client-cn\"\nemail = \"user@example.org\"\n");
    s_certificate = certs.Contents("c.pem");
    s_pkcs12 = certs.Pkcs12("c", kKeyPassword);
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
    Lines texts = platform.Effects();
    texts.push_back(log);
    for (const std::string& text : texts) {
      if (!settings.passphrase.empty()) {
        EXPECT_EQ(text.find(settings.passphrase), text.npos);
      }
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
