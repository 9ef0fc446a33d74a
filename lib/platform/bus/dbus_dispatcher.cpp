#include "lib/platform/bus/dbus_dispatcher.h"

#include <boost/chrono.hpp>
#include <boost/thread/thread.hpp>
#include <dbus-c++/dbus.h>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <vector>

#include "lib/platform/base/assert.h"
#include "lib/platform/base/log.h"

namespace corvo {

namespace {

struct DispatcherState {
  std::mutex mutex;
  unsigned int count = 0;
  DBus::BusDispatcher* dispatcher = nullptr;
  std::unique_ptr<boost::thread> thread;
  // Dispatchers are kept for good: a connection may outlive every guard at
  // exit, and libdbus calls back into its dispatcher when it goes.
  std::vector<std::unique_ptr<DBus::BusDispatcher>> dispatchers;
};

// Never destroyed, for the same reason.
DispatcherState& State() {
  static DispatcherState* const state = new DispatcherState;
  return *state;
}

void RunDispatcher(DBus::BusDispatcher* dispatcher) {
  pthread_setname_np(pthread_self(), "DBusDispatcher");
  try {
    dispatcher->enter();
  } catch (const std::exception& e) {
    Log("D-Bus dispatcher failed: %s\n", e.what());
  }
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
    state.thread = std::make_unique<boost::thread>(RunDispatcher, state.dispatcher);
  }
}

EnsureDBusDispatcher::~EnsureDBusDispatcher() {
  DispatcherState& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  if (--state.count != 0 || !state.thread) {
    return;
  }
  // leave() wakes the loop through the dispatcher's own pipe.
  try {
    state.dispatcher->leave();
  } catch (const std::exception& e) {
    Log("D-Bus dispatcher failed to leave: %s\n", e.what());
  }
  if (!state.thread->try_join_for(boost::chrono::seconds(10))) {
    Log("~EnsureDBusDispatcher thread failed to exit in a timely manner.\n");
    CORVO_ASSERT(false);
  }
  state.thread.reset();
}

}  // namespace corvo
