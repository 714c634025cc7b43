// Settings files: either an error with its line and nothing else, or entries with section and name.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "yinet/host/settings.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto parsed = yinet::parse_settings(std::string_view(reinterpret_cast<const char*>(data), size));
  if (!parsed.error.empty()) {
    if (!parsed.entries.empty() || !parsed.error.starts_with("line ")) std::abort();
    return 0;
  }
  for (const auto& [section, name, value] : parsed.entries)
    if (section.empty() || name.empty() || value.find('\n') != std::string::npos) std::abort();
  return 0;
}
