#include "lib/platform/bus/dbus_dispatcher.h"

#include <chrono>
#include <condition_variable>
#include <dbus-c++/dbus.h>
#include <functional>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <thread>
#include <vector>

#include "lib/platform/base/assert.h"
#include "lib/platform/base/log.h"

namespace corvo {

namespace {

struct DispatcherState {
  std::mutex mutex;
  unsigned int count = 0;
  DBus::BusDispatcher* dispatcher = nullptr;
  std::unique_ptr<std::thread> thread;
  // Whether the thread's loop has returned; waited for with a bound, which a plain join
  // lacks (and Boost's timed join would hand its 64-bit deadline to a 32-bit-time library).
  bool loop_done = false;
  std::condition_variable loop_ended;
  // Dispatchers are kept for good: a connection may outlive every guard at
  // exit, and libdbus calls back into its dispatcher when it goes.
  std::vector<std::unique_ptr<DBus::BusDispatcher>> dispatchers;
};

// Never destroyed, for the same reason.
DispatcherState& State() {
  static DispatcherState* const state = new DispatcherState;
  return *state;
}

void RunDispatcher(DispatcherState& state, DBus::BusDispatcher* dispatcher) {
  pthread_setname_np(pthread_self(), "DBusDispatcher");
  try {
    dispatcher->enter();
  } catch (const std::exception& e) {
    Log("D-Bus dispatcher failed: %s\n", e.what());
  }
  std::lock_guard<std::mutex> lock(state.mutex);
  state.loop_done = true;
  state.loop_ended.notify_all();
}

}  // namespace

EnsureDBusDispatcher::EnsureDBusDispatcher(bool start_thread) {
  DispatcherState& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  if (state.count++ == 0) {
    DBus::_init_threading();
    state.dispatchers.push_back(std::make_unique<DBus::BusDispatcher>());
    state.dispatcher = state.dispatchers.back().get();
    DBus::default_dispatcher = state.dispatcher;
  }
  if (start_thread && !state.thread) {
    state.loop_done = false;
    state.thread = std::make_unique<std::thread>(RunDispatcher, std::ref(state), state.dispatcher);
  }
}

EnsureDBusDispatcher::~EnsureDBusDispatcher() {
  DispatcherState& state = State();
  std::unique_lock<std::mutex> lock(state.mutex);
  if (--state.count != 0 || !state.thread) {
    return;
  }
  // leave() wakes the loop through the dispatcher's own pipe.
  try {
    state.dispatcher->leave();
  } catch (const std::exception& e) {
    Log("D-Bus dispatcher failed to leave: %s\n", e.what());
  }
  if (!state.loop_ended.wait_for(lock, std::chrono::seconds(10), [&] { return state.loop_done; })) {
    Log("~EnsureDBusDispatcher thread failed to exit in a timely manner.\n");
    CORVO_ASSERT(false);
  }
  state.thread->join();
  state.thread.reset();
}

}  // namespace corvo
