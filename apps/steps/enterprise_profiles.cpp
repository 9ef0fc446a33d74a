#include "apps/steps/enterprise_profiles.h"

#include <cstdint>
#include <ctime>
#include <exception>
#include <vector>

#include <dbus-c++/error.h>

#include "lib/platform/log.h"

namespace corvo {

namespace {

std::vector<std::uint8_t> Bytes(const std::string& text) {
  return std::vector<std::uint8_t>(text.begin(), text.end());
}

// An empty stored item gets neither a blob nor a reference: an empty blob
// would make the supplicant fail the whole TLS set-up instead of doing without.
void AddBlob(supplicant::Interface& interface, supplicant::PropertySet& properties,
             const std::string& ifname, const char* name, const std::string& bytes,
             const char* debug_format) {
  if (bytes.empty()) return;
  interface.SetBlob(name, Bytes(bytes));
  properties[name] = StringProperty(name, std::string("blob://") + name);
  if (WifiDebug()) Log(debug_format, ifname, static_cast<int>(bytes.size()));
}

void SetCommon(supplicant::PropertySet& properties, const WifiSettings& settings,
               const std::string& ciphers, const char* eap, bool wired) {
  if (settings.IsHidden()) properties["scan_ssid"] = IntProperty(1);
  properties["ssid"] = StringProperty("ssid", settings.ssid);
  // A wired port has no 4-way handshake to follow the EAP exchange: with
  // WPA-EAP the supplicant would wait for one forever and never authorise.
  properties["key_mgmt"] = StringProperty("key_mgmt", wired ? "IEEE8021X" : "WPA-EAP");
  properties["pairwise"] = StringProperty("pairwise", ciphers);
  properties["group"] = StringProperty("group", ciphers);
  properties["eap"] = StringProperty("eap", eap);
}

bool Md5Disabled(const WifiSettings& settings) {
  return ContainsIgnoringCase(settings.dot1x_options, "md5=disable");
}

// Runs a builder; supplicant and property failures end the build here.
template <typename Build>
bool Guarded(const std::string& ifname, Build build) {
  try {
    build();
    return true;
  } catch (const DBus::Error& e) {
    Log("%s: DBus error adding network properties %s : %s\n", ifname, e.name(), e.message());
  } catch (const std::exception& e) {
    Log("%s: Error adding network properties %s\n", ifname, e.what());
  } catch (...) {
    Log("Error adding network properties - unknown error\n");
  }
  return false;
}

// Nothing else ever joins a wired port: its network is selected as it is
// added (the radio joins after the scan that the bring-up asks for).
void Add(supplicant::Interface& interface, const supplicant::PropertySet& properties,
         bool wired) {
  if (wired) {
    interface.AddAndSelectNetwork(properties);
  } else {
    interface.AddNetwork(properties);
  }
}

}  // namespace

bool BuildEapTlsNetwork(supplicant::Interface& interface, const std::string& ifname,
                        const WifiSettings& settings, const std::string& ciphers,
                        CertificateIdentity& certificate, bool wired) {
  certificate = CertificateIdentity();
  return Guarded(ifname, [&] {
    Log("%s: EAP-TLS Private key found, using WPA/Enterprise\n", ifname);
    if (WifiDebug()) Log("%s: WPA/Enterprise: SSID %s\n", ifname, settings.ssid);

    supplicant::PropertySet properties;
    SetCommon(properties, settings, ciphers, "TLS", wired);
    // MD5 signatures stay allowed unless explicitly refused.
    properties["phase1"] = StringProperty("phase1", Md5Disabled(settings) ? "" : "tls_allow_md5=1");

    if (!settings.client_certificate.empty()) {
      if (!ReadCertificateIdentity(ifname, settings.client_certificate, certificate)) {
        Log("%s: Unable to read identity from client certificate\n", ifname);
      }
    } else if (!settings.private_key.empty()) {
      if (!ReadPkcs12Identity(ifname, settings.private_key, settings.passphrase, certificate)) {
        Log("%s: Unable to read identity from private key (not PKCS#12?)\n", ifname);
      }
    }
    std::string identity;
    if (settings.identity.empty()) {
      identity = certificate.identity;
      Log("%s: WPA/Enterprise: (from certificate) Identity %s\n", ifname, identity);
    } else {
      identity = settings.identity;
      Log("%s: WPA/Enterprise: (configured) Identity %s\n", ifname, identity);
    }
    properties["identity"] = StringProperty("identity", identity);

    if (WifiDebug()) {
      if (certificate.activation == 0) {
        Log("%s: WPA/Enterprise: client certificate time not found\n", ifname);
      } else {
        char text[64] = {};
        const std::time_t activation = certificate.activation;
        if (ctime_r(&activation, text) != nullptr) {
          Log("%s: WPA/Enterprise: client certificate starts %s", ifname, text);
        }
      }
    }
    properties["disabled"] = IntProperty(0);

    AddBlob(interface, properties, ifname, "ca_cert", settings.ca_certificate,
            "%s: WPA/Enterprise: CA cert is %d bytes\n");
    AddBlob(interface, properties, ifname, "client_cert", settings.client_certificate,
            "%s: WPA/Enterprise: Client cert is %d bytes\n");
    AddBlob(interface, properties, ifname, "private_key", settings.private_key,
            "%s: WPA/Enterprise: Private key is %d bytes\n");

    if (!settings.passphrase.empty()) {
      properties["private_key_passwd"] = StringProperty("private_key_passwd", settings.passphrase);
      if (WifiDebug()) Log("%s: WPA/Enterprise: Private key password present\n", ifname);
    }
    Add(interface, properties, wired);
  });
}

bool BuildPeapNetwork(supplicant::Interface& interface, const std::string& ifname,
                      const WifiSettings& settings, const std::string& ciphers,
                      bool time_is_set, bool wired) {
  if (settings.identity.empty()) {
    Log("%s: EAP-PEAP/MSCHAPv2: No identity configured\n", ifname);
    return false;
  }
  return Guarded(ifname, [&] {
    if (WifiDebug()) Log("%s: Wifi EAP-PEAP: SSID %s\n", ifname, settings.ssid);
    supplicant::PropertySet properties;
    SetCommon(properties, settings, ciphers, "PEAP", wired);

    std::string phase1 = "peaplabel=0";
    if (!time_is_set) {
      Log("System time not set; accepting server certificate without time check\n");
      phase1 += " tls_disable_time_checks=1";
    }
    if (!Md5Disabled(settings)) phase1 += " tls_allow_md5=1";
    properties["phase1"] = StringProperty("phase1", phase1);
    properties["phase2"] = StringProperty("phase2", "auth=MSCHAPV2");

    static const std::string kAnonymous = "anonymous_identity=";
    const std::string::size_type found = settings.dot1x_options.find(kAnonymous);
    if (found != std::string::npos) {
      const std::string::size_type start = found + kAnonymous.size();
      const std::string::size_type end = settings.dot1x_options.find(' ', start);
      const std::string anonymous = settings.dot1x_options.substr(
          start, end == std::string::npos ? std::string::npos : end - start);
      properties["anonymous_identity"] = StringProperty("anonymous_identity", anonymous);
      Log("%s: PEAP/MS-CHAPv2: Using anonymous identity %s\n", ifname, anonymous);
    }

    properties["identity"] = StringProperty("identity", settings.identity);
    Log("%s: PEAP/MS-CHAPv2 Identity %s\n", ifname, settings.identity);
    properties["password"] = StringProperty("password", settings.passphrase);
    if (settings.passphrase.empty()) {
      Log("%s: PEAP/MS-CHAPv2 - passphrase is empty, but trying anyway.\n", ifname);
    }
    properties["disabled"] = IntProperty(0);
    AddBlob(interface, properties, ifname, "ca_cert", settings.ca_certificate,
            "%s: WPA/Enterprise: CA cert is %d bytes\n");
    Add(interface, properties, wired);
  });
}

}  // namespace corvo
