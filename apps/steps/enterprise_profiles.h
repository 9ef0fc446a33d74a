#pragma once
// WPA-Enterprise networks (EAP-TLS and PEAP/MSCHAPv2). Certificates and keys
// reach the supplicant as named blobs, never as files.

#include <string>

#include "apps/steps/wifi_settings.h"
#include "lib/platform/base/log.h"
#include "lib/platform/supplicant/supplicant.h"
#include "lib/platform/settings/x509_identity.h"

namespace corvo {

// Adds the EAP-TLS network; the identity and activation time read from the
// client certificate (or the PKCS#12 key) land in certificate. Supplicant
// failures are reported here and give false. wired: the network is for a
// wired port (plain 802.1X, selected at once).
bool BuildEapTlsNetwork(supplicant::Interface& interface, const std::string& ifname,
                        const WifiSettings& settings, const std::string& ciphers,
                        CertificateIdentity& certificate, bool wired, LogSink& log);

// Adds the PEAP/MSCHAPv2 network. Without a configured identity nothing is
// added. time_is_set: whether the server certificate's dates can be checked.
bool BuildPeapNetwork(supplicant::Interface& interface, const std::string& ifname,
                      const WifiSettings& settings, const std::string& ciphers, bool time_is_set,
                      bool wired, LogSink& log);

}  // namespace corvo
