// Stored texts are made by the openssl command line at test time, so the
// recovery is checked against an encoder that shares no code with it.

#include "lib/platform/settings/passphrase_obfuscation.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

#include "lib/platform/base/hex.h"
#include "tests/unit/private_kernel_log.h"

namespace corvo {
namespace {

// The device's built-in key, kept here on its own: a change to the table in the
// library would make every stored "A" passphrase unreadable.
const std::string kBuiltInKeyHex =
    "00c3bbb5ff9b0b460db25a20ac83df8e2ec291097ea737726cf144c86e741bd5"
    "fdc1bb6bf05ec5f504d00934f3c52b2d131a16ec923a25835104852d69a80e07";

std::string BuiltInKey() {
  const auto bytes = HexDecode(kBuiltInKeyHex);
  return std::string(bytes.begin(), bytes.end());
}

// tag, hex(salt), hex(AES-256-CBC(plain)) with KEY||IV = SHA-384(salt || key).
std::string Obfuscate(char tag, const std::string& key, const std::string& plain, bool pad = true) {
  char dir[] = "/tmp/passphrase_test.XXXXXX";
  if (mkdtemp(dir) == nullptr) throw std::runtime_error("mkdtemp");
  std::ofstream(dir + std::string("/key"), std::ios::binary) << key;
  std::ofstream(dir + std::string("/plain"), std::ios::binary) << plain;
  const std::string hex = " | od -An -v -tx1 | tr -d ' \\n'";
  const std::string script = "cd " + std::string(dir) +
                             " && openssl rand 16 >salt && cat salt key | openssl dgst -sha384 "
                             "-binary >digest && openssl enc -aes-256-cbc" +
                             (pad ? "" : " -nopad") + " -K $(head -c32 digest" + hex +
                             ") -iv $(tail -c16 digest" + hex + ") -in plain | cat salt -" + hex;
  std::FILE* out = popen(script.c_str(), "r");
  std::string text(1, tag);
  for (int c; out && (c = std::fgetc(out)) != EOF;) text += static_cast<char>(c);
  const int status = out ? pclose(out) : -1;
  std::filesystem::remove_all(dir);
  if (status != 0 || text.size() < 65) throw std::runtime_error("openssl failed: " + script);
  return text;
}

std::function<std::string()> Provider(const std::string& key) {
  return [key] { return key; };
}

struct RecoverCase {
  std::string name;
  char tag;
  std::string key;  // empty: the built-in key
  std::string passphrase;
};

class PassphraseRecoverTest : public ::testing::TestWithParam<RecoverCase> {};

TEST_P(PassphraseRecoverTest, RecoversOpensslVector) {
  const RecoverCase& c = GetParam();
  const bool builtin = std::toupper(c.tag) == 'A';
  const std::string text = Obfuscate(c.tag, builtin ? BuiltInKey() : c.key, c.passphrase);
  std::string upper = text;
  std::transform(upper.begin(), upper.end(), upper.begin(), ::toupper);
  const auto provider = builtin ? std::function<std::string()>() : Provider(c.key);
  EXPECT_EQ(UnobfuscatePassphrase(text, provider), c.passphrase) << text;
  EXPECT_EQ(UnobfuscatePassphrase(upper, provider), c.passphrase) << upper;
}

INSTANTIATE_TEST_SUITE_P(
    Tags, PassphraseRecoverTest,
    ::testing::Values(RecoverCase{"BuiltIn", 'A', "", "correct horse battery staple"},
                      RecoverCase{"BuiltInLower", 'a', "", "x"},
                      RecoverCase{"WholeBlock", 'A', "", "0123456789abcdef"},
                      RecoverCase{"Longest", 'A', "", std::string(63, 'p')},
                      RecoverCase{"Customer", 'C', "customer secret", "pass phrase"},
                      RecoverCase{"CustomerLower", 'c', "k\xc3\xa9y", "p\xc3\xa4ss"},
                      RecoverCase{"CustomerEmptyKey", 'C', "", "salt only"}),
    [](const ::testing::TestParamInfo<RecoverCase>& param_info) { return param_info.param.name; });

std::string Failure(const std::string& text, const std::function<std::string()>& provider) {
  try {
    return "returned " + UnobfuscatePassphrase(text, provider);
  } catch (const std::runtime_error& e) {
    return e.what();
  }
}

TEST(PassphraseTest, RejectsMalformedTexts) {
  const std::string salt(32, 'a');
  const std::string block(32, '0');
  const auto key = Provider("k");
  EXPECT_EQ(Failure("", key), "Insufficient input for UnobfuscatePassphrase");
  EXPECT_EQ(Failure("A" + salt.substr(0, 15), key), "Insufficient input for UnobfuscatePassphrase");
  EXPECT_EQ(Failure("B" + salt + block, key), "Unknown obfuscation algorithm");
  EXPECT_EQ(Failure("C" + salt + block, nullptr), "Customer obfuscation key unavailable");
  EXPECT_EQ(Failure("A" + salt + block + "0", key), "Invalid hexadecimal string length");
  EXPECT_EQ(Failure("A" + salt + block.substr(2) + "0g", key), "Invalid hexadecimal digit");
  EXPECT_EQ(Failure("A" + salt.substr(2) + "x1" + block, key), "Invalid hexadecimal digit");
  // Not whole AES blocks: libgcrypt's own words.
  EXPECT_EQ(Failure("A" + salt + block.substr(2), key), "Invalid length");
  // No ciphertext at all has no padding length to read.
  EXPECT_EQ(Failure("A" + salt, key), "Input is not correctly encrypted");
}

// No integrity check beyond the padding length: a wrong key may also just garble.
TEST(PassphraseTest, BadPaddingFailsAndAWrongKeyFailsOrGarbles) {
  const std::string bad = Obfuscate('C', "key", std::string(15, 'p') + '\x11', false);
  EXPECT_EQ(Failure(bad, Provider("key")), "Input is not correctly encrypted");
  const std::string text = Obfuscate('C', "right key", "the passphrase");
  const std::string result = Failure(text, Provider("wrong key"));
  if (result != "Input is not correctly encrypted") {
    EXPECT_EQ(result.rfind("returned ", 0), 0u) << result;
    EXPECT_NE(result, "returned the passphrase");
  }
}

// A salt field cut short by the end of the text stops the process by design.
TEST(PassphraseDeathTest, ShortSaltFieldAborts) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const std::size_t length : {17, 18, 31, 32}) {
    const std::string text = "A" + std::string(length - 1, 'a');
    EXPECT_DEATH((KeepKernelLogPrivate(), UnobfuscatePassphrase(text, nullptr)),
                 "User space assert from process [0-9]+: lib/platform/passphrase_obfuscation:"
                 "[0-9]+: .*Assertion `salt_size == SALT_SIZE' failed")
        << length;
  }
  EVP::Cipher cipher(9, 3);
  const std::uint8_t salt[8] = {};
  EXPECT_DEATH(
      (KeepKernelLogPrivate(), ConfigureCipherFromSalt(cipher, salt, sizeof salt, nullptr, 0)),
      "LHS: salt_size = 8\nRHS: SALT_SIZE = 16\n.*`salt_size==SALT_SIZE'");
}

// Encoding and decoding otherwise are the passphrase and WiFi key tests'.
TEST(HexTest, DecodingIntoATooSmallBufferThrows) {
  std::uint8_t out[2];
  EXPECT_THROW(HexDecode("001122", out, sizeof out), std::runtime_error);
}

}  // namespace
}  // namespace corvo
