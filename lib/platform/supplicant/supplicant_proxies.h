#pragma once
// Proxies for wpa_supplicant's objects, over the classes generated from its
// interface descriptions. Signals are subscribed to because the generated
// classes do so, and every handler drops them.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "lib/platform/supplicant/properties.h"

#include <dbus-c++/dbus.h>
#include <dbus-c++/introspection.h>

#include "wpa_supplicant_bss_proxy.h"
#include "wpa_supplicant_interface_proxy.h"
#include "wpa_supplicant_network_proxy.h"
#include "wpa_supplicant_proxy.h"

namespace supplicant {

using PropertyMap = std::map<std::string, DBus::Variant>;

// The root object, /fi/w1/wpa_supplicant1.
class SupplicantProxy : public fi::w1::wpa_supplicant1_proxy,
                        public DBus::IntrospectableProxy,
                        public DBus::ObjectProxy {
 public:
  SupplicantProxy(DBus::Connection& connection, const DBus::Path& path, const char* name)
      : DBus::ObjectProxy(connection, path, name) {}

  void InterfaceAdded(const DBus::Path&, const PropertyMap&) override {}
  void InterfaceRemoved(const DBus::Path&) override {}
  void PropertiesChanged(const PropertyMap&) override {}
};

class SupplicantInterfaceProxy : public fi::w1::wpa_supplicant1::Interface_proxy,
                                 public DBus::IntrospectableProxy,
                                 public DBus::ObjectProxy {
 public:
  SupplicantInterfaceProxy(DBus::Connection& connection, const DBus::Path& path, const char* name)
      : DBus::ObjectProxy(connection, path, name) {}

  void ScanDone(const bool&) override {}
  void BSSAdded(const DBus::Path&, const PropertyMap&) override {}
  void BSSRemoved(const DBus::Path&) override {}
  void BlobAdded(const std::string&) override {}
  void BlobRemoved(const std::string&) override {}
  void NetworkAdded(const DBus::Path&, const PropertyMap&) override {}
  void NetworkRemoved(const DBus::Path&) override {}
  void NetworkSelected(const DBus::Path&) override {}
  void PropertiesChanged(const PropertyMap&) override {}
  void ProbeRequest(const PropertyMap&) override {}
  void Certification(const PropertyMap&) override {}
  void EAP(const std::string&, const std::string&) override {}
  void StaAuthorized(const std::string&) override {}
  void StaDeauthorized(const std::string&) override {}
  void StationAdded(const DBus::Path&, const PropertyMap&) override {}
  void StationRemoved(const DBus::Path&) override {}
  void NetworkRequest(const DBus::Path&, const std::string&, const std::string&) override {}
  void InterworkingAPAdded(const DBus::Path&, const DBus::Path&, const PropertyMap&) override {}
  void InterworkingSelectDone() override {}
};

class SupplicantNetworkProxy : public fi::w1::wpa_supplicant1::Network_proxy,
                               public DBus::IntrospectableProxy,
                               public DBus::ObjectProxy {
 public:
  SupplicantNetworkProxy(DBus::Connection& connection, const DBus::Path& path, const char* name)
      : DBus::ObjectProxy(connection, path, name) {}

  void PropertiesChanged(const PropertyMap&) override {}
};

class SupplicantBSSProxy : public fi::w1::wpa_supplicant1::BSS_proxy,
                           public DBus::IntrospectableProxy,
                           public DBus::ObjectProxy {
 public:
  SupplicantBSSProxy(DBus::Connection& connection, const DBus::Path& path, const char* name)
      : DBus::ObjectProxy(connection, path, name) {}

  void PropertiesChanged(const PropertyMap&) override {}

  // A byte-array property. The generated accessor would name a value that
  // is no array "array expected"; anything but "ay" is "byte-array expected".
  supplicant::Bytes ByteArrayProperty(const char* property);
};

}  // namespace supplicant
