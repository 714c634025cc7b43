#pragma once

// libcurl's own objects with their owners, and its start-up.

#include <curl/curl.h>

#include <memory>

namespace yinet {

struct CurlListFree {
  void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};
using CurlList = std::unique_ptr<curl_slist, CurlListFree>;

// libcurl's global initialisation, done once per process and at the first question. It is never undone: a thread of the
// host may still be in libcurl when the process ends.
class LibcurlInitializer {
 public:
  [[nodiscard]] static bool succeeded();
};

}  // namespace yinet
