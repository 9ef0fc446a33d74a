#include <gtest/gtest.h>

#include <ctime>
#include <map>
#include <string>
#include <vector>

#include "apps/steps/enterprise_profiles.h"
#include "apps/steps/wifi_profiles.h"
#include "tests/unit/fake_supplicant.h"
#include "tests/unit/test_certificates.h"

namespace {

using supplicant::test::FakeInterface;
using supplicant::test::Rendered;

const std::string kKeyPassword = "Kp-93551";

class Enterprise : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    corvo::test::CertificateFactory certs;
    certs.Client("c", "cn = \"client-cn\"\nemail = \"user@example.org\"\n");
    s_certificate = certs.Contents("c.pem");
    s_pkcs12 = certs.Pkcs12("c", kKeyPassword);
  }

  static corvo::WifiSettings EapTls() {
    corvo::WifiSettings settings;
    settings.ssid = "Corp";
    settings.passphrase = kKeyPassword;
    settings.ca_certificate = "CA-BYTES";
    settings.client_certificate = s_certificate;
    settings.private_key = "KEY-BYTES";
    return settings;
  }
  static corvo::WifiSettings Peap() {
    corvo::WifiSettings settings = EapTls();
    settings.passphrase = "Pw-60317";
    settings.identity = "alice";
    settings.dot1x_method = "peap";
    settings.client_certificate = settings.private_key = "";
    return settings;
  }

  // Builds the networks of the settings and checks that no secret is shown.
  std::string Configure(const corvo::WifiSettings& settings, bool time_is_set = true,
                        const std::string& ifname = "wlan0") {
    testing::internal::CaptureStderr();
    result = corvo::ConfigureWifiNetworks(interface, ifname, settings, ifname == "eth0",
                                          time_is_set);
    const std::string log = testing::internal::GetCapturedStderr();
    if (!settings.passphrase.empty()) {
      EXPECT_EQ(log.find(settings.passphrase), std::string::npos) << log;
    }
    EXPECT_EQ(log.find("KEY-BYTES"), std::string::npos) << log;
    return log;
  }

  inline static std::string s_certificate;
  inline static std::string s_pkcs12;
  FakeInterface interface;
  corvo::WifiNetworksResult result;
};

constexpr std::time_t kActivation = corvo::test::CertificateFactory::kActivation;

const Rendered kEapTlsNetwork{
    {"ssid", "s:Corp"}, {"key_mgmt", "s:WPA-EAP"}, {"pairwise", "s:CCMP TKIP"},
    {"group", "s:CCMP TKIP"}, {"eap", "s:TLS"}, {"phase1", "s:tls_allow_md5=1"},
    {"identity", "s:user@example.org"}, {"disabled", "i:0"}, {"ca_cert", "s:blob://ca_cert"},
    {"client_cert", "s:blob://client_cert"}, {"private_key", "s:blob://private_key"},
    {"private_key_passwd", "s:" + kKeyPassword}};

