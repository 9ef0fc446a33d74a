#pragma once
// The outside world as the configuration steps see it, in one place: programs,
// the kernel's network state and links, files, the steady and wall clocks, the
// host's name, network time, the stored settings, the supplicant, the hardware facts and the
// two output streams. main builds the real one (real_platform.h) and passes it
// down; RecordingPlatform answers from a model and records what would change.

#include "lib/hardware/hardware_facts.h"
#include "lib/platform/base/log.h"
#include "lib/platform/settings/settings.h"
#include "lib/platform/supplicant/supplicant.h"
#include "lib/platform/system/os.h"

namespace corvo {

struct Platform {
  Programs& programs;
  NetworkState& network;
  Files& files;
  Locks& locks;
  Clock& clock;
  SystemClock& system_clock;
  HostNames& host_names;
  NetworkTimeSource& network_time;
  Settings& settings;
  supplicant::SupplicantConnector& supplicant;
  HardwareFacts& hardware;
  LogSink& log;  // standard error: every diagnostic line
  LogSink& out;  // standard output: only the command's few answers
};

}  // namespace corvo
