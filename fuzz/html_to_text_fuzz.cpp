// HTML to text: no tag that was closed is left, nothing grows, and the stages agree with a plain reading of them.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "yinet/host/text.h"
#include "yinet/mime/html_to_text.h"

namespace {

// In lower case, and without character references.
std::string lower_text_without_tags_by_stages(std::string_view html) {
  std::string text = yinet::replaced(yinet::replaced(yinet::to_lower(html), "&nbsp;", " "), "<br>", "\r\n");
  for (std::size_t at = 0, end = 0; (at = text.find('<', at)) != text.npos && (end = text.find('>', at)) != text.npos;)
    text.erase(at, end + 1 - at);
  while (text.starts_with("\r\n")) text.erase(0, 2);
  return text;
}

void check(const std::string& html) {
  const std::string text = yinet::html_to_text(html);
  if (text.size() > html.size()) std::abort();
  // Without "&" there are no character references to tell apart.
  if (html.size() > 8192 || html.find('&') != std::string::npos) return;
  if (yinet::to_lower(text) != lower_text_without_tags_by_stages(html)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  check(input);

  std::string mapped;
  constexpr std::string_view kLikely[] = {"<",  ">",     "<br>",   "<b",    "x", "\r\n",
                                          "&#", "auml;", "&nbsp;", "8364;", "&", " "};
  for (const char c : input) mapped += kLikely[static_cast<unsigned char>(c) % std::size(kLikely)];
  check(mapped);

  std::string tags_only = mapped;
  std::erase(tags_only, '&');
  check(tags_only);
  return 0;
}
