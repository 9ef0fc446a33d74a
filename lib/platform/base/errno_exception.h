#pragma once

#include <stdexcept>
#include <string>

namespace corvo {

// A failed system call: the errno value and a short word naming the step.
class ErrnoException : public std::runtime_error {
 public:
  explicit ErrnoException(int err, const std::string& context = std::string());
  int Errno() const noexcept { return m_errno; }
  const std::string& Context() const noexcept { return m_context; }

 private:
  int m_errno;
  std::string m_context;
};

}  // namespace corvo
