#include "yinet/http/http_message.h"

#include <algorithm>

#include "yinet/host/text.h"
#include "yinet/host/yobject.h"

namespace yinet {
namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::size_t kNone = std::string_view::npos;

std::string query_text(std::string_view escaped) {
  std::string text(escaped);
  std::replace(text.begin(), text.end(), '+', ' ');  // before the escapes: "%2B" is a plus
  return percent_decoded(text);
}

void store_field(std::string_view name, std::optional<std::string_view> value, YObject& fields) {
  if (!fields.Exist(name)) {
    if (value) fields.StoreText(name, *value);
    else fields.Set(name, kTypeAny, nullptr, 0);
  } else if (value) {
    YString& joined = fields.Ensure<YString>(name);  // a key without a value counts as an empty first item
    joined += YString::kItemDelimiter;
    joined += *value;
  }
}

}  // namespace

std::optional<MessageHalves> split_message(std::string_view message) {
  if (message.empty()) return std::nullopt;
  if (message.front() == '\r' || message.front() == '\n')
    return MessageHalves{{}, message.substr(message.starts_with(kLineEnd) ? 2 : 1)};
  for (std::size_t end = 0; (end = message.find('\n', end)) != kNone; ++end) {
    const std::string_view header = message.substr(0, end + 1);
    const std::string_view rest = message.substr(end + 1);
    if (rest.starts_with('\n')) return MessageHalves{header, rest.substr(1)};
    if (header.ends_with(kLineEnd) && rest.starts_with(kLineEnd)) return MessageHalves{header, rest.substr(2)};
  }
  return std::nullopt;
}

bool parse_field_lines(std::string_view block, YObject& fields) {
  while (!block.empty()) {
    const std::size_t end = std::min(block.find_first_of(kLineEnd), block.size());
    const std::string_view line = block.substr(0, end);
    block.remove_prefix(std::min(end + 1, block.size()));
    if (line.empty()) continue;
    const std::size_t colon = line.find(':');
    const std::string_view name = trimmed(line.substr(0, colon));
    if (name.empty()) return false;
    if (colon == kNone) store_field(name, std::nullopt, fields);
    else store_field(name, trimmed(line.substr(colon + 1)), fields);
  }
  return true;
}

std::optional<std::string> field_lines(const YObject& fields) {
  std::string block;
  for (int i = 0; i < fields.GetStringKeyCount(); ++i) {
    const YString name = fields.GetStringKey(i);
    const YString value = fields.GetString(name);
    if (breaks_protocol_line(name) || breaks_protocol_line(value)) return std::nullopt;
    block += name;
    if (fields.GetType(name) != kTypeAny) block.append(":").append(value);
    block += kLineEnd;
  }
  return block;
}

bool for_each_query_pair(std::string_view query, const std::function<bool(std::string, std::string)>& on_pair) {
  while (!query.empty()) {
    const std::size_t end = std::min(query.find('&'), query.size());
    const std::string_view pair = query.substr(0, end);
    query.remove_prefix(std::min(end + 1, query.size()));
    if (pair.empty()) continue;
    const std::size_t equals = std::min(pair.find('='), pair.size());
    if (!on_pair(query_text(pair.substr(0, equals)), query_text(pair.substr(std::min(equals + 1, pair.size())))))
      return false;
  }
  return true;
}

}  // namespace yinet
