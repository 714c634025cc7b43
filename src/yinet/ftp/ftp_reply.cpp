#include "yinet/ftp/ftp_reply.h"

#include "yinet/host/text.h"

namespace yinet {
namespace {

constexpr std::size_t kCodeDigits = 3;

// The code at the start of a line and what follows it: '-' for the first line of several, ' ' for a last one (a bare code
// counts as one). Empty for any other line.
struct CodeLine {
  std::string_view code;
  bool last = false;
};

std::optional<CodeLine> code_line(std::string_view line) {
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
  if (line.size() < kCodeDigits) return std::nullopt;
  for (std::size_t i = 0; i < kCodeDigits; ++i)
    if (!is_digit(line[i])) return std::nullopt;
  if (line.size() == kCodeDigits || line[kCodeDigits] == ' ') return CodeLine{line.substr(0, kCodeDigits), true};
  if (line[kCodeDigits] == '-') return CodeLine{line.substr(0, kCodeDigits), false};
  return std::nullopt;
}

}  // namespace

void FtpReplyReader::feed(std::string_view bytes) {
  if (begin_ > 0) {  // what was handed out goes, so that a long dialogue does not pile up
    text_.erase(0, begin_);
    scanned_ -= begin_;
    searched_ -= begin_;
    if (reply_end_) *reply_end_ -= begin_;
    begin_ = 0;
  }
  text_.append(bytes);
  scan();
}

void FtpReplyReader::scan() {
  while (!rest_has_code_) {
    const std::size_t line_feed = text_.find('\n', searched_);
    if (line_feed == std::string::npos) {
      searched_ = text_.size();
      return;
    }
    const std::size_t end = line_feed + 1;
    look_at_line(std::string_view(text_).substr(scanned_, end - scanned_), end);
    scanned_ = searched_ = end;
  }
}

void FtpReplyReader::look_at_line(std::string_view line, std::size_t end) {
  const auto found = code_line(line);
  if (!found) return;
  if (reply_end_) {
    rest_has_code_ = true;
  } else if (found->last && (open_code_.empty() || open_code_ == found->code)) {
    reply_end_ = end;
    open_code_.clear();
  } else if (!found->last && open_code_.empty()) {
    open_code_ = found->code;
  }
}

FtpReplyReader::State FtpReplyReader::state() const {
  if (reply_end_) return State::whole;
  if (kept() == 0) return State::empty;
  if (text_.back() != '\n') return State::partial;
  return exact_ || !open_code_.empty() ? State::unfinished : State::whole;
}

std::string FtpReplyReader::take() {
  std::size_t end = text_.size();
  // Lines behind a reply that begin no other one belong to it: left behind they would pass for the next answer.
  const bool others_follow = rest_has_code_ || text_.empty() || text_.back() != '\n';
  if (reply_end_ && (exact_ || others_follow)) end = *reply_end_;
  std::string reply = text_.substr(begin_, end - begin_);
  begin_ = end;
  // What follows is looked at afresh: its lines were only searched for another code.
  scanned_ = searched_ = end;
  reply_end_.reset();
  open_code_.clear();
  rest_has_code_ = false;
  scan();
  return reply;
}

void FtpReplyReader::clear() { *this = FtpReplyReader(exact_); }

}  // namespace yinet
