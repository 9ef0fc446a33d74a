#include "apps/steps/shaper.h"

#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include <fmt/printf.h>

#include "apps/steps/contained.h"

namespace corvo {

namespace {

int RunTc(Platform& platform, const std::vector<std::string>& args) {
  return platform.programs.Run("tc", args);
}

void AddShaper(const RunContext& run) {
  Platform& platform = run.platform;
  const std::string& ifname = run.ifname;
  const std::uint32_t rate = run.reader.InboundRate();
  if (rate == 0) {
    platform.log.Print("No inbound bandwidth shaping on %s\n", ifname);
    return;
  }
  platform.log.Print("Adding inbound bandwidth shaping of %ubit/s for %s\n", rate, ifname);
  int status = RunTc(platform, {"qdisc", "add", "dev", ifname, "handle", "ffff:", "ingress"});
  if (status != 0) {
    throw std::runtime_error(fmt::sprintf("Shaper(%s): Failed to add qdisc: %d", ifname, status));
  }
  // A bare burst is in bytes: the bucket holds as many bytes as the rate has bits per second.
  const std::string rate_text = std::to_string(rate);
  status = RunTc(
      platform, {"filter", "add",     "dev",   ifname,    "parent", "ffff:",  "protocol",  "ip",
                 "prio",   "50",      "u32",   "match",   "ip",     "src",    "0.0.0.0/0", "police",
                 "rate",   rate_text, "burst", rate_text, "drop",   "flowid", ":1"});
  // The ingress discipline stays without a filter; a later remove clears it.
  if (status != 0) {
    throw std::runtime_error(fmt::sprintf("Shaper(%s): Failed to add filter: %d", ifname, status));
  }
}

void RemoveShaper(const RunContext& run) {
  run.platform.log.Print("Removing bandwidth shaper (if present) for %s\n", run.ifname);
  // There may be no discipline to delete; deleting it also removes its filter.
  RunTc(run.platform, {"qdisc", "del", "dev", run.ifname, "ingress"});
}

}  // namespace

void ConfigureShaper(const RunContext& run, Phase phase) {
  Contained([&] { phase == Phase::kStart ? AddShaper(run) : RemoveShaper(run); },
            [&](const std::exception* e) {
              run.platform.log.Print("ConfigureShaper failed: %s\n", FailureText(e));
            });
}

}  // namespace corvo
