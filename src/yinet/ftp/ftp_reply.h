#pragma once

// Cuts FTP replies (RFC 959, 4.2) out of a byte stream. Does no I/O and knows no command. Not thread-safe.
//
// In its usual form it takes text as a reply as soon as a piece ends with a line feed, since servers end their packets
// with their replies. Two things are told apart on top of that: whole replies that came in one piece (a fast server's
// "150" and "226") are handed out one by one, and a multi-line reply whose last line is still missing is reported as
// unfinished, so that the caller can give the rest a moment to come. In its exact form a reply ends with the line that
// ends it and nowhere else.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace yinet {

class FtpReplyReader {
 public:
  enum class State {
    empty,       // nothing kept: more bytes are needed
    partial,     // the text does not end with a line feed
    unfinished,  // it does, but a multi-line reply has not come to its last line
    whole        // take() gives a reply
  };

  explicit FtpReplyReader(bool exact = false) : exact_(exact) {}

  [[nodiscard]] bool exact() const { return exact_; }
  void feed(std::string_view bytes);  // pieces of any size; the view is not kept
  [[nodiscard]] State state() const;
  // The oldest reply, line ends included; of an unfinished or partial one what there is. Empty text when nothing is kept.
  std::string take();
  void clear();
  [[nodiscard]] std::size_t kept() const { return text_.size() - begin_; }

 private:
  void scan();
  void look_at_line(std::string_view line, std::size_t end);

  bool exact_;
  std::string text_;
  std::size_t begin_ = 0;                 // first byte not handed out
  std::size_t scanned_ = 0;               // lines before this position were looked at
  std::size_t searched_ = 0;              // no line end lies between scanned_ and this position
  std::string open_code_;                 // code of the multi-line reply that is being read
  std::optional<std::size_t> reply_end_;  // end of the oldest reply's last line
  bool rest_has_code_ = false;            // a line behind it begins another reply; no further line is looked at then
};

}  // namespace yinet
