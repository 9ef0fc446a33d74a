#include "lib/platform/settings/registry_client.h"

#include <cstring>

#include <boost/scoped_ptr.hpp>
#include <boost/thread/lock_guard.hpp>
#include <boost/thread/once.hpp>

#include "lib/platform/bus/dbus_dispatcher.h"
#include "lib/platform/bus/bus_error.h"
#include "lib/platform/bus/dbus_values.h"
#include "lib/platform/bus/utf8.h"

namespace corvo {

namespace {

// Must exist before the first connection is opened, and outlive the client.
EnsureDBusDispatcher s_dispatcher_guard;

boost::scoped_ptr<RegistryClientImpl> s_registry;
boost::once_flag s_registry_once = BOOST_ONCE_INIT;

constexpr const char* kServiceName = "com.ombalabs.Registry";
constexpr const char* kObjectPath = "/com/ombalabs/Registry";

constexpr const char* kInvalidNameError = "com.ombalabs.Registry.Errors.InvalidName";
constexpr const char* kFullError = "com.ombalabs.Registry.Errors.Full";
constexpr const char* kInvalidJsonError = "com.ombalabs.Registry.Errors.InvalidJson";

// libdbus refuses to marshal a string that is not UTF-8 (and would cut one
// at an embedded NUL), so such arguments are rejected before anything is sent.
template <typename... Strings>
void ValidateUtf8(const Strings&... texts) {
  for (const std::string* text : {&texts...}) {
    if (!IsValidUtf8(*text)) throw Registry::InvalidEncoding();
  }
}

// The service's own errors get their types; any other keeps its name and message.
[[noreturn]] void ThrowTranslated(const DBus::Error& error) {
  if (HasErrorName(error, kInvalidNameError)) throw Registry::InvalidName("InvalidName");
  if (HasErrorName(error, kFullError)) throw Registry::Full();
  if (HasErrorName(error, kInvalidJsonError)) throw Registry::InvalidJson("Invalid JSON");
  ThrowBusError(error.name() != nullptr ? error.name() : "", error.message());
}

void CreateRegistry() {
  try {
    s_registry.reset(new RegistryClientImpl());
  } catch (const DBus::Error& error) {
    ThrowTranslated(error);
  }
}

}  // namespace

RegistryProxy::RegistryProxy(DBus::Connection& connection, const char* path, const char* name)
    : DBus::ObjectProxy(connection, path, name) {}

RegistryClientImpl::RegistryClientImpl()
    : m_connection(DBus::Connection::SystemBus()),
      m_proxy(m_connection, kObjectPath, kServiceName) {}

RegistryClientImpl::~RegistryClientImpl() = default;

template <typename Call>
auto RegistryClientImpl::Locked(Call call) -> decltype(call(std::declval<RegistryProxy&>())) {
  try {
    boost::lock_guard<boost::mutex> lock(m_mutex);
    return call(m_proxy);
  } catch (const DBus::Error& error) {
    ThrowTranslated(error);
  }
}

// The generated unmarshalling checks the reply's type: a SectionList reply
// that is no array fails with InvalidArgs "array expected", a KeyList reply
// that is no dictionary with InvalidArgs "dictionary value expected", and a
// wrong basic type with InvalidArgs "type mismatch".

std::string RegistryClientImpl::ReadAllJson() {
  return Locked([](RegistryProxy& proxy) { return proxy.ReadAllJson(); });
}

void RegistryClientImpl::WriteJson(const std::string& json) {
  ValidateUtf8(json);
  Locked([&](RegistryProxy& proxy) { proxy.WriteJson(json); });
}

std::string RegistryClientImpl::Read(const std::string& section, const std::string& key) {
  ValidateUtf8(section, key);
  return Locked([&](RegistryProxy& proxy) { return proxy.Read(section, key); });
}

void RegistryClientImpl::Write(const std::string& section, const std::string& key,
                               const std::string& value) {
  ValidateUtf8(section, key, value);
  Locked([&](RegistryProxy& proxy) { proxy.Write(section, key, value); });
}

bool RegistryClientImpl::KeyExists(const std::string& section, const std::string& key) {
  ValidateUtf8(section, key);
  return Locked([&](RegistryProxy& proxy) { return proxy.KeyExists(section, key); });
}

bool RegistryClientImpl::SectionExists(const std::string& section) {
  ValidateUtf8(section);
  return Locked([&](RegistryProxy& proxy) { return proxy.SectionExists(section); });
}

void RegistryClientImpl::DeleteKey(const std::string& section, const std::string& key) {
  ValidateUtf8(section, key);
  Locked([&](RegistryProxy& proxy) { proxy.DeleteKey(section, key); });
}

void RegistryClientImpl::DeleteSection(const std::string& section) {
  ValidateUtf8(section);
  Locked([&](RegistryProxy& proxy) { proxy.DeleteSection(section); });
}

void RegistryClientImpl::DeleteAll() {
  Locked([](RegistryProxy& proxy) { proxy.DeleteAll(); });
}

std::vector<std::string> RegistryClientImpl::SectionList() {
  return Locked([](RegistryProxy& proxy) { return proxy.SectionList(); });
}

std::map<std::string, std::string> RegistryClientImpl::KeyList(const std::string& section) {
  ValidateUtf8(section);
  return Locked([&](RegistryProxy& proxy) { return proxy.KeyList(section); });
}

void RegistryClientImpl::Flush() {
  Locked([](RegistryProxy& proxy) { proxy.Flush(); });
}

Registry& GetRegistry() {
  boost::call_once(&CreateRegistry, s_registry_once);
  return *s_registry;
}

}  // namespace corvo
