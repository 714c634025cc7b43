// Header blocks: logical lines beside a plain reading of them, and fields that hold no more than stood in the block.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "yinet/host/structured_value.h"
#include "yinet/host/text.h"
#include "yinet/mime/header_decoding.h"
#include "yinet/mime/ymime_message.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

class OpenMessage : public YMIMEMessage {
 public:
  using YMIMEMessage::m_DecodeHeader;
};

// Line by line: blanks continue the line before, an empty line is passed over once, the rest without CRLF does not count.
std::vector<std::string> plainly_unfolded(std::string_view header) {
  std::vector<std::string> lines;
  std::string pending;
  while (true) {
    const std::size_t end = header.find("\r\n");
    if (end == std::string_view::npos || end == 0) {
      // Only the first line of all can be empty here; it ends the block.
      break;
    }
    const std::string line(header.substr(0, end));
    header.remove_prefix(end + 2);
    if (header.starts_with("\r\n")) header.remove_prefix(2);
    if (line[0] == ' ' || line[0] == '\t') {
      pending += (pending.empty() ? "" : " ") + std::string(yinet::trimmed(line));
    } else {
      if (!pending.empty()) lines.push_back(pending);
      pending = line;
    }
  }
  if (!pending.empty()) lines.push_back(pending);
  return lines;
}

void check(const std::string& header) {
  std::vector<std::string> lines;
  bool ended = false;
  yinet::unfold_header(header, [&](std::string_view line, bool is_last) {
    require(!ended && !line.empty());
    ended = is_last;
    lines.emplace_back(line);
  });
  // Two empty lines in a row, which no block has, end the line before them without its being the last.
  if (!header.starts_with("\r\n") && header.find("\r\n\r\n\r\n") == std::string::npos)
    require(ended != lines.empty() && lines == plainly_unfolded(header));

  for (const bool first_equals : {false, true}) {
    const auto value = yinet::split_structured_value(header, first_equals);
    std::size_t total = value.first.size();
    for (const auto& parameter : value.parameters) total += parameter.name.size() + parameter.value.size();
    require(total <= header.size());
  }

  YObject record;
  YString text(header);
  OpenMessage().m_DecodeHeader(&record, text);
  std::size_t total = 0;
  for (int i = 0; i < record.GetStringKeyCount(); ++i) {
    const YString key = record.GetStringKey(i);
    require(key.IsEmpty() || record.FindAt<YString>(i) != nullptr);
    total += record.GetString(key).str().size();
  }
  // A content header stands there whole, in halves and in parameters.
  require(total <= 3 * header.size() + static_cast<std::size_t>(record.GetStringKeyCount()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  check(input);
  static constexpr std::string_view kLikely[] = {"Content-Type: ",
                                                 "Content-Disposition: ",
                                                 "To: ",
                                                 "A: ",
                                                 "\r\n",
                                                 "\r\n",
                                                 "\r\n ",
                                                 "\t",
                                                 ";",
                                                 "=",
                                                 "\"",
                                                 "\\",
                                                 "name*0*=",
                                                 "filename*=utf-8''",
                                                 "%C3%A4",
                                                 "charset",
                                                 "/",
                                                 ":",
                                                 "x",
                                                 "=?utf-8?Q?a?=",
                                                 "\r",
                                                 "\n"};
  std::string mapped;
  for (const char c : input) mapped += kLikely[static_cast<unsigned char>(c) % std::size(kLikely)];
  check(mapped);
  return 0;
}
