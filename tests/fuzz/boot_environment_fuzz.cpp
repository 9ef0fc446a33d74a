// The hardware flags in the boot loader's environment, which holds C strings.

#include <cstring>

#include "lib/hardware/hardware_config.h"
#include "tests/fuzz/fuzz_support.h"

using namespace corvo;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string flags = fuzz::Text(data, strnlen(reinterpret_cast<const char*>(data), size));
  const HardwareConfig hardware(StaticBootEnvironment({{"VL_HWFLAGS", flags}}));
  fuzz::Check(hardware.HasEthernet() == ((hardware.Features() & 0x10) != 0), "Ethernet flag");
  return 0;
}
