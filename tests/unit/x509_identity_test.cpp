#include <gtest/gtest.h>

#include <string>

#include "lib/platform/base/log.h"
#include "lib/platform/settings/x509_identity.h"
#include "tests/unit/test_certificates.h"

namespace {

using corvo::test::CertificateFactory;

// Keeps the lines the readers print.
struct Log : corvo::LogSink {
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
};

class CertificateIdentity : public ::testing::TestWithParam<CertificateCase> {};

TEST_P(CertificateIdentity, ReadsIdentityAndActivationFromDerAndPem) {
  const CertificateCase& c = GetParam();
  Certs().Client(c.name, c.alt_names ? "cn = \"client-cn\"\n" + std::string(c.alt_names)
                                     : "organization = \"Org\"\n");
  const std::string expected_log =
      c.identity.empty()           ? ""
      : c.identity == "client-cn" ? "eth0: Using identity from Common Name client-cn\n"
                                  : "Using identity from subjectAltName " + c.identity + "\n";
  for (const char* form : {".der", ".pem"}) {
    corvo::CertificateIdentity result;
    Log log;
    const bool read = corvo::ReadCertificateIdentity(
        "eth0", Certs().Contents(std::string(c.name) + form), result, log);
    EXPECT_EQ(log.text, expected_log) << form;
    EXPECT_EQ(read, !c.identity.empty()) << form;
    EXPECT_EQ(result.identity, c.identity) << form;
    EXPECT_EQ(result.activation, CertificateFactory::kActivation) << form;
  }
}

// An IP address alone falls back to the Common Name.
using C = CertificateCase;
INSTANTIATE_TEST_SUITE_P(
    Names, CertificateIdentity,
    ::testing::Values(C{"dns", "dns_name = \"host.example.org\"\n", "host.example.org"},
                      C{"ip_then_email", "ip_address = \"10.1.2.3\"\nemail = \"a@b.example\"\n",
                        "a@b.example"},
                      C{"ip_only", "ip_address = \"10.1.2.3\"\n", "client-cn"},
                      C{"no_name", nullptr, ""}),
    [](const auto& param_info) { return std::string(param_info.param.name); });

// The right password is the enterprise profile tests' case.
TEST(X509Identity, Pkcs12WithTheWrongPasswordReadsNothing) {
  Certs().Client("p12", "cn = \"client-cn\"\nemail = \"user@example.org\"\n");
  const std::string p12 = Certs().Pkcs12("p12", "s3cret", "-certfile ca.pem");
  corvo::CertificateIdentity result;
  Log log;
  EXPECT_FALSE(corvo::ReadPkcs12Identity("wlan0", p12, "Pw-7734", result, log));
  EXPECT_EQ(log.text.rfind("wlan0: PKCS#12: Bag 0 decrypted\n"
                           "  -- which is still encrypted (wrong password?)\n", 0),
            0u)
      << log.text;
  EXPECT_EQ(log.text.find("Pw-7734"), std::string::npos);
  EXPECT_EQ(result.identity, "");
  EXPECT_EQ(result.activation, 0);
}

TEST(X509Identity, Pkcs12CertificateWithoutKeyIdIsSkipped) {
  const std::string p12 = Certs().Pkcs12("ca", "x", "-nokeys");
  corvo::CertificateIdentity result;
  Log log;
  EXPECT_FALSE(corvo::ReadPkcs12Identity("eth0", p12, "x", result, log));
  EXPECT_EQ(log.text,
            "eth0: PKCS#12: Bag 0 decrypted\n"
            "eth0: PKCS#12: no key ID, skipping\n");
}

TEST(X509Identity, BrokenInputReadsNothing) {
  const std::string pem = Certs().Contents("ca.pem");
  Log log;
  for (const std::string& bytes :
       {std::string(), std::string("garbage"), std::string(4096, '\xff'),
        pem.substr(0, pem.size() / 2), std::string("\x30\x82\xff\xff", 4)}) {
    corvo::CertificateIdentity result;
    EXPECT_FALSE(corvo::ReadCertificateIdentity("eth0", bytes, result, log));
    EXPECT_EQ(result.activation, 0);
    EXPECT_FALSE(corvo::ReadPkcs12Identity("eth0", bytes, "x", result, log));
  }
  corvo::CertificateIdentity result;
  EXPECT_FALSE(corvo::ReadPkcs12Identity("eth0", pem, "x", result, log));  // not PKCS#12
}

}  // namespace
