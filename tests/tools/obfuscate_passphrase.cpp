// Prints the stored form of a passphrase under the built-in key, as the registry keeps it in
// "wp": obfuscate_passphrase A PASSPHRASE

#include <cstdio>
#include <exception>
#include <string>

#include "lib/platform/settings/passphrase_obfuscation.h"
#include "tests/support/passphrase_obfuscator.h"

int main(int argc, char** argv) {
  if (argc != 3 || std::string(argv[1]) != "A") {
    std::fprintf(stderr, "usage: obfuscate_passphrase A PASSPHRASE\n");
    return 1;
  }
  try {
    const std::string key = corvo::BuiltInObfuscationKey();
    std::puts(corvo::test::ObfuscatePassphrase('A', key, argv[2]).c_str());
    return 0;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "obfuscate_passphrase: %s\n", e.what());
    return 2;
  }
}
