#pragma once
// An in-memory registry for tests of code that reads stored settings; it
// counts Read calls so tests can see that nothing is cached. Only Read and
// Write are meaningful.

#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "lib/platform/registry.h"

namespace corvo::test {

class MemoryRegistry : public Registry {
 public:
  void Set(const std::string& section, const std::string& key, const std::string& value) {
    m_values[{section, key}] = value;
  }
  int ReadCount() const { return m_reads; }

  std::string Read(const std::string& section, const std::string& key) override {
    ++m_reads;
    const auto it = m_values.find({section, key});
    return it == m_values.end() ? std::string() : it->second;
  }
  void Write(const std::string& section, const std::string& key,
             const std::string& value) override {
    Set(section, key, value);
  }

  std::string ReadAllJson() override { Unused(); }
  void WriteJson(const std::string&) override { Unused(); }
  bool KeyExists(const std::string&, const std::string&) override { Unused(); }
  bool SectionExists(const std::string&) override { Unused(); }
  void DeleteKey(const std::string&, const std::string&) override { Unused(); }
  void DeleteSection(const std::string&) override { Unused(); }
  void DeleteAll() override { Unused(); }
  std::vector<std::string> SectionList() override { Unused(); }
  std::map<std::string, std::string> KeyList(const std::string&) override { Unused(); }
  void Flush() override { Unused(); }

 private:
  [[noreturn]] static void Unused() {
    throw std::logic_error("MemoryRegistry: operation not supported");
  }

  std::map<std::pair<std::string, std::string>, std::string> m_values;
  int m_reads = 0;
};

}  // namespace corvo::test
