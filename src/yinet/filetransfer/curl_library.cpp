#include "yinet/filetransfer/curl_library.h"

#include <algorithm>

#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/net/sigpipe_guard.h"

namespace yinet {

bool LibcurlInitializer::succeeded() {
  static const bool initialized = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  return initialized;
}

void CurlMultiFree::operator()(CURLM* multi) const noexcept {
  const SigpipeGuard no_sigpipe;  // closing connections writes to them
  curl_multi_cleanup(multi);
}

CURLcode run_transfer(CURLM* multi, CURL* handle) {
  if (curl_multi_add_handle(multi, handle) != CURLM_OK) return CURLE_OUT_OF_MEMORY;
  const int look_again_ms = setting_int(settings::kTransferLookAgain);
  int running = 1;
  CURLMcode step = CURLM_OK;
  while (step == CURLM_OK && running > 0) {
    step = curl_multi_perform(multi, &running);
    if (step == CURLM_OK && running > 0) step = curl_multi_poll(multi, nullptr, 0, look_again_ms, nullptr);
  }
  CURLcode result = step == CURLM_OUT_OF_MEMORY ? CURLE_OUT_OF_MEMORY : CURLE_FAILED_INIT;
  int left = 0;
  while (const CURLMsg* const done = curl_multi_info_read(multi, &left)) {
    if (done->msg == CURLMSG_DONE) result = done->data.result;
  }
  curl_multi_remove_handle(multi, handle);
  return result;
}

std::string beyond_limit_text(const Setting& setting) {
  return formatted("longer than \"$1$\"/\"$2$\" allows", setting.section, setting.name);
}

TextTarget::TextTarget(std::string& target, const Setting& limit_in_bytes, std::string& reason_for_failure)
    : text(target),
      setting(limit_in_bytes),
      reason(reason_for_failure),
      limit(static_cast<std::size_t>(setting_number(setting))) {}

std::size_t write_to_text(char* bytes, std::size_t size, std::size_t count, void* context) noexcept {
  TextTarget& target = *static_cast<TextTarget*>(context);
  const std::size_t length = size * count;
  try {
    if (length > target.limit - std::min(target.limit, target.text.size())) {
      target.reason = beyond_limit_text(target.setting);
      return 0;
    }
    target.text.append(bytes, length);
  } catch (...) {
    return 0;
  }
  return length;
}

}  // namespace yinet