TEST_F(Enterprise, EapTlsTakesTheIdentityFromTheCertificateAndShowsNoSecrets) {
  const std::string log = Configure(EapTls());
  EXPECT_EQ(log,
            "wlan0: No security configuration; using defaults.\n"
            "wlan0: EAP-TLS Private key found, using WPA/Enterprise\n"
            "Using identity from subjectAltName user@example.org\n"
            "wlan0: WPA/Enterprise: (from certificate) Identity user@example.org\n");
  EXPECT_EQ(interface.networks, std::vector<Rendered>{kEapTlsNetwork});
  EXPECT_EQ(interface.blobs, (std::map<std::string, std::string>{
                                 {"ca_cert", "CA-BYTES"},
                                 {"client_cert", s_certificate},
                                 {"private_key", "KEY-BYTES"}}));
  EXPECT_EQ(interface.calls, (std::vector<std::string>{"RemoveAllNetworks", "SetBlob ca_cert",
                                                        "SetBlob client_cert",
                                                        "SetBlob private_key", "AddNetwork"}));
  EXPECT_EQ(result.kind, corvo::WifiNetworkKind::kEapTls);
  EXPECT_EQ(result.certificate_start, kActivation);

  interface = FakeInterface();
  corvo::SetWifiDebug(true);
  const std::string debug_log = Configure(EapTls());
  corvo::SetWifiDebug(false);
  char starts[64] = {};
  const std::time_t activation = kActivation;
  ctime_r(&activation, starts);
  EXPECT_EQ(debug_log,
            "wlan0: No security configuration; using defaults.\n"
            "wlan0: EAP-TLS Private key found, using WPA/Enterprise\n"
            "wlan0: WPA/Enterprise: SSID Corp\n"
            "Using identity from subjectAltName user@example.org\n"
            "wlan0: WPA/Enterprise: (from certificate) Identity user@example.org\n"
            "wlan0: WPA/Enterprise: client certificate starts " + std::string(starts) +
            "wlan0: WPA/Enterprise: CA cert is 8 bytes\n"
            "wlan0: WPA/Enterprise: Client cert is " + std::to_string(s_certificate.size()) +
            " bytes\n"
            "wlan0: WPA/Enterprise: Private key is 9 bytes\n"
            "wlan0: WPA/Enterprise: Private key password present\n");
}

TEST_F(Enterprise, EapTlsWithConfiguredIdentityAndUnreadableCertificate) {
  corvo::WifiSettings settings = EapTls();
  settings.client_certificate = "not a certificate";
  settings.identity = "bob";
  settings.dot1x_options = "hidden MD5=Disable";
  settings.security_options = "ccmp";
  settings.passphrase.clear();
  const std::string log = Configure(settings);
  EXPECT_EQ(log,
            "wlan0: EAP-TLS Private key found, using WPA/Enterprise\n"
            "wlan0: Unable to read identity from client certificate\n"
            "wlan0: WPA/Enterprise: (configured) Identity bob\n");
  Rendered expected = kEapTlsNetwork;
  expected["scan_ssid"] = "i:1";
  expected["phase1"] = "s:";
  expected["identity"] = "s:bob";
  expected["pairwise"] = expected["group"] = "s:CCMP";
  expected.erase("private_key_passwd");
  EXPECT_EQ(interface.networks, std::vector<Rendered>{expected});
  EXPECT_EQ(result.certificate_start, 0);
}

TEST_F(Enterprise, EapTlsReadsTheIdentityFromAPkcs12Key) {
  corvo::WifiSettings settings = EapTls();
  settings.client_certificate.clear();
  settings.ca_certificate.clear();
  settings.private_key = s_pkcs12;
  const std::string log = Configure(settings, true, "eth0");
  EXPECT_NE(log.find("eth0: PKCS#12: certificate read\n"), std::string::npos) << log;
  // Empty items travel neither as blobs nor as references.
  Rendered expected = kEapTlsNetwork;
  expected.erase("client_cert");
  expected.erase("ca_cert");
  expected["key_mgmt"] = "s:IEEE8021X";  // a wired port: no 4-way handshake follows
  EXPECT_EQ(interface.networks, std::vector<Rendered>{expected});
  EXPECT_EQ(interface.blobs.count("client_cert") + interface.blobs.count("ca_cert"), 0u);
  EXPECT_EQ(result.certificate_start, kActivation);
  EXPECT_EQ(interface.calls.back(), "AddAndSelectNetwork");  // nothing else would select it

  settings.passphrase = "Pw-0000";
  const std::string wrong = Configure(settings, true, "eth0");
  EXPECT_NE(wrong.find("eth0: Unable to read identity from private key (not PKCS#12?)\n"),
            std::string::npos);
}

