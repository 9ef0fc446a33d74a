#include "apps/steps/shaper.h"

#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include <fmt/printf.h>

#include "lib/platform/interface_reader.h"
#include "lib/platform/log.h"
#include "lib/platform/spawn_process.h"

namespace corvo {

namespace {

constexpr unsigned int kTcFlags = SpawnProcess::kKernelLogOutput | SpawnProcess::kWatchdog;

int RunTc(Programs& programs, const std::vector<std::string>& args) {
  return programs.Run("tc", args, kTcFlags);
}

int AddShaper(const PersistentNetworkConfig::InterfaceReader& reader, const std::string& ifname,
              Programs& programs) {
  const std::uint32_t rate = reader.InboundRate();
  if (rate == 0) {
    Log("No inbound bandwidth shaping on %s\n", ifname);
    return 0;
  }
  Log("Adding inbound bandwidth shaping of %ubit/s for %s\n", rate, ifname);
  int status = RunTc(programs, {"qdisc", "add", "dev", ifname, "handle", "ffff:", "ingress"});
  if (status != 0) {
    throw std::runtime_error(fmt::sprintf("Shaper(%s): Failed to add qdisc: %d", ifname, status));
  }
  // A bare burst is in bytes: the bucket holds as many bytes as the rate has bits per second.
  const std::string rate_text = std::to_string(rate);
  status = RunTc(programs, {"filter", "add", "dev", ifname, "parent", "ffff:", "protocol", "ip",
                            "prio", "50", "u32", "match", "ip", "src", "0.0.0.0/0", "police",
                            "rate", rate_text, "burst", rate_text, "drop", "flowid", ":1"});
  // The ingress discipline stays without a filter; a later remove clears it.
  if (status != 0) {
    throw std::runtime_error(fmt::sprintf("Shaper(%s): Failed to add filter: %d", ifname, status));
  }
  return status;
}

int RemoveShaper(const std::string& ifname, Programs& programs) {
  Log("Removing bandwidth shaper (if present) for %s\n", ifname);
  // There may be no discipline to delete; deleting it also removes its filter.
  RunTc(programs, {"qdisc", "del", "dev", ifname, "ingress"});
  return 0;
}

}  // namespace

int ConfigureShaper(const PersistentNetworkConfig::InterfaceReader& reader, const char* ifname,
                    bool add, Programs& programs) {
  try {
    const std::string name(ifname);
    return add ? AddShaper(reader, name, programs) : RemoveShaper(name, programs);
  } catch (const std::exception& e) {
    Log("ConfigureShaper failed: %s\n", e.what());
  } catch (...) {
    Log("ConfigureShaper failed: %s\n", "unknown exception");
  }
  return -1;
}

}  // namespace corvo
