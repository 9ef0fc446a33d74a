// Asks an NTP server for the time through the SNTP client, so that tests can
// drive the client against real servers.
//
//   sntp_probe SERVER [PORT]
//
// Prints "took_ms=N" (how long the query took), then "offset_ns=N" (the
// network time minus this machine's clock) and exits 0, or "error=TEXT" and
// exits 1.

#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "lib/platform/system/sntp.h"

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::fprintf(stderr, "usage: sntp_probe SERVER [PORT]\n");
    return 2;
  }
  corvo::SntpOptions options;
  if (argc == 3) options.port = static_cast<std::uint16_t>(std::strtoul(argv[2], nullptr, 10));
  const auto start = std::chrono::steady_clock::now();
  const corvo::NetworkTimeResult result = corvo::QueryNetworkTime(argv[1], options);
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  const auto took = std::chrono::steady_clock::now() - start;
  std::printf("took_ms=%" PRId64 "\n",
              static_cast<std::int64_t>(
                  std::chrono::duration_cast<std::chrono::milliseconds>(took).count()));
  if (!result.time_ns) {
    std::printf("error=%s\n", result.error.c_str());
    return 1;
  }
  const std::int64_t now_ns = std::int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
  std::printf("offset_ns=%" PRId64 "\n", *result.time_ns - now_ns);
  return 0;
}
