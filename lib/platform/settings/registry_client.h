#pragma once
// The D-Bus implementation of Registry: every operation is one blocking call
// to com.ombalabs.Registry on the system bus, serialised by one mutex.

#include <map>
#include <string>
#include <utility>
#include <vector>

#include <boost/thread/mutex.hpp>
#include <dbus-c++/dbus.h>
#include <dbus-c++/introspection.h>

#include "lib/platform/settings/registry.h"
#include "registry_proxy.h"

namespace corvo {

class RegistryProxy : public com::ombalabs::Registry_proxy,
                      public DBus::IntrospectableProxy,
                      public DBus::ObjectProxy {
 public:
  RegistryProxy(DBus::Connection& connection, const char* path, const char* name);
};

class RegistryClientImpl : public Registry {
 public:
  RegistryClientImpl();
  ~RegistryClientImpl() override;

  RegistryClientImpl(const RegistryClientImpl&) = delete;
  RegistryClientImpl& operator=(const RegistryClientImpl&) = delete;

  std::string ReadAllJson() override;
  void WriteJson(const std::string& json) override;
  std::string Read(const std::string& section, const std::string& key) override;
  void Write(const std::string& section, const std::string& key, const std::string& value) override;
  bool KeyExists(const std::string& section, const std::string& key) override;
  bool SectionExists(const std::string& section) override;
  void DeleteKey(const std::string& section, const std::string& key) override;
  void DeleteSection(const std::string& section) override;
  void DeleteAll() override;
  std::vector<std::string> SectionList() override;
  std::map<std::string, std::string> KeyList(const std::string& section) override;
  void Flush() override;

 private:
  // Runs one call on the proxy with the mutex held and the service's
  // errors translated.
  template <typename Call>
  auto Locked(Call call) -> decltype(call(std::declval<RegistryProxy&>()));

  boost::mutex m_mutex;
  DBus::Connection m_connection;
  RegistryProxy m_proxy;
};

}  // namespace corvo