TEST_F(Enterprise, SupplicantErrorsEndTheBuildWithoutANetwork) {
  interface.set_blob_error = [](const std::string& name) {
    if (name == "client_cert") throw DBus::Error("fi.w1.wpa_supplicant1.InvalidArgs", "bad blob");
  };
  EXPECT_NE(Configure(EapTls()).find(
                "wlan0: DBus error adding network properties fi.w1.wpa_supplicant1.InvalidArgs"
                " : bad blob\n"),
            std::string::npos);
  EXPECT_TRUE(interface.networks.empty());
  EXPECT_EQ(result.kind, corvo::WifiNetworkKind::kNone);

  interface.set_blob_error = nullptr;
  interface.add_network_error = [](std::size_t) { throw std::runtime_error("lost"); };
  EXPECT_NE(Configure(Peap()).find("wlan0: Error adding network properties lost\n"),
            std::string::npos);
  EXPECT_EQ(result.kind, corvo::WifiNetworkKind::kNone);
}

TEST_F(Enterprise, PeapWithClockUnsetAllowsAnyCertificateTime) {
  const std::string log = Configure(Peap(), false);
  EXPECT_EQ(log,
            "wlan0: No security configuration; using defaults.\n"
            "System time not set; accepting server certificate without time check\n"
            "wlan0: PEAP/MS-CHAPv2 Identity alice\n"
            "wlan0: PEAP/MSCHAPv2 enabled\n");
  const Rendered expected{
      {"ssid", "s:Corp"}, {"key_mgmt", "s:WPA-EAP"}, {"pairwise", "s:CCMP TKIP"},
      {"group", "s:CCMP TKIP"}, {"eap", "s:PEAP"},
      {"phase1", "s:peaplabel=0 tls_disable_time_checks=1 tls_allow_md5=1"},
      {"phase2", "s:auth=MSCHAPV2"}, {"identity", "s:alice"}, {"password", "s:Pw-60317"},
      {"disabled", "i:0"}, {"ca_cert", "s:blob://ca_cert"}};
  EXPECT_EQ(interface.networks, std::vector<Rendered>{expected});
  EXPECT_EQ(result.kind, corvo::WifiNetworkKind::kPeap);
}

TEST_F(Enterprise, PeapOptionsAndEmptyPassword) {
  corvo::WifiSettings settings = Peap();
  settings.dot1x_options = "md5=DISABLE anonymous_identity=anon@example.org hidden";
  settings.passphrase.clear();
  EXPECT_EQ(Configure(settings, true, "eth0"),
            "eth0: No security configuration; using defaults.\n"
            "eth0: PEAP/MS-CHAPv2: Using anonymous identity anon@example.org\n"
            "eth0: PEAP/MS-CHAPv2 Identity alice\n"
            "eth0: PEAP/MS-CHAPv2 - passphrase is empty, but trying anyway.\n"
            "eth0: PEAP/MSCHAPv2 enabled\n");
  ASSERT_EQ(interface.networks.size(), 1u);
  EXPECT_EQ(interface.networks[0].at("phase1"), "s:peaplabel=0");
  EXPECT_EQ(interface.networks[0].at("anonymous_identity"), "s:anon@example.org");
  EXPECT_EQ(interface.networks[0].at("scan_ssid"), "i:1");
  EXPECT_EQ(interface.networks[0].at("password"), "s:");
}

TEST_F(Enterprise, PeapWithoutIdentityAddsNothingElse) {
  corvo::WifiSettings settings = Peap();
  settings.identity.clear();
  settings.passphrase = "abcdefghijklm";  // would fit WEP and WPA
  EXPECT_EQ(Configure(settings),
            "wlan0: No security configuration; using defaults.\n"
            "wlan0: EAP-PEAP/MSCHAPv2: No identity configured\n");
  EXPECT_EQ(interface.calls, std::vector<std::string>{"RemoveAllNetworks"});
  EXPECT_EQ(result.kind, corvo::WifiNetworkKind::kNone);
}

}  // namespace
