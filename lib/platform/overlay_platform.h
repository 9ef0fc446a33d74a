#pragma once
// A Platform that keeps a run's changes to itself. Whatever the run changed is answered from
// those changes; everything else by the platform below, which no change ever reaches. So a
// run over it reads the world for real and changes nothing: every program exits with 0 at
// once, a daemon started runs until the run stops it, the supplicant takes every change, no
// lock is ever waited for and the steady clock moves only when the run sleeps.

#include <memory>

#include "lib/platform/platform.h"

namespace corvo {

class OverlayPlatform {
 public:
  explicit OverlayPlatform(Platform& below);
  ~OverlayPlatform();
  OverlayPlatform(const OverlayPlatform&) = delete;
  OverlayPlatform& operator=(const OverlayPlatform&) = delete;

  Platform& Get() { return *m_platform; }
  operator Platform&() { return *m_platform; }

  // The run's changes behind each interface of the Platform.
  class Parts;

 private:
  std::unique_ptr<Parts> m_parts;
  std::unique_ptr<Platform> m_platform;
};

}  // namespace corvo
