#include "yinet/host/structured_value.h"

#include "yinet/host/text.h"

namespace yinet {
namespace {

constexpr std::size_t kNone = std::string_view::npos;

bool is_quoted(std::string_view text) { return text.size() >= 2 && text.front() == '"' && text.back() == '"'; }

// The quote that ends a text in double quotes which begins at `from`; a backslash takes the character behind it along.
std::size_t closing_quote(std::string_view text, std::size_t from) {
  for (std::size_t at = from; (at = text.find_first_of("\"\\", at)) != kNone; at += 2)
    if (text[at] == '"') return at;
  return kNone;
}

// Cuts at each `delimiter` that stands outside double quotes. A quote that is never closed is a character like any other.
std::vector<std::string_view> split_outside_quotes(std::string_view text, char delimiter) {
  std::vector<std::string_view> items;
  const char stops[] = {'"', delimiter};
  std::size_t start = 0;
  bool unclosed = false;
  for (std::size_t at = 0; (at = text.find_first_of(std::string_view(stops, 2), at)) != kNone; ++at) {
    if (text[at] == delimiter) {
      items.push_back(text.substr(start, at - start));
      start = at + 1;
    } else if (!unclosed) {
      const std::size_t close = closing_quote(text, at + 1);
      if (close == kNone) unclosed = true;
      else at = close;
    }
  }
  items.push_back(text.substr(start));
  return items;
}

}  // namespace

StructuredValue split_structured_value(std::string_view value, bool first_equals_splits) {
  StructuredValue result;
  const auto items = split_outside_quotes(value, ';');
  result.first = trimmed(items.front());
  for (std::size_t i = 1; i < items.size(); ++i) {
    const std::string_view item = items[i];
    std::vector<std::string_view> pieces;
    if (const std::size_t equals = item.find('='); first_equals_splits && equals != kNone) {
      pieces = {item.substr(0, equals), item.substr(equals + 1)};
    } else {
      pieces = split_outside_quotes(item, '=');
    }
    if (pieces.size() != 2) continue;
    std::string_view text = trimmed(pieces[1]);
    if (is_quoted(text)) text = text.substr(1, text.size() - 2);
    result.parameters.push_back({trimmed(pieces[0]), text});
  }
  return result;
}

}  // namespace yinet
