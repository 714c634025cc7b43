#include "yinet/http/http_response.h"

#include <algorithm>
#include <cstring>

#include "yinet/host/text.h"
#include "yinet/host/yobject.h"
#include "yinet/http/exact_reply_reader.h"

namespace yinet {
namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kBlankLine = "\r\n\r\n";
constexpr std::string_view kLastChunk = "0\r\n\r\n";

// Takes the next line that is not empty off the front; false when none is left.
bool take_line(std::string_view& block, std::string_view& line) {
  do {
    if (block.empty()) return false;
    const std::size_t end = std::min(block.find(kLineEnd), block.size());
    line = block.substr(0, end);
    block.remove_prefix(std::min(end + kLineEnd.size(), block.size()));
  } while (line.empty());
  return true;
}

std::size_t find_blank(std::string_view text) {
  return static_cast<std::size_t>(std::find_if(text.begin(), text.end(), is_blank) - text.begin());
}

// A first line without a blank has no code, even if it is a number.
int take_status(std::string_view line, YString& status) {
  const std::size_t blank = find_blank(line);
  if (blank == line.size()) {
    status = YString(line);
    return 0;
  }
  const std::string_view text = line.substr(blank + 1);
  status = YString(text);
  return leading_int32(text.substr(0, find_blank(text)));
}

bool has_control_character(std::string_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7F'; });
}

void take_cookie(std::string_view field, int cookie_limit, YObject& header) {
  std::string text(field.substr(0, field.find(';')));  // path, expiry and flags are of no interest
  text.erase(std::remove_if(text.begin(), text.end(), is_blank), text.end());
  const std::size_t equals = std::min(text.find('='), text.size());
  const std::string_view name = std::string_view(text).substr(0, equals);
  const std::string_view value = std::string_view(text).substr(std::min(equals + 1, text.size()));

  auto& cookies = header.Ensure<YObject>(kCookies);
  if (has_control_character(name) || has_control_character(value)) return;
  if (cookies.GetStringKeyCount() >= cookie_limit && !cookies.Exist(name)) return;
  cookies.Ensure<YObject>(name).StoreText(kCookieValue, value);
}

}  // namespace

int parse_header_block(std::string_view block, int cookie_limit, YObject& header, YString& status) {
  std::string_view line;
  if (!take_line(block, line)) {
    status.Clear();
    return 0;
  }
  const int code = take_status(line, status);

  while (take_line(block, line)) {
    const std::size_t colon = std::min(line.find(':'), line.size());
    const std::string_view name = trimmed(line.substr(0, colon));
    // A value with a colon of its own is cut there, dates and addresses too: scripts know them in that form.
    std::string_view value = line.substr(std::min(colon + 1, line.size()));
    value = trimmed(value.substr(0, value.find(':')));
    if (equal_ignoring_case(name, "SET-COOKIE")) take_cookie(value, cookie_limit, header);
    else header.StoreText(name, value);
  }
  return code;
}

int header_block_code(std::string_view block) {
  std::string_view line;
  YString status;
  return take_line(block, line) ? take_status(line, status) : 0;
}

bool body_is_complete(std::string_view body, bool chunked, std::int64_t content_length) {
  if (chunked) return body.ends_with(kLastChunk);
  return content_length <= static_cast<std::int64_t>(body.size());
}

std::optional<ChunkStart> read_chunk_start(std::string_view raw, std::size_t start) {
  const std::size_t line_end = raw.find(kLineEnd, start);
  if (line_end == std::string_view::npos) return std::nullopt;
  const std::string_view digits = trimmed_front(raw.substr(start, line_end - start));
  if (digits.empty() || hex_value(digits.front()) < 0) return std::nullopt;

  ChunkStart chunk{.size = 0, .data_start = line_end + kLineEnd.size()};
  for (const char digit : digits) {
    const int value = hex_value(digit);
    if (value < 0) break;  // an extension
    if (chunk.size >> 60 != 0) return std::nullopt;
    chunk.size = chunk.size * 16 + static_cast<unsigned>(value);
  }
  return chunk;
}

std::size_t decode_chunks_in_place(char* bytes, std::size_t count) {
  const std::string_view raw(bytes, count);
  std::size_t decoded = 0;
  for (std::size_t position = 0; position < count;) {
    const auto chunk = read_chunk_start(raw, position);
    if (!chunk || chunk->size == 0) break;
    const std::size_t left = count - chunk->data_start;
    const std::size_t size = chunk->size < left ? static_cast<std::size_t>(chunk->size) : left;
    std::memmove(bytes + decoded, bytes + chunk->data_start, size);
    decoded += size;
    if (left - size <= kLineEnd.size()) break;
    position = chunk->data_start + size + kLineEnd.size();
  }
  return decoded;
}

bool ReplyReader::body_too_long() const { return limits_.body_bytes != 0 && body_.view().size() > limits_.body_bytes; }

ReplyProgress LiteralReplyReader::feed(std::string_view bytes) {
  return header_complete_ ? feed_body(bytes) : feed_header(bytes);
}

ReplyProgress LiteralReplyReader::feed_header(std::string_view bytes) {
  // The search begins behind what came before: a blank line cut by a read is passed over.
  const std::size_t search_start = header_text_.size();
  header_text_.append(bytes);
  const std::size_t end = header_text_.find(kBlankLine, search_start);
  if (std::min(end, header_text_.size()) > limits_.header_bytes) return ReplyProgress::header_too_long;
  if (end == std::string::npos) return ReplyProgress::more;

  header_complete_ = true;
  const std::string text = std::move(header_text_);
  status_code_ = parse_header_block(std::string_view(text).substr(0, end), limits_.cookies, header_, status_);
  content_length_ = leading_int64(header_.GetString("Content-Length"));  // bodies may be larger than 2 GB
  if (content_length_ == 0) chunked_ = header_.GetString("Transfer-Encoding").EqualsIC("chunked");
  return feed_body(std::string_view(text).substr(end + kBlankLine.size()));
}

ReplyProgress LiteralReplyReader::feed_body(std::string_view bytes) {
  body_.Add(bytes);
  if (body_too_long()) return ReplyProgress::body_too_long;
  if (!body_is_complete(body_.view(), chunked_, content_length_)) return ReplyProgress::more;
  if (chunked_) {
    const std::size_t size = decode_chunks_in_place(reinterpret_cast<char*>(body_.Ptr()), body_.view().size());
    body_.SetSize(static_cast<long>(size));
  }
  return ReplyProgress::complete;
}

std::unique_ptr<ReplyReader> make_reply_reader(bool exact, const ReplyLimits& limits, YObject& header,
                                               YString& status) {
  if (exact) return std::make_unique<ExactReplyReader>(limits, header, status);
  return std::make_unique<LiteralReplyReader>(limits, header, status);
}

}  // namespace yinet
