#include "lib/hardware/boot_environment.h"

#include <libuboot.h>

namespace corvo {

std::optional<std::string> StaticBootEnvironment::Get(const std::string& name) const {
  const auto it = m_values.find(name);
  if (it == m_values.end()) return std::nullopt;
  return it->second;
}

UbootBootEnvironment::UbootBootEnvironment(const char* config_path) {
  struct uboot_ctx* ctx = nullptr;
  if (libuboot_initialize(&ctx, nullptr) < 0) return;
  if (libuboot_read_config(ctx, config_path) == 0 && libuboot_open(ctx) == 0) {
    for (void* entry = libuboot_iterator(ctx, nullptr); entry != nullptr;
         entry = libuboot_iterator(ctx, entry)) {
      const char* name = libuboot_getname(entry);
      const char* value = libuboot_getvalue(entry);
      if (name != nullptr && value != nullptr) m_values.emplace(name, value);
    }
    libuboot_close(ctx);
  }
  libuboot_exit(ctx);
}

std::optional<std::string> UbootBootEnvironment::Get(const std::string& name) const {
  const auto it = m_values.find(name);
  if (it == m_values.end()) return std::nullopt;
  return it->second;
}

}  // namespace corvo
