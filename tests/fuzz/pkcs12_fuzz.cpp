// A PKCS#12 file with "secret" as password, and the identity of its first keyed certificate.

#include "lib/platform/settings/x509_identity.h"
#include "tests/fuzz/fuzz_support.h"

using namespace corvo;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::NullSink log;
  CertificateIdentity identity;
  const bool found = ReadPkcs12Identity("eth0", fuzz::Text(data, size), "secret", identity, log);
  fuzz::Check(found == !identity.identity.empty(), "identity and result disagree");
  return 0;
}
