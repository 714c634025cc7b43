#include "yinet/mime/part_layout.h"

#include <algorithm>
#include <string>

#include "yinet/host/text.h"
#include "yinet/mime/byte_search.h"

namespace yinet {
namespace {

constexpr std::size_t kNone = std::string_view::npos;

std::size_t find_blank_line(std::string_view text, std::size_t start, MailDecodeState& state) {
  if (start >= state.blank_line_from && start <= state.blank_line_at) return state.blank_line_at;
  const std::size_t found = std::min(find_bytes(text, "\r\n\r\n", start), text.size());
  state.budget->search_left -= static_cast<std::int64_t>(found - start);
  state.blank_line_from = start;
  state.blank_line_at = found;
  return found;
}

}  // namespace

std::size_t BoundarySearch::next(std::size_t from) const {
  const bool is_known = last_.boundary == boundary_ && last_.end == text_.size() && from <= last_.at;
  if (is_known && from >= last_.from) return last_.at;
  std::size_t at = search(from, is_known ? last_.from + boundary_.size() - 1 : kNone);
  if (is_known && at == kNone) at = last_.at;
  last_ = {std::string(boundary_), from, text_.size(), at};
  return at;
}

std::size_t BoundarySearch::close(std::size_t from) const {
  const std::string wanted = "--" + std::string(boundary_) + "--";
  for (std::size_t at = from;; at += 2) {
    at = find(wanted, at);
    if (at == kNone || !budget_.readable || is_delimiter(at + 2)) return at;
  }
}

std::size_t BoundarySearch::last_delimiter(std::size_t first) const {
  const std::string wanted = "--" + std::string(boundary_);
  std::size_t last = kNone;
  for (std::size_t at = find(wanted, first + boundary_.size() + 2); at != kNone;
       at = find(wanted, at + 4 + boundary_.size())) {
    last = at;
  }
  return last;
}

std::size_t BoundarySearch::part_start(std::size_t at) const {
  std::size_t start = at + boundary_.size() + 2;
  if (budget_.readable) {  // blanks may follow the boundary on its line
    const std::size_t line_end = find("\r\n", at + boundary_.size());
    start = line_end == kNone ? text_.size() : line_end + 2;
  }
  return std::min(start, text_.size());
}

bool BoundarySearch::closes(std::size_t at) const { return text_.substr(at + boundary_.size()).starts_with("--"); }

std::size_t BoundarySearch::part_end(std::size_t body_start) const {
  const std::size_t at = next(body_start);
  return at == kNone ? kNone : std::max(at, body_start + 2) - 2;
}

std::size_t BoundarySearch::search(std::size_t from, std::size_t limit) const {
  for (std::size_t at = from;; ++at) {
    at = find(boundary_, at, limit);
    if (at == kNone || !budget_.readable || is_delimiter(at)) return at;
  }
}

std::size_t BoundarySearch::find(std::string_view what, std::size_t from, std::size_t limit) const {
  const std::string_view text = text_.substr(0, limit);
  const std::size_t at = find_bytes(text, what, from);
  const std::size_t walked = std::min(at, text.size()) - std::min(from, text.size());
  budget_.search_left -= static_cast<std::int64_t>(walked + 16 + (at == kNone ? 0 : what.size()));
  return at;
}

bool BoundarySearch::is_delimiter(std::size_t at) const {
  if (at < 2 || text_.substr(at - 2, 2) != "--" || !at_line_start(at - 2)) return false;
  // More than blanks: the delimiter of another boundary, which begins like this one.
  std::string_view behind = text_.substr(at + boundary_.size());
  if (behind.starts_with("--")) behind.remove_prefix(2);
  const std::size_t other = behind.find_first_not_of(" \t");
  return other == kNone || behind[other] == '\r' || behind[other] == '\n';
}

PartLayout lay_out(std::string_view text, std::size_t start, std::string_view parent_boundary, MailDecodeState& state) {
  PartLayout layout;
  if (!state.last_line_end) state.last_line_end = text.rfind("\r\n");
  const bool has_line = *state.last_line_end != kNone && start <= *state.last_line_end;
  const bool is_bare = !has_line || text.substr(start).starts_with("\r\n");
  if (start != 0 && (is_bare || state.budget->headers_left <= 0)) {
    layout.has_header = false;
    layout.body_start = is_bare ? std::min(start + 2, text.size()) : start;
    return layout;
  }
  const std::size_t blank_line = find_blank_line(text, start, state);
  layout.header_start = start;
  // Without a blank line the part is all header.
  const bool found = blank_line < text.size();
  layout.header_end = found ? blank_line + 2 : text.size();
  layout.body_start = found ? blank_line + 4 : text.size();
  if (!parent_boundary.empty()) {
    // A header ends at the latest where the next part begins, which may be at once.
    const std::string delimiter = "\r\n--" + std::string(parent_boundary);
    const std::string_view header = text.substr(0, layout.header_end);
    if (const std::size_t at = find_bytes(header, delimiter, start - std::min<std::size_t>(start, 2)); at != kNone) {
      layout.header_end = layout.body_start = at + 2;
    }
  }
  layout.header_end = std::min(layout.header_end, state.end);
  layout.body_start = std::min(layout.body_start, state.end);
  if (start == 0 && text.starts_with('+')) {  // a status line of the server left in front
    const std::size_t line_end = find_bytes(text, "\r\n", 0);
    layout.header_start = line_end == kNone ? 0 : std::min(line_end + 2, layout.header_end);
  }
  return layout;
}

}  // namespace yinet
