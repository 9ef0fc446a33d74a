// The kernel's IPv4 route table as /proc/net/route shows it.

#include <cstdio>

#include "lib/platform/system/route_table.h"
#include "tests/fuzz/fuzz_support.h"

using namespace corvo;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::FILE* table = fmemopen(const_cast<std::uint8_t*>(data), size, "r");
  if (table == nullptr) return 0;  // glibc refuses an empty buffer
  fuzz::Expect([&] { net::FindDefaultGateway(table, "eth0"); },
               {"/proc/net/route is not readable", "Malformed /proc/net/route line"});
  std::fclose(table);
  return 0;
}
