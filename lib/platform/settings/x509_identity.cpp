#include "lib/platform/settings/x509_identity.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
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

// One element of DER: its tag and its content, within the bytes [p, end).
struct DerElement {
  unsigned char tag = 0;
  const unsigned char* content = nullptr;
  std::size_t size = 0;
};

// Reads the element at p and moves p past it; false when it does not fit.
bool ReadDer(const unsigned char*& p, const unsigned char* end, DerElement& element) {
  if (end - p < 2) return false;
  element.tag = *p++;
  std::size_t size = *p++;
  if (size & 0x80) {
    std::size_t count = size & 0x7f;
    if (count == 0 || count > 4 || static_cast<std::size_t>(end - p) < count) return false;
    for (size = 0; count > 0; --count) size = (size << 8) | *p++;
  }
  if (static_cast<std::size_t>(end - p) < size) return false;
  element.content = p;
  element.size = size;
  p += size;
  return true;
}

// Days from 1970-01-01 to the date (proleptic Gregorian calendar).
std::int64_t DaysSinceEpoch(std::int64_t year, int month, int day) {
  year -= month <= 2;
  const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
  const std::int64_t year_of_era = year - era * 400;
  const std::int64_t day_of_year = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const std::int64_t day_of_era =
      year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
  return era * 146097 + day_of_era - 719468;
}

// A UTCTime ("YYMMDDHHMMSSZ", years 1950 to 2049) or GeneralizedTime ("YYYYMMDDHHMMSSZ"), as
// certificates must write them; nothing for another form.
std::optional<std::int64_t> DerTime(const DerElement& time) {
  const std::size_t year_digits = time.tag == 0x17 ? 2 : time.tag == 0x18 ? 4 : 0;
  if (year_digits == 0 || time.size != year_digits + 11 || time.content[time.size - 1] != 'Z') {
    return std::nullopt;
  }
  int fields[6] = {};  // year, month, day, hour, minute, second
  const unsigned char* digit = time.content;
  for (std::size_t field = 0; field < 6; ++field) {
    for (std::size_t i = 0; i < (field == 0 ? year_digits : 2); ++i, ++digit) {
      if (*digit < '0' || *digit > '9') return std::nullopt;
      fields[field] = fields[field] * 10 + (*digit - '0');
    }
  }
  if (year_digits == 2) fields[0] += fields[0] < 50 ? 2000 : 1900;
  const auto [year, month, day, hour, minute, second] = fields;
  if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60) {
    return std::nullopt;
  }
  return DaysSinceEpoch(year, month, day) * 86400 + hour * 3600 + minute * 60 + second;
}

// The notBefore time, read from the certificate's own DER: Certificate, TBSCertificate,
// then past the optional version, the serial number, the signature algorithm and the issuer
// to the validity.
std::optional<std::int64_t> NotBefore(gnutls_x509_crt_t crt) {
  gnutls_datum_t der{nullptr, 0};
  if (Gnutls().x509_crt_export2(crt, GNUTLS_X509_FMT_DER, &der) < 0) return std::nullopt;
  const std::unique_ptr<unsigned char, gnutls_free_function> owner(der.data, Gnutls().free);
  const unsigned char* p = der.data;
  DerElement element;
  for (const unsigned char tag : {0x30, 0x30}) {  // into Certificate, then TBSCertificate
    if (!ReadDer(p, der.data + der.size, element) || element.tag != tag) return std::nullopt;
    p = element.content;
  }
  const unsigned char* const end = element.content + element.size;
  if (!ReadDer(p, end, element)) return std::nullopt;
  if (element.tag == 0xa0 && !ReadDer(p, end, element)) return std::nullopt;  // version
  for (int skipped = 0; skipped < 3; ++skipped) {  // serial number, algorithm, issuer
    if (!ReadDer(p, end, element)) return std::nullopt;
  }
  if (element.tag != 0x30) return std::nullopt;  // the validity
  p = element.content;
  if (!ReadDer(p, element.content + element.size, element)) return std::nullopt;
  return DerTime(element);
}

// The time from which the certificate is valid, 0 when unknown. A library with a 32-bit
// time_t cannot tell a date from 2038 on: the certificate's own bytes are read instead.
std::int64_t ActivationTime(gnutls_x509_crt_t crt) {
  const GnutlsTime activation = Gnutls().x509_crt_get_activation_time(crt);
  if (activation == -1) return 0;
  if (sizeof activation == 4 && activation == kGnutlsLastTime32) return NotBefore(crt).value_or(0);
  return std::int64_t{activation};
}

bool IdentityOf(const std::string& ifname, LogSink& log, const gnutls_datum_t& data,
                CertificateIdentity& result) {
  result = CertificateIdentity();
  Crt crt = ImportCertificate(data);
  if (!crt) return false;
  result.activation = ActivationTime(crt.get());

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
