#include "apps/steps/shaper.h"

#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include <fmt/printf.h>

#include "apps/steps/contained.h"
#include "lib/platform/settings/interface_reader.h"

namespace corvo {

namespace {

int RunTc(Platform& platform, const std::vector<std::string>& args) {
  return platform.programs.Run("tc", args);
}

int AddShaper(const PersistentNetworkConfig::InterfaceReader& reader, const std::string& ifname,
              Platform& platform) {
  const std::uint32_t rate = reader.InboundRate();
  if (rate == 0) {
    platform.log.Print("No inbound bandwidth shaping on %s\n", ifname);
    return 0;
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
  return status;
}

int RemoveShaper(const std::string& ifname, Platform& platform) {
  platform.log.Print("Removing bandwidth shaper (if present) for %s\n", ifname);
  // There may be no discipline to delete; deleting it also removes its filter.
  RunTc(platform, {"qdisc", "del", "dev", ifname, "ingress"});
  return 0;
}

}  // namespace

int ConfigureShaper(const PersistentNetworkConfig::InterfaceReader& reader, const char* ifname,
                    bool add, Platform& platform) {
  int status = -1;
  Contained(
      [&] {
        const std::string name(ifname);
        status = add ? AddShaper(reader, name, platform) : RemoveShaper(name, platform);
      },
      [&](const std::exception* e) {
        platform.log.Print("ConfigureShaper failed: %s\n", FailureText(e));
      });
  return status;
}

}  // namespace corvo
