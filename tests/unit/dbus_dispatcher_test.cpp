#include <chrono>
#include <cstdlib>
#include <dbus-c++/dbus.h>
#include <dirent.h>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <thread>

#include "lib/platform/bus/dbus_dispatcher.h"

namespace {

using Clock = std::chrono::steady_clock;

int ThreadsNamed(const std::string& name) {
  DIR* tasks = opendir("/proc/self/task");
  int count = 0;
  while (dirent* entry = tasks ? readdir(tasks) : nullptr) {
    std::ifstream comm(std::string("/proc/self/task/") + entry->d_name + "/comm");
    std::string line;
    count += std::getline(comm, line) && line == name;
  }
  if (tasks) {
    closedir(tasks);
  }
  return count;
}

TEST(EnsureDBusDispatcherTest, InstancesShareOneDefaultDispatcher) {
  const auto start = Clock::now();
  {
    corvo::EnsureDBusDispatcher first;
    DBus::Dispatcher* const installed = DBus::default_dispatcher;
    ASSERT_NE(dynamic_cast<DBus::BusDispatcher*>(installed), nullptr);
    {
      corvo::EnsureDBusDispatcher second;
      EXPECT_EQ(DBus::default_dispatcher, installed);
    }
    EXPECT_EQ(DBus::default_dispatcher, installed);
    EXPECT_EQ(ThreadsNamed("DBusDispatcher"), 0);
  }
  // Without a dispatcher thread there is nothing to wait for.
  EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(500));
}

// The thread runs until the last instance goes, which may be another
// translation unit's at exit; so it is started in a child that then exits.
TEST(EnsureDBusDispatcherDeathTest, DispatcherThreadStopsPromptly) {
  const auto start = Clock::now();
  EXPECT_EXIT(
      {
        static corvo::EnsureDBusDispatcher with_thread(true);
        const auto deadline = Clock::now() + std::chrono::seconds(5);
        while (ThreadsNamed("DBusDispatcher") == 0 && Clock::now() < deadline) {
          std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        {
          corvo::EnsureDBusDispatcher another(true);
          if (ThreadsNamed("DBusDispatcher") != 1) {
            std::_Exit(3);
          }
        }
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
}

}  // namespace
