#include "apps/steps/enterprise_profiles.h"

#include "apps/steps/contained.h"

#include <cstdint>
#include <ctime>
#include <exception>
#include <vector>

#include "lib/platform/bus/bus_error.h"
#include "lib/platform/supplicant/names.h"

namespace corvo {

namespace {

using supplicant::IntProperty;
using supplicant::StringProperty;
namespace key = supplicant::key;

std::vector<std::uint8_t> Bytes(const std::string& text) {
  return std::vector<std::uint8_t>(text.begin(), text.end());
}

// The network always refers to the blob. An item that is not stored still
// travels, as an empty blob that also replaces any earlier one: the supplicant
// then cannot set up TLS and joins nothing, where a network without the
// reference would join without checking the server.
void AddBlob(supplicant::Interface& interface, supplicant::PropertySet& properties,
             const std::string& ifname, const char* name, const std::string& bytes,
             const WifiSettings& settings, LogSink& log, const char* debug_format) {
  if (bytes.empty() && std::string(name) == key::kCaCert) {
    log.Print(
        "%s: WPA/Enterprise: no CA certificate stored; the server cannot be verified, "
        "so the network will not be joined\n",
        ifname);
  }
  interface.SetBlob(name, Bytes(bytes));
  properties[name] = StringProperty(name, std::string("blob://") + name);
  if (settings.debug) log.Print(debug_format, ifname, static_cast<int>(bytes.size()));
}

void SetCommon(supplicant::PropertySet& properties, const WifiSettings& settings,
               const std::string& ciphers, const char* eap, bool wired) {
  if (settings.IsHidden()) properties[key::kScanSsid] = IntProperty(1);
  properties[key::kSsid] = StringProperty(key::kSsid, settings.ssid);
  // A wired port has no 4-way handshake to follow the EAP exchange: with
  // WPA-EAP the supplicant would wait for one forever and never authorise.
  properties[key::kKeyMgmt] = StringProperty(key::kKeyMgmt, wired ? "IEEE8021X" : "WPA-EAP");
  properties[key::kPairwise] = StringProperty(key::kPairwise, ciphers);
  properties[key::kGroup] = StringProperty(key::kGroup, ciphers);
  properties[key::kEap] = StringProperty(key::kEap, eap);
}

bool Md5Disabled(const WifiSettings& settings) {
  return ContainsIgnoringCase(settings.dot1x_options, "md5=disable");
}

// Runs a builder; supplicant and property failures end the build here.
template <typename Build>
bool Guarded(const std::string& ifname, LogSink& log, Build build) {
  return Contained(build, [&](const std::exception* e) {
    if (const auto* bus = dynamic_cast<const BusError*>(e)) {
      log.Print("%s: DBus error adding network properties %s : %s\n", ifname, bus->Name(),
                bus->what());
    } else if (e != nullptr) {
      log.Print("%s: Error adding network properties %s\n", ifname, e->what());
    } else {
      log.Print("Error adding network properties - unknown error\n");
    }
  });
}

// Nothing else ever joins a wired port: its network is selected as it is
// added (the radio joins after the scan that the bring-up asks for).
void Add(supplicant::Interface& interface, const supplicant::PropertySet& properties, bool wired) {
  if (wired) {
    interface.AddAndSelectNetwork(properties);
  } else {
    interface.AddNetwork(properties);
  }
}

}  // namespace

bool BuildEapTlsNetwork(supplicant::Interface& interface, const std::string& ifname,
                        const WifiSettings& settings, const std::string& ciphers,
                        CertificateIdentity& certificate, bool wired, LogSink& log) {
  certificate = CertificateIdentity();
  return Guarded(ifname, log, [&] {
    log.Print("%s: EAP-TLS Private key found, using WPA/Enterprise\n", ifname);
    if (settings.debug) log.Print("%s: WPA/Enterprise: SSID %s\n", ifname, settings.ssid);

    supplicant::PropertySet properties;
    SetCommon(properties, settings, ciphers, "TLS", wired);
    // MD5 signatures stay allowed unless explicitly refused.
    properties[key::kPhase1] =
        StringProperty(key::kPhase1, Md5Disabled(settings) ? "" : "tls_allow_md5=1");

    if (!settings.client_certificate.empty()) {
      if (!ReadCertificateIdentity(ifname, settings.client_certificate, certificate, log)) {
        log.Print("%s: Unable to read identity from client certificate\n", ifname);
      }
    } else if (!settings.private_key.empty()) {
      if (!ReadPkcs12Identity(ifname, settings.private_key, settings.passphrase, certificate,
                              log)) {
        log.Print("%s: Unable to read identity from private key (not PKCS#12?)\n", ifname);
      }
    }
    std::string identity;
    if (settings.identity.empty()) {
      identity = certificate.identity;
      log.Print("%s: WPA/Enterprise: (from certificate) Identity %s\n", ifname, identity);
    } else {
      identity = settings.identity;
      log.Print("%s: WPA/Enterprise: (configured) Identity %s\n", ifname, identity);
    }
    properties[key::kIdentity] = StringProperty(key::kIdentity, identity);

    if (settings.debug) {
      if (certificate.activation == 0) {
        log.Print("%s: WPA/Enterprise: client certificate time not found\n", ifname);
      } else {
        char text[64] = {};
        const std::time_t activation = certificate.activation;
        if (ctime_r(&activation, text) != nullptr) {
          log.Print("%s: WPA/Enterprise: client certificate starts %s", ifname, text);
        }
      }
    }
    properties[key::kDisabled] = IntProperty(0);

    AddBlob(interface, properties, ifname, key::kCaCert, settings.ca_certificate, settings, log,
            "%s: WPA/Enterprise: CA cert is %d bytes\n");
    // A private key in a PKCS#12 file brings its certificate along.
    const std::string& client_certificate =
        settings.client_certificate.empty() ? certificate.certificate : settings.client_certificate;
    AddBlob(interface, properties, ifname, key::kClientCert, client_certificate, settings, log,
            "%s: WPA/Enterprise: Client cert is %d bytes\n");
    AddBlob(interface, properties, ifname, key::kPrivateKey, settings.private_key, settings, log,
            "%s: WPA/Enterprise: Private key is %d bytes\n");

    if (!settings.passphrase.empty()) {
      properties[key::kPrivateKeyPasswd] =
          StringProperty(key::kPrivateKeyPasswd, settings.passphrase);
      if (settings.debug) log.Print("%s: WPA/Enterprise: Private key password present\n", ifname);
    }
    Add(interface, properties, wired);
  });
}

bool BuildPeapNetwork(supplicant::Interface& interface, const std::string& ifname,
                      const WifiSettings& settings, const std::string& ciphers, bool time_is_set,
                      bool wired, LogSink& log) {
  if (settings.identity.empty()) {
    log.Print("%s: EAP-PEAP/MSCHAPv2: No identity configured\n", ifname);
    return false;
  }
  return Guarded(ifname, log, [&] {
    if (settings.debug) log.Print("%s: Wifi EAP-PEAP: SSID %s\n", ifname, settings.ssid);
    supplicant::PropertySet properties;
    SetCommon(properties, settings, ciphers, "PEAP", wired);

    std::string phase1 = "peaplabel=0";
    if (!time_is_set) {
      log.Print("System time not set; accepting server certificate without time check\n");
      phase1 += " tls_disable_time_checks=1";
    }
    if (!Md5Disabled(settings)) phase1 += " tls_allow_md5=1";
    properties[key::kPhase1] = StringProperty(key::kPhase1, phase1);
    properties[key::kPhase2] = StringProperty(key::kPhase2, "auth=MSCHAPV2");

    static const std::string kAnonymous = "anonymous_identity=";
    const std::string::size_type found = settings.dot1x_options.find(kAnonymous);
    if (found != std::string::npos) {
      const std::string::size_type start = found + kAnonymous.size();
      const std::string::size_type end = settings.dot1x_options.find(' ', start);
      const std::string anonymous = settings.dot1x_options.substr(
          start, end == std::string::npos ? std::string::npos : end - start);
      properties[key::kAnonymousIdentity] = StringProperty(key::kAnonymousIdentity, anonymous);
      log.Print("%s: PEAP/MS-CHAPv2: Using anonymous identity %s\n", ifname, anonymous);
    }

    properties[key::kIdentity] = StringProperty(key::kIdentity, settings.identity);
    log.Print("%s: PEAP/MS-CHAPv2 Identity %s\n", ifname, settings.identity);
    properties[key::kPassword] = StringProperty(key::kPassword, settings.passphrase);
    if (settings.passphrase.empty()) {
      log.Print("%s: PEAP/MS-CHAPv2 - passphrase is empty, but trying anyway.\n", ifname);
    }
    properties[key::kDisabled] = IntProperty(0);
    AddBlob(interface, properties, ifname, key::kCaCert, settings.ca_certificate, settings, log,
            "%s: WPA/Enterprise: CA cert is %d bytes\n");
    Add(interface, properties, wired);
  });
}

}  // namespace corvo
