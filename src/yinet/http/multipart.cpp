#include "yinet/http/multipart.h"

#include <algorithm>
#include <optional>
#include <string>

#include "yinet/host/text.h"
#include "yinet/http/http_message.h"

namespace yinet {
namespace {

constexpr std::size_t kNone = std::string_view::npos;
constexpr std::size_t kLongestBoundary = 70;  // and so a search never looks at a byte more often than that

struct Delimiter {
  std::size_t start;  // of its line
  std::size_t next;   // position behind it; its line end belongs to it
  bool closing;
};

// Finds lines of one boundary.
class DelimiterSearch {
 public:
  DelimiterSearch(std::string_view body, std::string_view boundary)
      : body_(body), marker_("\n--" + std::string(boundary)) {}

  // The first delimiter whose line begins at or after `from`, the position behind a line end.
  [[nodiscard]] std::optional<Delimiter> find(std::size_t from) const {
    if (from == 0 && body_.starts_with(std::string_view(marker_).substr(1)))
      if (const auto found = delimiter_at(0)) return found;
    for (std::size_t at = from == 0 ? 0 : from - 1; (at = body_.find(marker_, at)) != kNone; ++at)
      if (const auto found = delimiter_at(at + 1)) return found;
    return std::nullopt;
  }

 private:
  // Nothing for a longer boundary that begins like ours.
  [[nodiscard]] std::optional<Delimiter> delimiter_at(std::size_t start) const {
    std::string_view rest = body_.substr(start + marker_.size() - 1);
    if (rest.starts_with("--")) return Delimiter{start, body_.size(), true};
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    if (!trimmed(rest.substr(0, end)).empty()) return std::nullopt;
    return Delimiter{start, std::min(body_.size() - rest.size() + end + 1, body_.size()), false};
  }

  std::string_view body_;
  std::string marker_;
};

std::string_view without_line_end(std::string_view text) {
  if (text.ends_with('\n')) text.remove_suffix(1);
  if (text.ends_with('\r')) text.remove_suffix(1);
  return text;
}

}  // namespace

bool for_each_part(std::string_view body, std::string_view boundary,
                   const std::function<bool(std::string_view header, std::string_view content)>& on_part) {
  if (boundary.empty() || boundary.size() > kLongestBoundary) return false;
  const DelimiterSearch search(body, boundary);
  for (auto delimiter = search.find(0); delimiter && !delimiter->closing;) {
    const auto next = search.find(delimiter->next);
    if (!next) return false;
    const std::string_view part = without_line_end(body.substr(delimiter->next, next->start - delimiter->next));
    const auto halves = split_message(part);
    if (!on_part(halves ? halves->header : part, halves ? halves->body : std::string_view())) return false;
    if (next->closing) return true;
    delimiter = next;
  }
  return false;
}

}  // namespace yinet
