#include "lib/platform/settings/x509_identity.h"

#include <cstddef>
#include <memory>
#include <vector>


#include "lib/platform/base/log.h"
#include "lib/platform/settings/gnutls_library.h"

namespace corvo {

namespace {

struct CrtDeleter {
  void operator()(gnutls_x509_crt_int* crt) const { Gnutls().x509_crt_deinit(crt); }
};
struct Pkcs12Deleter {
  void operator()(gnutls_pkcs12_int* p12) const { Gnutls().pkcs12_deinit(p12); }
};
struct BagDeleter {
  void operator()(gnutls_pkcs12_bag_int* bag) const { Gnutls().pkcs12_bag_deinit(bag); }
};
using Crt = std::unique_ptr<gnutls_x509_crt_int, CrtDeleter>;
using Pkcs12 = std::unique_ptr<gnutls_pkcs12_int, Pkcs12Deleter>;
using Bag = std::unique_ptr<gnutls_pkcs12_bag_int, BagDeleter>;

gnutls_datum_t Datum(const std::string& bytes) {
  gnutls_datum_t datum;
  // GnuTLS only reads imported data.
  datum.data = reinterpret_cast<unsigned char*>(const_cast<char*>(bytes.data()));
  datum.size = static_cast<unsigned int>(bytes.size());
  return datum;
}

// Text fields come back with a terminating NUL counted in some GnuTLS versions.
std::string TrimNul(std::vector<char> buffer, std::size_t size) {
  if (size > buffer.size()) size = buffer.size();
  while (size > 0 && buffer[size - 1] == '\0') --size;
  return std::string(buffer.data(), size);
}

// Tries DER first: that is how the store usually holds certificates.
Crt ImportCertificate(const gnutls_datum_t& data) {
  gnutls_x509_crt_t raw = nullptr;
  if (Gnutls().x509_crt_init(&raw) < 0) return nullptr;
  Crt crt(raw);
  if (Gnutls().x509_crt_import(crt.get(), &data, GNUTLS_X509_FMT_DER) >= 0) return crt;
  if (Gnutls().x509_crt_import(crt.get(), &data, GNUTLS_X509_FMT_PEM) >= 0) return crt;
  return nullptr;
}

// The first e-mail address or DNS name, in the order the certificate lists them.
bool SubjectAltName(gnutls_x509_crt_t crt, std::string& name) {
  for (unsigned int seq = 0;; ++seq) {
    std::size_t size = 0;
    unsigned int critical = 0;
    int type = Gnutls().x509_crt_get_subject_alt_name(crt, seq, nullptr, &size, &critical);
    if (type == GNUTLS_E_REQUESTED_DATA_NOT_AVAILABLE) return false;
    if (type != GNUTLS_E_SHORT_MEMORY_BUFFER && type < 0) return false;
    std::vector<char> buffer(size + 1, '\0');
    size = buffer.size();
    type = Gnutls().x509_crt_get_subject_alt_name(crt, seq, buffer.data(), &size, &critical);
    if (type < 0) return false;
    if (type == GNUTLS_SAN_RFC822NAME || type == GNUTLS_SAN_DNSNAME) {
      name = TrimNul(std::move(buffer), size);
      if (!name.empty()) return true;
    }
  }
}

bool CommonName(gnutls_x509_crt_t crt, std::string& name) {
  std::size_t size = 0;
  int rc = Gnutls().x509_crt_get_dn_by_oid(crt, GNUTLS_OID_X520_COMMON_NAME, 0, 0, nullptr, &size);
  if (rc != GNUTLS_E_SHORT_MEMORY_BUFFER && rc < 0) return false;
  std::vector<char> buffer(size + 1, '\0');
  size = buffer.size();
  rc = Gnutls().x509_crt_get_dn_by_oid(crt, GNUTLS_OID_X520_COMMON_NAME, 0, 0, buffer.data(), &size);
  if (rc < 0) return false;
  name = TrimNul(std::move(buffer), size);
  return !name.empty();
}

bool IdentityOf(const std::string& ifname, LogSink& log, const gnutls_datum_t& data,
                CertificateIdentity& result) {
  result = CertificateIdentity();
  Crt crt = ImportCertificate(data);
  if (!crt) return false;
  const std::time_t activation = Gnutls().x509_crt_get_activation_time(crt.get());
  if (activation != static_cast<std::time_t>(-1)) result.activation = activation;

  std::string name;
  if (SubjectAltName(crt.get(), name)) {
    log.Print("Using identity from subjectAltName %s\n", name);
  } else if (CommonName(crt.get(), name)) {
    log.Print("%s: Using identity from Common Name %s\n", ifname, name);
  } else {
    return false;
  }
  result.identity = name;
  return true;
}

Pkcs12 ImportPkcs12(const gnutls_datum_t& data) {
  gnutls_pkcs12_t raw = nullptr;
  if (Gnutls().pkcs12_init(&raw) < 0) return nullptr;
  Pkcs12 p12(raw);
  if (Gnutls().pkcs12_import(p12.get(), &data, GNUTLS_X509_FMT_DER, 0) >= 0) return p12;
  if (Gnutls().pkcs12_import(p12.get(), &data, GNUTLS_X509_FMT_PEM, 0) >= 0) return p12;
  return nullptr;
}

}  // namespace

bool ReadCertificateIdentity(const std::string& ifname, const std::string& certificate,
                             CertificateIdentity& result, LogSink& log) {
  return IdentityOf(ifname, log, Datum(certificate), result);
}

bool ReadPkcs12Identity(const std::string& ifname, const std::string& pkcs12,
                        const std::string& password, CertificateIdentity& result, LogSink& log) {
  result = CertificateIdentity();
  Pkcs12 p12 = ImportPkcs12(Datum(pkcs12));
  if (!p12) return false;

  for (int index = 0;; ++index) {
    gnutls_pkcs12_bag_t raw = nullptr;
    if (Gnutls().pkcs12_bag_init(&raw) < 0) return false;
    Bag bag(raw);
    if (Gnutls().pkcs12_get_bag(p12.get(), index, bag.get()) < 0) return false;

    if (Gnutls().pkcs12_bag_get_type(bag.get(), 0) == GNUTLS_BAG_ENCRYPTED) {
      // The outcome shows in the bag's type; the return code adds nothing.
      (void)Gnutls().pkcs12_bag_decrypt(bag.get(), password.c_str());
      log.Print("%s: PKCS#12: Bag %d decrypted\n", ifname, index);
      if (Gnutls().pkcs12_bag_get_type(bag.get(), 0) == GNUTLS_BAG_ENCRYPTED) {
        log.Print("  -- which is still encrypted (wrong password?)\n");
        continue;
      }
    }

    const int count = Gnutls().pkcs12_bag_get_count(bag.get());
    for (int element = 0; element < count; ++element) {
      const unsigned int at = static_cast<unsigned int>(element);
      if (Gnutls().pkcs12_bag_get_type(bag.get(), at) != GNUTLS_BAG_CERTIFICATE) continue;
      // Both data and key ID point into the bag; they are not to be freed.
      gnutls_datum_t key_id{nullptr, 0};
      if (Gnutls().pkcs12_bag_get_key_id(bag.get(), at, &key_id) < 0 || key_id.size == 0) {
        log.Print("%s: PKCS#12: no key ID, skipping\n", ifname);
        continue;
      }
      gnutls_datum_t data{nullptr, 0};
      if (Gnutls().pkcs12_bag_get_data(bag.get(), at, &data) < 0) continue;
      log.Print("%s: PKCS#12: certificate read\n", ifname);
      if (IdentityOf(ifname, log, data, result)) {
        result.certificate.assign(reinterpret_cast<const char*>(data.data), data.size);
        return true;
      }
    }
  }
}

}  // namespace corvo
