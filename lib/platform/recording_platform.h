#pragma once
// A Platform that records. Each change a run makes through it becomes one line of text, in
// order, and is then made on the platform it wraps; questions go to that platform as they
// are. The stored secrets the run reads never appear in the lines, nor in the text the run
// writes, which is kept rather than written. The unit tests wrap a model of the world with it;
// linkrig-plan wraps the player's own platform, under an overlay that keeps the changes.

#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "lib/platform/platform.h"

namespace corvo {

class RecordingPlatform {
 public:
  explicit RecordingPlatform(Platform& inner);
  ~RecordingPlatform();
  RecordingPlatform(const RecordingPlatform&) = delete;
  RecordingPlatform& operator=(const RecordingPlatform&) = delete;

  Platform& Get() { return *m_platform; }
  operator Platform&() { return *m_platform; }

  // The changes, in order.
  const std::vector<std::string>& Effects() const { return m_effects; }
  void ClearEffects() { m_effects.clear(); }
  // Text written to standard error and standard output.
  const std::string& Log() const { return m_log; }
  const std::string& Output() const { return m_output; }

  // Called with each change before it is made; throwing here makes that change fail the way
  // the real one would.
  std::function<void(const std::string& effect)> before_effect;

  // Every later line and text shows this text as "<redacted>".
  void AddSecret(const std::string& secret);
  std::string Redact(std::string text) const;

  // The recording wrappers of the Platform's interfaces.
  class Parts;

 private:
  // The network time step runs beside the main thread.
  mutable std::recursive_mutex m_mutex;
  std::set<std::string> m_secrets;
  std::vector<std::string> m_effects;
  std::string m_log;
  std::string m_output;
  std::unique_ptr<Parts> m_parts;
  std::unique_ptr<LogSink> m_log_sink;
  std::unique_ptr<LogSink> m_out_sink;
  std::unique_ptr<Platform> m_platform;
};

constexpr char kRedacted[] = "<redacted>";

// One argument as a shell would need it written ('' for an empty one).
std::string QuoteArgument(const std::string& argument);
// Text in double quotes, with C escapes for what is not printable.
std::string QuoteText(const std::string& text);

}  // namespace corvo
