#include "apps/linkrig/settings_set.h"

#include <algorithm>
#include <cstdint>
#include <tuple>

#include "lib/platform/base/hex.h"
#include "lib/platform/settings/evp_cipher.h"
#include "lib/platform/settings/gcrypt_library.h"

namespace corvo {

bool operator==(const Reading& a, const Reading& b) {
  return std::tie(a.section, a.key, a.value) == std::tie(b.section, b.key, b.value);
}

bool operator<(const Reading& a, const Reading& b) {
  return std::tie(a.section, a.key, a.value) < std::tie(b.section, b.key, b.value);
}

std::string ReadingSettings::Read(const std::string& section, const std::string& key) {
  std::string value = m_below.Read(section, key);
  const bool known = std::any_of(m_readings.begin(), m_readings.end(), [&](const Reading& r) {
    return r.section == section && r.key == key;
  });
  if (!known) m_readings.push_back({section, key, value});
  return value;
}

std::string KeptSettings::Read(const std::string& section, const std::string& key) {
  for (const Reading& reading : m_readings) {
    if (reading.section == section && reading.key == key) return reading.value;
  }
  return {};
}

namespace {

// Each field with its length before it, so that no two sets hash the same text.
void Feed(gcry_md_hd_t md, const std::string& field) {
  const std::uint32_t size = static_cast<std::uint32_t>(field.size());
  const unsigned char length[4] = {static_cast<unsigned char>(size >> 24),
                                   static_cast<unsigned char>(size >> 16),
                                   static_cast<unsigned char>(size >> 8),
                                   static_cast<unsigned char>(size)};
  Gcrypt().md_write(md, length, sizeof length);
  Gcrypt().md_write(md, field.data(), field.size());
}

}  // namespace

std::string Fingerprint(const std::vector<Reading>& readings) {
  // A key read as empty is not stored: whether a run asked for it changes nothing.
  std::vector<Reading> sorted;
  for (const Reading& reading : readings) {
    if (!reading.value.empty()) sorted.push_back(reading);
  }
  std::sort(sorted.begin(), sorted.end());
  sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
  EnsureGcryptInitialised();
  gcry_md_hd_t md = nullptr;
  const gcry_error_t error = Gcrypt().md_open(&md, GCRY_MD_SHA256, 0);
  if (error) throw GcryptError(error);
  for (const Reading& reading : sorted) {
    Feed(md, reading.section);
    Feed(md, reading.key);
    Feed(md, reading.value);
  }
  const unsigned char* digest = Gcrypt().md_read(md, GCRY_MD_SHA256);
  std::string text = HexEncode(digest, Gcrypt().md_get_algo_dlen(GCRY_MD_SHA256));
  Gcrypt().md_close(md);
  return text;
}

}  // namespace corvo
