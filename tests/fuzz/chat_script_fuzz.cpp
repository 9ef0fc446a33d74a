// The dial-up settings in the chat script and peer file: the init command comes back whole.

#include <fuzzer/FuzzedDataProvider.h>

#include "apps/steps/dialup.h"
#include "tests/fuzz/fuzz_support.h"
#include "tests/support/world_model.h"

using namespace corvo;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  DialupSettings settings{in.ConsumeRandomLengthString(64), in.ConsumeRandomLengthString(64),
                          in.ConsumeRandomLengthString(32), in.ConsumeRemainingBytesAsString()};
  WorldModel world;
  fuzz::Expect(
      [&] { WriteDialupConfiguration("/dev/modem", settings, world.Get().files); },
      {"Dialup user contains invalid character", "Dialup password contains invalid character",
       "Dialup number contains invalid character"});
  const std::string& script = world.files[kChatScriptPath];
  const std::size_t begin = script.find("\nOK \"");
  if (begin == std::string::npos) return 0;
  std::string init;  // chat reads "\ooo" as an octal byte
  for (std::size_t i = begin + 5; script[i] != '"'; ++i) {
    fuzz::Check(script[i] >= 0x20 && script[i] <= 0x7E, "unprintable character in the script");
    init += script[i] != '\\' ? script[i]
                              : static_cast<char>(std::stoi(script.substr(i + 1, 3), nullptr, 8));
    if (script[i] == '\\') i += 3;
  }
  fuzz::Check(init == settings.init, "init command changed on its way into the script");
  return 0;
}
