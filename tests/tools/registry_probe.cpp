// Drives the registry client for tests: registry_probe OP ARGS..., OP a Registry operation or
// "threads SECTION KEY" (two Reads at once); "hex:4142ff" is the bytes 41 42 ff. Lists print a
// line an item, maps "key=value". A failure prints "EXCEPTION <kind>: <what>" and exits 2.

#include <cstdio>
#include <exception>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <boost/thread/thread.hpp>
#include "lib/platform/base/hex.h"
#include "lib/platform/bus/bus_error.h"
#include "lib/platform/settings/registry.h"

namespace {

boost::mutex g_output;

void PrintLine(const std::string& text) {
  boost::lock_guard<boost::mutex> lock(g_output);
  std::printf("%s\n", text.c_str());
}

void PrintBool(bool value) { PrintLine(value ? "true" : "false"); }

// Returns the exit status; the exception is described on standard output.
int Describe(const std::function<void()>& run, const std::string& prefix = "") {
  std::string kind = "std";
  try {
    run();
    return 0;
  } catch (const std::exception& e) {
    using R = corvo::Registry;
    if (const auto* bus = dynamic_cast<const corvo::BusError*>(&e)) kind = "DBus " + bus->Name();
    if (dynamic_cast<const R::InvalidEncoding*>(&e)) kind = "InvalidEncoding";
    if (dynamic_cast<const R::InvalidName*>(&e)) kind = "InvalidName";
    if (dynamic_cast<const R::InvalidJson*>(&e)) kind = "InvalidJson";
    if (dynamic_cast<const R::Full*>(&e)) kind = "Full";
    PrintLine(prefix + "EXCEPTION " + kind + ": " + e.what());
  }
  return 2;
}

using Args = std::vector<std::string>;

const std::map<std::string, std::function<void(const Args&)>> kOperations = {
    {"ReadAllJson", [](auto&) { PrintLine(corvo::GetRegistry().ReadAllJson()); }},
    {"WriteJson", [](auto& a) { corvo::GetRegistry().WriteJson(a.at(0)); }},
    {"Read", [](auto& a) { PrintLine(corvo::GetRegistry().Read(a.at(0), a.at(1))); }},
    {"Write", [](auto& a) { corvo::GetRegistry().Write(a.at(0), a.at(1), a.at(2)); }},
    {"KeyExists", [](auto& a) { PrintBool(corvo::GetRegistry().KeyExists(a.at(0), a.at(1))); }},
    {"SectionExists", [](auto& a) { PrintBool(corvo::GetRegistry().SectionExists(a.at(0))); }},
    {"DeleteKey", [](auto& a) { corvo::GetRegistry().DeleteKey(a.at(0), a.at(1)); }},
    {"DeleteSection", [](auto& a) { corvo::GetRegistry().DeleteSection(a.at(0)); }},
    {"DeleteAll", [](auto&) { corvo::GetRegistry().DeleteAll(); }},
    {"SectionList",
     [](auto&) {
       for (const auto& section : corvo::GetRegistry().SectionList()) PrintLine(section);
     }},
    {"KeyList",
     [](auto& a) {
       for (const auto& [key, value] : corvo::GetRegistry().KeyList(a.at(0))) {
         PrintLine(key + "=" + value);
       }
     }},
    {"Flush", [](auto&) { corvo::GetRegistry().Flush(); }},
    {"threads",
     [](auto& a) {
       // Both threads share the one client; each prints its own line.
       int status[2] = {0, 0};
       auto reader = [&](int index) {
         const std::string prefix = "thread " + std::to_string(index) + ": ";
         status[index] = Describe(
             [&] { PrintLine(prefix + corvo::GetRegistry().Read(a.at(0), a.at(1))); }, prefix);
       };
       boost::thread first(reader, 0);
       boost::thread second(reader, 1);
       first.join();
       second.join();
       if (status[0] != 0 || status[1] != 0) throw std::runtime_error("a reader failed");
     }},
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || kOperations.count(argv[1]) == 0) {
    std::fprintf(stderr, "usage: registry_probe OP [ARGS...]\n");
    return 1;
  }
  return Describe([&] {
    Args arguments(argv + 2, argv + argc);
    for (std::string& argument : arguments) {
      if (argument.compare(0, 4, "hex:") != 0) continue;
      const auto bytes = corvo::HexDecode(argument.substr(4));
      argument.assign(bytes.begin(), bytes.end());
    }
    kOperations.at(argv[1])(arguments);
  });
}
