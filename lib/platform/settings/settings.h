#pragma once
// The stored settings as a run sees them: one value at a time, by section and key. Every
// stored value a run reads passes through here, so that a run's readings can be told, kept or
// answered in one place.

#include <string>

namespace corvo {

class Settings {
 public:
  virtual ~Settings() = default;
  // The stored value; empty when none is stored.
  virtual std::string Read(const std::string& section, const std::string& key) = 0;
};

}  // namespace corvo
