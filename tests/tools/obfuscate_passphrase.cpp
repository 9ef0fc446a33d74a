// Prints the stored form of a passphrase, as the registry keeps it in "wp":
//   obfuscate_passphrase A PASSPHRASE        (built-in key)
//   obfuscate_passphrase C KEY PASSPHRASE    (customer key, as raw characters)

#include <cstdio>
#include <exception>
#include <string>

#include "lib/platform/settings/passphrase_obfuscation.h"
#include "tests/support/passphrase_obfuscator.h"

int main(int argc, char** argv) {
  const std::string tag = argc > 1 ? argv[1] : "";
  try {
    std::string text;
    if ((tag == "A" || tag == "a") && argc == 3) {
      text = corvo::test::ObfuscatePassphrase(tag[0], corvo::BuiltInObfuscationKey(), argv[2]);
    } else if ((tag == "C" || tag == "c") && argc == 4) {
      text = corvo::test::ObfuscatePassphrase(tag[0], argv[2], argv[3]);
    } else {
      std::fprintf(stderr,
                   "usage: obfuscate_passphrase A PASSPHRASE\n"
                   "       obfuscate_passphrase C KEY PASSPHRASE\n");
      return 1;
    }
    std::printf("%s\n", text.c_str());
    return 0;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "obfuscate_passphrase: %s\n", e.what());
    return 2;
  }
}
