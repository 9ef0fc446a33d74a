#pragma once
// A wall clock that tests can read and "set" without touching the host's.

#include <cstdint>
#include <vector>

#include "lib/platform/platform.h"

namespace corvo::test {

class FakeSystemClock : public SystemClock {
 public:
  std::int64_t RealtimeMicroseconds() override { return now_us; }
  int SetRealtime(std::int64_t seconds, long microseconds) override {
    sets.push_back(seconds * 1000000 + microseconds);
    return set_error;
  }
  bool TimeIsSet() override { return time_is_set; }

  std::int64_t now_us = 1700000000000000;
  bool time_is_set = true;
  std::vector<std::int64_t> sets;  // microseconds since the epoch
  int set_error = 0;
};

}  // namespace corvo::test
