// A client certificate (DER or PEM) and the 802.1X identity it names.

#include "lib/platform/settings/x509_identity.h"
#include "tests/fuzz/fuzz_support.h"

using namespace corvo;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::NullSink log;
  CertificateIdentity identity;
  const bool found = ReadCertificateIdentity("eth0", fuzz::Text(data, size), identity, log);
  fuzz::Check(found == !identity.identity.empty(), "identity and result disagree");
  return 0;
}
