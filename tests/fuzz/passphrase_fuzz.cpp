// A stored passphrase with its tag, read as the steps read it ("C": the stored customer key).

#include "lib/platform/settings/interface_reader.h"
#include "tests/fuzz/fuzz_support.h"
#include "tests/support/world_model.h"

using namespace corvo;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = fuzz::Text(data, size);
  // With a known tag, 17 to 32 characters end in the salt-size assertion (a unit death test).
  if (size >= 17 && size <= 32 && std::string("AaCc").find(text[0]) != std::string::npos) return 0;
  WorldModel world;
  world.Set(".omba", "wp", text);
  world.Set("customer", "obfuscation_key", "customer key");
  const PersistentNetworkConfig::InterfaceReader reader("eth0", world.Get().settings, "S1");
  fuzz::Expect([&] { fuzz::Check(reader.Passphrase().size() <= size / 2, "passphrase grew"); },
               {"Insufficient input for UnobfuscatePassphrase", "Unknown obfuscation algorithm",
                "Invalid hexadecimal string length", "Invalid hexadecimal digit",
                "Input is not correctly encrypted", "Invalid length"});
  return 0;
}
