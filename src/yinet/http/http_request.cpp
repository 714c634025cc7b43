#include "yinet/http/http_request.h"

#include <array>
#include <cstdio>

#include "yinet/host/text.h"
#include "yinet/host/yobject.h"
#include "yinet/http/http.h"
#include "yinet/http/http_message.h"
#include "yinet/http/http_response.h"

namespace yinet {
namespace {

// "Sun, 06 Nov 1994 08:49:37 GMT" (RFC 9110, section 5.6.7).
std::string http_date(std::chrono::sys_seconds time) {
  constexpr std::array<const char*, 7> kWeekdays = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  constexpr std::array<const char*, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(time - day);
  std::array<char, 128> text{};
  const int length = std::snprintf(text.data(), text.size(), "%s, %02u %s %04d %02d:%02d:%02d GMT",
                                   kWeekdays[std::chrono::weekday(day).c_encoding()], static_cast<unsigned>(date.day()),
                                   kMonths[static_cast<unsigned>(date.month()) - 1], static_cast<int>(date.year()),
                                   static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                                   static_cast<int>(clock.seconds().count()));
  return {text.data(), static_cast<std::size_t>(length)};
}

std::string_view method_word(EREQUST_TYPE method) {
  if (method == EREQUST_TYPE::get) return "GET";
  if (method == EREQUST_TYPE::post) return "POST";
  return "";
}

template <typename Visit>  // visit(name, value) for every cookie, in the order of arrival
void for_each_cookie(const YObject* cookies, Visit visit) {
  if (!cookies) return;
  const int count = cookies->GetStringKeyCount();
  for (int i = 0; i < count; ++i)
    if (const auto* cookie = cookies->FindAt<YObject>(i))
      visit(cookies->GetStringKey(i), cookie->GetString(kCookieValue));
}

}  // namespace

std::string request_head_text(const RequestHead& head) {
  std::string text(method_word(head.method));
  text += formatted(
      " $1$ HTTP/1.1\r\nHOST:$2$\r\nUSER-AGENT:$3$\r\nCache-Control: no-cache\r\nDate:$4$\r\nAccept:*/*\r\n",
      head.path.empty() ? std::string_view("/") : head.path, head.host, head.user_agent, http_date(head.time));
  for_each_cookie(head.cookies, [&text](const YString& name, const YString& value) {
    text += formatted("COOKIE: $1$=$2$\r\n", name, value);
  });
  if (head.method == EREQUST_TYPE::post) {
    text += formatted("Content-Length:$1$\r\n", std::to_string(head.content_length));
    text += formatted("Content-Type:$1$\r\n",
                      head.content_type.empty() ? std::string_view("text/plain") : head.content_type);
  }
  if (head.fields) text += field_lines(*head.fields).value_or("");
  return text += "\r\n";
}

std::optional<std::string> line_breaking_value(const RequestHead& head) {
  for (const std::string_view value : {head.host, head.path, head.user_agent})
    if (breaks_protocol_line(value)) return std::string(value);
  if (head.method == EREQUST_TYPE::post && breaks_protocol_line(head.content_type))
    return std::string(head.content_type);
  std::optional<std::string> broken;
  for_each_cookie(head.cookies, [&broken](const YString& name, const YString& value) {
    if (!broken && (breaks_protocol_line(name) || breaks_protocol_line(value))) broken = name.str();
  });
  for (int i = 0; head.fields && !broken && i < head.fields->GetStringKeyCount(); ++i) {
    const YString name = head.fields->GetStringKey(i);
    if (breaks_protocol_line(name) || breaks_protocol_line(head.fields->GetString(name))) broken = name.str();
  }
  return broken;
}

}  // namespace yinet
