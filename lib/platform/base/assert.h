#pragma once
// Assertions that are part of the program's behaviour: the failure is written
// to the kernel log at level 2 (and to standard error) and the process aborts.

namespace corvo {

[[noreturn]] void AssertFailed(const char* file, int line, const char* function,
                               const char* expression);

}  // namespace corvo

#define CORVO_ASSERT(expr)       \
  ((expr) ? static_cast<void>(0) \
          : ::corvo::AssertFailed(__FILE__, __LINE__, __PRETTY_FUNCTION__, #expr))

// Pointer validation: a null pointer is an assertion failure.
#define CORVO_ASSERT_PTR(ptr) CORVO_ASSERT((ptr) != nullptr)
