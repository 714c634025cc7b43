#include "yinet/filetransfer/curl_library.h"

#include <algorithm>

namespace yinet {

bool LibcurlInitializer::succeeded() {
  static const bool initialized = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  return initialized;
}

std::size_t write_to_text(char* bytes, std::size_t size, std::size_t count, void* target) noexcept {
  const auto& [text, limit] = *static_cast<TextTarget*>(target);
  const std::size_t length = size * count;
  if (length > limit - std::min(limit, text.size())) return 0;
  try {
    text.append(bytes, length);
  } catch (...) {
    return 0;
  }
  return length;
}

}  // namespace yinet
