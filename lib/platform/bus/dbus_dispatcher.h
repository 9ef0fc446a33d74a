#pragma once
// Makes sure the bus library is initialised for threads and has one default
// dispatcher before any proxy is created, however many parts of the program
// use the bus. Each user keeps one instance; the last one to go stops the
// dispatcher thread, if one was asked for.

namespace corvo {

class EnsureDBusDispatcher {
 public:
  // With start_thread, a thread runs the dispatcher's loop until the last
  // instance is destroyed. Without one, every call blocks on its own reply
  // and signals are only seen while something iterates the dispatcher.
  explicit EnsureDBusDispatcher(bool start_thread = false);
  ~EnsureDBusDispatcher();
  EnsureDBusDispatcher(const EnsureDBusDispatcher&) = delete;
  EnsureDBusDispatcher& operator=(const EnsureDBusDispatcher&) = delete;
};

}  // namespace corvo
