#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/time.h>

#include "lib/platform/platform.h"

namespace corvo {

namespace {

// __DATE__ is "Mmm dd yyyy", __TIME__ "hh:mm:ss", both in the builder's local
// time; taken as UTC, which is close enough to tell a reset clock from a set one.
std::int64_t ParseBuildTime(const char* date, const char* clock) {
  static const char kMonths[] = "JanFebMarAprMayJunJulAugSepOctNovDec";
  char month[4] = {};
  int day = 0, year = 0, hour = 0, minute = 0, second = 0;
  if (std::sscanf(date, "%3s %d %d", month, &day, &year) != 3) return 0;
  if (std::sscanf(clock, "%d:%d:%d", &hour, &minute, &second) != 3) return 0;
  const char* found = std::strstr(kMonths, month);
  if (found == nullptr || std::strlen(month) != 3) return 0;
  struct tm fields;
  std::memset(&fields, 0, sizeof fields);
  fields.tm_year = year - 1900;
  fields.tm_mon = static_cast<int>((found - kMonths) / 3);
  fields.tm_mday = day;
  fields.tm_hour = hour;
  fields.tm_min = minute;
  fields.tm_sec = second;
  return static_cast<std::int64_t>(timegm(&fields));
}

class RealSystemClock : public SystemClock {
 public:
  std::int64_t RealtimeMicroseconds() override {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
  }
  int SetRealtime(std::int64_t seconds, long microseconds) override {
    struct timeval value;
    value.tv_sec = static_cast<time_t>(seconds);
    value.tv_usec = static_cast<suseconds_t>(microseconds);
    return settimeofday(&value, nullptr) == 0 ? 0 : errno;
  }
  bool TimeIsSet() override {
    return RealtimeMicroseconds() / 1000000 >= BuildTimeSeconds();
  }
};

}  // namespace

std::int64_t BuildTimeSeconds() {
  static const std::int64_t built = ParseBuildTime(__DATE__, __TIME__);
  return built;
}

SystemClock& GetSystemClock() {
  static RealSystemClock clock;
  return clock;
}

}  // namespace corvo
