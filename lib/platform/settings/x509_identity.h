#pragma once
// The 802.1X identity a client certificate names, and the time from which the
// certificate is valid (used to set a clock that was never set).

#include <cstdint>
#include <string>

#include "lib/platform/base/log.h"

namespace corvo {

struct CertificateIdentity {
  std::string identity;        // empty when none could be read
  std::int64_t activation = 0;  // not-before time, seconds since the epoch; 0 when unknown
  std::string certificate;     // from a PKCS#12 file: the certificate itself, DER
};

// From a certificate in DER or PEM form. The identity is the first e-mail
// address or DNS name of the subjectAltName, else the subject's Common Name.
// Returns false when no identity could be read; the activation time is still
// filled in when the certificate could be imported. ifname labels the messages.
bool ReadCertificateIdentity(const std::string& ifname, const std::string& certificate,
                             CertificateIdentity& result, LogSink& log);

// From a PKCS#12 file (DER or PEM) whose bags are encrypted with password:
// the first certificate that carries a key ID.
bool ReadPkcs12Identity(const std::string& ifname, const std::string& pkcs12,
                        const std::string& password, CertificateIdentity& result, LogSink& log);

}  // namespace corvo
