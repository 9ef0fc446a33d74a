#pragma once
// The stored settings a run applies, as a set: what it read, a fingerprint of that, and a
// store that answers from a set kept earlier.

#include <string>
#include <utility>
#include <vector>

#include "lib/platform/settings/settings.h"

namespace corvo {

struct Reading {
  std::string section;
  std::string key;
  std::string value;
};

bool operator==(const Reading& a, const Reading& b);
bool operator<(const Reading& a, const Reading& b);

// Passes every reading on to the store below and keeps each (section, key) once, in the order
// first read.
class ReadingSettings : public Settings {
 public:
  explicit ReadingSettings(Settings& below) : m_below(below) {}
  std::string Read(const std::string& section, const std::string& key) override;
  const std::vector<Reading>& Readings() const { return m_readings; }

 private:
  Settings& m_below;
  std::vector<Reading> m_readings;
};

// Answers from kept readings; a key they do not hold reads as not stored.
class KeptSettings : public Settings {
 public:
  explicit KeptSettings(std::vector<Reading> readings) : m_readings(std::move(readings)) {}
  std::string Read(const std::string& section, const std::string& key) override;

 private:
  std::vector<Reading> m_readings;
};

// SHA-256, in lower-case hexadecimal, of the distinct readings of stored values, sorted by
// section and key: a start and a reconfigure of the same stored values read them in different
// orders, and may ask for different keys that are not stored; they must match.
std::string Fingerprint(const std::vector<Reading>& readings);

}  // namespace corvo
