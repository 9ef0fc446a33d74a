#pragma once
// Inbound bandwidth policing with tc. Never throws: a failure is printed and the run goes on.

#include "apps/steps/run_context.h"

namespace corvo {

// Installs (start) or removes (stop) the interface's inbound limit.
void ConfigureShaper(const RunContext& run, Phase phase);

}  // namespace corvo
