#pragma once
// Certificates made by certtool and openssl in a directory that goes with the factory.

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace corvo::test {

class CertificateFactory {
 public:
  static constexpr std::time_t kActivation = 1927857906;  // 2031-02-03 04:05:06 UTC

  // A CA and one client key.
  CertificateFactory() {
    char pattern[] = "/tmp/certificates-XXXXXX";
    if (mkdtemp(pattern) == nullptr) throw std::runtime_error("mkdtemp");
    m_dir = pattern;
    Write("ca.tmpl", "cn = \"Test CA\"\nca\ncert_signing_key\nexpiration_days = 3650\n");
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
  void Write(const std::string& name, const std::string& text) {
    std::ofstream(m_dir + "/" + name) << text;
  }
  std::string Contents(const std::string& name) const {
    std::ifstream in(m_dir + "/" + name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  // A client certificate signed by the CA, valid from kActivation, from the
  // template's lines; written as NAME.pem and NAME.der.
  void Client(const std::string& name, const std::string& lines) {
    Write(name + ".tmpl", lines + "activation_date = \"2031-02-03 04:05:06\"\n"
                                  "expiration_date = \"2040-01-01 00:00:00\"\n");
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
  std::string m_dir;
};

}  // namespace corvo::test
