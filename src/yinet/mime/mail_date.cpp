#include "yinet/mime/mail_date.h"

#include <curl/curl.h>

#include <cstdint>
#include <string>

namespace yinet {

YDateAndTime parse_mail_date(std::string_view text) {
  constexpr std::size_t kLongestDate = 200;
  YDateAndTime result;
  if (text.empty() || text.size() > kLongestDate) return result;
  const std::int64_t seconds = curl_getdate(std::string(text).c_str(), nullptr);
  if (seconds != -1) result.SetEpochMilliseconds(seconds * 1000);
  return result;
}

}  // namespace yinet
