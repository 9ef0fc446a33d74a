#pragma once
// Failures of calls on the system bus, as the clients above the bus see them:
// the D-Bus error name and message, in types of their own.

#include <stdexcept>
#include <string>

namespace corvo {

class BusError : public std::runtime_error {
 public:
  // what() is the message alone, as the bus library gives it.
  BusError(std::string name, const std::string& message)
      : std::runtime_error(message), m_name(std::move(name)) {}
  const std::string& Name() const noexcept { return m_name; }

 private:
  std::string m_name;
};

// Nobody answers for the service: it is not running, or the bus is unreachable.
class BusServiceUnavailable : public BusError {
 public:
  using BusError::BusError;
};

// The service did not answer within the call's time limit.
class BusNoReply : public BusError {
 public:
  using BusError::BusError;
};

namespace bus_errors {
constexpr char kServiceUnknown[] = "org.freedesktop.DBus.Error.ServiceUnknown";
constexpr char kNameHasNoOwner[] = "org.freedesktop.DBus.Error.NameHasNoOwner";
constexpr char kNoServer[] = "org.freedesktop.DBus.Error.NoServer";
constexpr char kFileNotFound[] = "org.freedesktop.DBus.Error.FileNotFound";
constexpr char kDisconnected[] = "org.freedesktop.DBus.Error.Disconnected";
constexpr char kNoReply[] = "org.freedesktop.DBus.Error.NoReply";
constexpr char kTimeout[] = "org.freedesktop.DBus.Error.Timeout";
constexpr char kInvalidArgs[] = "org.freedesktop.DBus.Error.InvalidArgs";
}  // namespace bus_errors

// Raises the BusError type that the name calls for.
[[noreturn]] void ThrowBusError(const std::string& name, const std::string& message);

}  // namespace corvo
