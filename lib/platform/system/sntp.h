#pragma once
// A simple network time (SNTP) client: asks one server for the time over UDP.
// It only reads the time; setting the clock is the caller's decision.

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "lib/platform/system/os.h"

namespace corvo {

// A name lookup of at most kNtpLookupLimit, then kNtpAttempts requests that
// each wait kNtpAttemptLimit for a valid reply: the whole query ends within
// kNtpQueryLimit whatever the network or the resolver does.
constexpr std::chrono::milliseconds kNtpLookupLimit{1900};
constexpr std::chrono::milliseconds kNtpAttemptLimit{1000};
constexpr int kNtpAttempts = 3;
constexpr std::chrono::milliseconds kNtpQueryLimit{5000};

struct SntpOptions {
  std::uint16_t port = 123;
  // How long each attempt waits for a valid reply.
  std::chrono::milliseconds attempt_limit = kNtpAttemptLimit;
};

// Asks server (a host name or a dotted IPv4 address) for the time. Never
// throws; every failure is described in the result's error.
NetworkTimeResult QueryNetworkTime(const std::string& server, const SntpOptions& options = {});

}  // namespace corvo
