#pragma once

// libcurl's own objects with their owners, and its start-up.

#include <curl/curl.h>

#include <cstddef>
#include <memory>
#include <string>

#include "yinet/host/settings.h"

namespace yinet {

struct CurlListFree {
  void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};
using CurlList = std::unique_ptr<curl_slist, CurlListFree>;

struct CurlMultiFree {
  void operator()(CURLM* multi) const noexcept;
};
using CurlMulti = std::unique_ptr<CURLM, CurlMultiFree>;

// Does what curl_easy_perform does, with `multi` (may be null: out of memory) keeping the connections. libcurl 7.88 may
// already have read the reply it waits for, when a server's replies arrive together, and then waits for a socket that
// stays silent: for a second in curl_easy_perform, for the setting kTransferLookAgain here.
CURLcode run_transfer(CURLM* multi, CURL* handle);

// libcurl's global initialisation, done once per process and at the first question. It is never undone: a thread of the
// host may still be in libcurl when the process ends.
class LibcurlInitializer {
 public:
  [[nodiscard]] static bool succeeded();
};

// "longer than the setting ... allows", for the reader of an error.
std::string beyond_limit_text(const Setting& setting);

// Where write_to_text puts what libcurl hands over. A transfer that would go beyond the limit fails, and `reason` says so.
struct TextTarget {
  TextTarget(std::string& target, const Setting& limit_in_bytes, std::string& reason_for_failure);
  std::string& text;
  const Setting& setting;
  std::string& reason;
  std::size_t limit;
};
// A CURLOPT_WRITEFUNCTION or CURLOPT_HEADERFUNCTION for a TextTarget.
std::size_t write_to_text(char* bytes, std::size_t size, std::size_t count, void* target) noexcept;

}  // namespace yinet
