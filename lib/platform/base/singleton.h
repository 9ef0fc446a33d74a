#pragma once
// Process-wide single instances: the object registers itself while it lives,
// and asking for it when none exists is an assertion failure.

#include "lib/platform/base/assert.h"

namespace corvo {

template <typename T>
class Singleton {
 public:
  static T* GetInstance() {
    CORVO_ASSERT(s_instance);
    return s_instance;
  }
  static bool Exists() { return s_instance != nullptr; }

  Singleton(const Singleton&) = delete;
  Singleton& operator=(const Singleton&) = delete;

 protected:
  Singleton() {
    CORVO_ASSERT(s_instance == nullptr);
    s_instance = static_cast<T*>(this);
  }
  ~Singleton() { s_instance = nullptr; }

 private:
  static inline T* s_instance = nullptr;
};

}  // namespace corvo
