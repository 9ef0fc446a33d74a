#include <chrono>
#include <cstdlib>
#include <dbus-c++/dbus.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <thread>

#include "lib/platform/bus/dbus_dispatcher.h"
#include "tests/unit/private_kernel_log.h"

namespace {

int ThreadsNamed(const std::string& name) {
  int count = 0;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream comm(task.path() / "comm");
    std::string line;
    count += std::getline(comm, line) && line == name;
  }
  return count;
}

TEST(EnsureDBusDispatcherTest, InstancesShareOneDefaultDispatcher) {
  corvo::EnsureDBusDispatcher first;
  DBus::Dispatcher* const installed = DBus::default_dispatcher;
  ASSERT_NE(dynamic_cast<DBus::BusDispatcher*>(installed), nullptr);
  { corvo::EnsureDBusDispatcher second; }
  EXPECT_EQ(DBus::default_dispatcher, installed);
  EXPECT_EQ(ThreadsNamed("DBusDispatcher"), 0);
}

// In a child, as the last instance may be another translation unit's at exit. A
// thread that outlives the destructor's own bound aborts the child: no clock is read.
TEST(EnsureDBusDispatcherDeathTest, DispatcherThreadStopsAtTheLastInstance) {
  EXPECT_EXIT(
      {
        corvo::KeepKernelLogPrivate();
        static corvo::EnsureDBusDispatcher with_thread(true);
        for (int tries = 0; ThreadsNamed("DBusDispatcher") == 0; ++tries) {
          if (tries == 6000) std::_Exit(3);
          std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        {
          corvo::EnsureDBusDispatcher another(true);
          if (ThreadsNamed("DBusDispatcher") != 1) std::_Exit(4);
        }
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
