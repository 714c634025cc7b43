#include "yinet/mime/fold_lines.h"

#include <algorithm>
#include <cstring>

namespace yinet {

namespace {

constexpr std::size_t kFoldColumn = 76;   // a fold is due beyond this column
constexpr std::size_t kHardColumn = 998;  // RFC 5322, 2.1.1: no line may be longer
constexpr std::string_view kLineEnd = "\r\n";

constexpr bool is_fold_blank(char c) { return c == ' ' || c == '\t'; }

// The text as it changes while it is folded is `out_` followed by `rest_`; the scan always stands where they meet.
//
// A fold rewrites the text from the last space on. That space lies behind the place of the fold before (each fold forgets
// the spaces it has seen), so no part of the text is moved twice and the cost stays linear.
class Folder {
 public:
  explicit Folder(std::string_view text) : rest_(text) { out_.reserve(text.size() + text.size() / 32 + 16); }

  std::string run() {
    while (!rest_.empty()) {
      if (column_ <= kFoldColumn) scan_ahead();
      else break_or_pass();
    }
    return std::move(out_);
  }

 private:
  // Below the fold column: on to the line end or to the column where a fold may be due, whichever comes first.
  void scan_ahead() {
    const std::string_view window = rest_.substr(0, kFoldColumn + 1 - column_);
    const std::size_t line_end = find_line_end(window);
    const std::string_view line = window.substr(0, line_end);
    if (const std::size_t space = line.rfind(' '); space != std::string_view::npos) last_space_ = out_.size() + space;
    pass(line);
    if (line_end != std::string_view::npos) pass_line_end();
  }

  // Beyond the fold column.
  void break_or_pass() {
    if (rest_.starts_with(kLineEnd)) {
      pass_line_end();
      return;
    }
    if (rest_.front() == ' ') last_space_ = out_.size();
    if (last_space_ > 0) {
      fold();
    } else if (column_ == kHardColumn) {
      out_.append(kLineEnd);
      column_ = 1;  // the scan goes on at the line feed just inserted, which counts
    } else {
      pass_unbreakable();
    }
  }

  // No space so far: on to the next one, to the line end or to the hard column.
  void pass_unbreakable() {
    const std::string_view window = rest_.substr(0, kHardColumn - column_);
    const std::string_view line = window.substr(0, find_line_end(window));
    pass(line.substr(0, line.find(' ')));
  }

  void fold() {
    const std::size_t here = out_.size();
    std::size_t head = last_space_;  // what stays before the break
    while (head > 0 && is_fold_blank(out_[head - 1])) --head;
    std::size_t tail = last_space_;  // what follows it
    while (tail < here && is_fold_blank(out_[tail])) ++tail;
    if (tail == here) {  // the blanks reach beyond the scan
      std::size_t blanks = 0;
      while (blanks < rest_.size() && is_fold_blank(rest_[blanks])) ++blanks;
      rest_.remove_prefix(blanks);
    }
    out_.replace(head, tail - head, kLineEnd);
    // The scan goes on at the next index, whatever character has come to stand there by now.
    column_ = 0;
    last_space_ = 0;
    const std::size_t next = here + 1;
    if (next < out_.size()) {
      column_ = 1;  // it is the line feed just inserted, which counts
    } else {
      take(next - out_.size());
    }
  }

  std::size_t find_line_end(std::string_view window) const {
    for (std::size_t at = window.find('\r'); at != std::string_view::npos; at = window.find('\r', at + 1))
      if (at + 1 < rest_.size() && rest_[at + 1] == '\n') return at;
    return std::string_view::npos;
  }

  void pass(std::string_view characters) {
    column_ += characters.size();
    take(characters.size());
  }
  void pass_line_end() {
    column_ = 1;  // the carriage return counts, and the line feed will
    take(1);
  }
  void take(std::size_t count) {
    count = std::min(count, rest_.size());
    out_.append(rest_.substr(0, count));
    rest_.remove_prefix(count);
  }

  std::string out_;
  std::string_view rest_;
  std::size_t column_ = 0;
  std::size_t last_space_ = 0;  // index in the changing text; 0: none
};

}  // namespace

std::string fold_lines(std::string_view text) { return Folder(text).run(); }

}  // namespace yinet
