#pragma once
// wpa_supplicant's D-Bus names, in one place.

namespace supplicant {

constexpr char kServiceName[] = "fi.w1.wpa_supplicant1";
constexpr char kObjectPath[] = "/fi/w1/wpa_supplicant1";
constexpr char kInterfaceInterface[] = "fi.w1.wpa_supplicant1.Interface";
constexpr char kBssInterface[] = "fi.w1.wpa_supplicant1.BSS";
constexpr char kNetworkInterface[] = "fi.w1.wpa_supplicant1.Network";

constexpr char kInterfaceUnknownError[] = "fi.w1.wpa_supplicant1.InterfaceUnknown";
constexpr char kBlobUnknownError[] = "fi.w1.wpa_supplicant1.BlobUnknown";
constexpr char kScanError[] = "fi.w1.wpa_supplicant1.Interface.ScanError";

// The daemon's object path for "no object".
constexpr char kNoObject[] = "/";

// Network property keys.
namespace key {
constexpr char kSsid[] = "ssid";
constexpr char kScanSsid[] = "scan_ssid";
constexpr char kKeyMgmt[] = "key_mgmt";
constexpr char kPsk[] = "psk";
constexpr char kPairwise[] = "pairwise";
constexpr char kGroup[] = "group";
constexpr char kPriority[] = "priority";
constexpr char kDisabled[] = "disabled";
constexpr char kMode[] = "mode";
constexpr char kFrequency[] = "frequency";
constexpr char kWepKey0[] = "wep_key0";
constexpr char kAuthAlg[] = "auth_alg";
constexpr char kEap[] = "eap";
constexpr char kPhase1[] = "phase1";
constexpr char kPhase2[] = "phase2";
constexpr char kIdentity[] = "identity";
constexpr char kAnonymousIdentity[] = "anonymous_identity";
constexpr char kPassword[] = "password";
constexpr char kCaCert[] = "ca_cert";
constexpr char kClientCert[] = "client_cert";
constexpr char kPrivateKey[] = "private_key";
constexpr char kPrivateKeyPasswd[] = "private_key_passwd";
}  // namespace key

}  // namespace supplicant
