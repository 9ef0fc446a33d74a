#pragma once
// Client of the player's registry service (com.ombalabs.Registry on the system bus): every
// operation of the service, for the tools; a run only reads (settings.h).

#include <exception>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "lib/platform/settings/settings.h"

namespace corvo {

class Registry : public Settings {
 public:
  virtual ~Registry() = default;

  virtual std::string ReadAllJson() = 0;
  virtual void WriteJson(const std::string& json) = 0;
  std::string Read(const std::string& section, const std::string& key) override = 0;
  virtual void Write(const std::string& section, const std::string& key,
                     const std::string& value) = 0;
  virtual bool KeyExists(const std::string& section, const std::string& key) = 0;
  virtual bool SectionExists(const std::string& section) = 0;
  virtual void DeleteKey(const std::string& section, const std::string& key) = 0;
  virtual void DeleteSection(const std::string& section) = 0;
  virtual void DeleteAll() = 0;
  virtual std::vector<std::string> SectionList() = 0;
  virtual std::map<std::string, std::string> KeyList(const std::string& section) = 0;
  virtual void Flush() = 0;

  class InvalidEncoding : public std::runtime_error {
   public:
    InvalidEncoding() : std::runtime_error("Input data not valid UTF-8") {}
  };

  class InvalidName : public std::exception {
   public:
    explicit InvalidName(const std::string& name)
        : m_message("Invalid name: " + name), m_name(name) {}
    const char* what() const noexcept override { return m_message.c_str(); }
    const std::string& Name() const noexcept { return m_name; }

   private:
    std::string m_message;
    std::string m_name;
  };

  class InvalidJson : public std::exception {
   public:
    explicit InvalidJson(const std::string& detail)
        : m_message("Invalid JSON format:" + detail), m_detail(detail) {}
    const char* what() const noexcept override { return m_message.c_str(); }
    const std::string& Detail() const noexcept { return m_detail; }

   private:
    std::string m_message;
    std::string m_detail;
  };

  class Full : public std::runtime_error {
   public:
    Full() : std::runtime_error("Registry full") {}
  };
};

// The one process-wide client, created on first use and kept until exit.
Registry& GetRegistry();

}  // namespace corvo
