// Runs one registry operation through the process-wide client and prints the
// result, so that tests can drive the client from outside.
//
//   registry_probe OP [ARGS...]     OP is a Registry operation name
//   registry_probe threads SECTION KEY   two Reads at once from two threads
//
// An argument "hex:4142ff" stands for the raw bytes 41 42 ff. Results: strings
// as they are, lists one item per line, maps as "key=value" lines, booleans as
// "true"/"false". A failure prints "EXCEPTION <kind>: <what>" and exits 2.

#include <cstdio>
#include <exception>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <boost/thread/thread.hpp>
#include "lib/platform/bus/bus_error.h"
#include "lib/platform/settings/registry.h"

namespace {

std::string DecodeArgument(const std::string& text) {
  const std::string prefix = "hex:";
  if (text.compare(0, prefix.size(), prefix) != 0) return text;
  const std::string hex = text.substr(prefix.size());
  if (hex.size() % 2 != 0) throw std::invalid_argument("odd number of hex digits: " + text);
  std::string bytes;
  for (size_t i = 0; i < hex.size(); i += 2) {
    bytes.push_back(static_cast<char>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

boost::mutex g_output;

void PrintLine(const std::string& text) {
  boost::lock_guard<boost::mutex> lock(g_output);
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fputc('\n', stdout);
}

void PrintBool(bool value) { PrintLine(value ? "true" : "false"); }

template <typename E>
bool Is(const std::exception& e) {
  return dynamic_cast<const E*>(&e) != nullptr;
}

// Returns the exit status; the exception is described on standard output.
int Describe(const std::function<void()>& run, const std::string& prefix = "") {
  std::string kind = "std";
  try {
    run();
    return 0;
  } catch (const std::exception& e) {
    using R = corvo::Registry;
    const auto* bus = dynamic_cast<const corvo::BusError*>(&e);
    if (bus) kind = "DBus " + bus->Name();
    if (Is<R::InvalidEncoding>(e)) kind = "InvalidEncoding";
    if (Is<R::InvalidName>(e)) kind = "InvalidName";
    if (Is<R::InvalidJson>(e)) kind = "InvalidJson";
    if (Is<R::Full>(e)) kind = "Full";
    PrintLine(prefix + "EXCEPTION " + kind + ": " + e.what());
  }
  return 2;
}

struct Operation {
  size_t arguments;
  std::function<void(const std::vector<std::string>&)> run;
};

const std::map<std::string, Operation>& Operations() {
  static const std::map<std::string, Operation> operations = {
      {"ReadAllJson", {0, [](auto&) { PrintLine(corvo::GetRegistry().ReadAllJson()); }}},
      {"WriteJson", {1, [](auto& a) { corvo::GetRegistry().WriteJson(a[0]); }}},
      {"Read", {2, [](auto& a) { PrintLine(corvo::GetRegistry().Read(a[0], a[1])); }}},
      {"Write", {3, [](auto& a) { corvo::GetRegistry().Write(a[0], a[1], a[2]); }}},
      {"KeyExists", {2, [](auto& a) { PrintBool(corvo::GetRegistry().KeyExists(a[0], a[1])); }}},
      {"SectionExists", {1, [](auto& a) { PrintBool(corvo::GetRegistry().SectionExists(a[0])); }}},
      {"DeleteKey", {2, [](auto& a) { corvo::GetRegistry().DeleteKey(a[0], a[1]); }}},
      {"DeleteSection", {1, [](auto& a) { corvo::GetRegistry().DeleteSection(a[0]); }}},
      {"DeleteAll", {0, [](auto&) { corvo::GetRegistry().DeleteAll(); }}},
      {"SectionList",
       {0,
        [](auto&) {
          for (const auto& section : corvo::GetRegistry().SectionList()) PrintLine(section);
        }}},
      {"KeyList",
       {1,
        [](auto& a) {
          for (const auto& [key, value] : corvo::GetRegistry().KeyList(a[0])) {
            PrintLine(key + "=" + value);
          }
        }}},
      {"Flush", {0, [](auto&) { corvo::GetRegistry().Flush(); }}},
      {"threads",
       {2,
        [](auto& a) {
          // Both threads share the one client; each prints its own line.
          int status[2] = {0, 0};
          auto reader = [&](int index) {
            std::string value;
            const std::string prefix = "thread " + std::to_string(index) + ": ";
            status[index] =
                Describe([&] { value = corvo::GetRegistry().Read(a[0], a[1]); }, prefix);
            if (status[index] == 0) PrintLine(prefix + value);
          };
          boost::thread first(reader, 0);
          boost::thread second(reader, 1);
          first.join();
          second.join();
          if (status[0] != 0 || status[1] != 0) throw std::runtime_error("a reader failed");
        }}},
  };
  return operations;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || Operations().count(argv[1]) == 0) {
    std::fprintf(stderr, "usage: registry_probe OP [ARGS...]\n");
    return 1;
  }
  const Operation& operation = Operations().at(argv[1]);
  if (static_cast<size_t>(argc - 2) != operation.arguments) {
    std::fprintf(stderr, "registry_probe: %s takes %zu arguments\n", argv[1], operation.arguments);
    return 1;
  }
  const int status = Describe([&] {
    std::vector<std::string> arguments;
    for (int i = 2; i < argc; ++i) arguments.push_back(DecodeArgument(argv[i]));
    operation.run(arguments);
  });
  std::fflush(stdout);
  return status;
}
