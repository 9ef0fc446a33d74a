#pragma once
// The device's hardware variables, kept in the boot loader's environment.

#include <map>
#include <optional>
#include <string>

namespace corvo {

class BootEnvironment {
 public:
  virtual ~BootEnvironment() = default;
  virtual std::optional<std::string> Get(const std::string& name) const = 0;
};

// A fixed set of variables (tests, and the empty environment).
class StaticBootEnvironment : public BootEnvironment {
 public:
  StaticBootEnvironment() = default;
  explicit StaticBootEnvironment(std::map<std::string, std::string> values)
      : m_values(std::move(values)) {}
  std::optional<std::string> Get(const std::string& name) const override;

 private:
  std::map<std::string, std::string> m_values;
};

// Reads the whole environment once through libubootenv. An environment that
// cannot be read has no variables.
class UbootBootEnvironment : public BootEnvironment {
 public:
  static constexpr const char* kDefaultConfig = "/etc/fw_env.config";
  explicit UbootBootEnvironment(const char* config_path = kDefaultConfig);
  std::optional<std::string> Get(const std::string& name) const override;

 private:
  std::map<std::string, std::string> m_values;
};

}  // namespace corvo
