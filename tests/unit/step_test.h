#pragma once
// What the tests of the steps share: a recorded world to run them in.

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "lib/platform/recording_platform.h"
#include "lib/platform/settings/interface_reader.h"

namespace corvo::test {

using Lines = std::vector<std::string>;
using Settings = std::map<std::string, std::string>;
using PersistentNetworkConfig::InterfaceReader;

inline Lines Join(Lines head, const Lines& tail) {
  head.insert(head.end(), tail.begin(), tail.end());
  return head;
}

// gtest names for table cases with a `name` member.
template <typename Case>
std::string NameOf(const ::testing::TestParamInfo<Case>& info) {
  return info.param.name;
}

class StepTest : public ::testing::Test {
 protected:
  // Settings of one registry section (".omba" is eth0's and the host's).
  void Store(const Settings& settings, const std::string& section = ".omba") {
    for (const auto& [key, value] : settings) world.Set(section, key, value);
  }
  InterfaceReader Reader(const std::string& ifname) {
    return InterfaceReader(ifname, platform.Get().registry, world.serial_number);
  }
  // The argument vectors of every run of the program, in order.
  std::vector<std::vector<std::string>> Runs(const std::string& program) const {
    std::vector<std::vector<std::string>> found;
    for (const ProgramRun& run : world.runs) {
      if (run.program == program) found.push_back(run.args);
    }
    return found;
  }

  RecordingPlatform platform;
  WorldModel& world = platform.world;
};

}  // namespace corvo::test
