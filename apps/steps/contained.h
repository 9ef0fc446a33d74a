#pragma once
// The error contract of the steps. A step that owns a whole feature (the
// shaper, dial-up, one VLAN, a wireless join, an enterprise network) catches
// what fails inside it at its end, prints the feature's own line and lets the
// run go on; anything else reaches the front end, which prints it and exits
// with 2.

#include <exception>

namespace corvo {

// Runs body. A failure goes to report, with the exception, or nullptr for one
// that is not a standard exception, and false is returned.
template <typename Body, typename Report>
bool Contained(Body&& body, Report&& report) {
  try {
    body();
    return true;
  } catch (const std::exception& e) {
    report(&e);
  } catch (...) {
    report(nullptr);
  }
  return false;
}

// The text of a failure as the feature lines give it.
inline const char* FailureText(const std::exception* e) {
  return e != nullptr ? e->what() : "unknown exception";
}

}  // namespace corvo
