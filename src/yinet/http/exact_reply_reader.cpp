#include "yinet/http/exact_reply_reader.h"

#include <algorithm>
#include <limits>

#include "yinet/host/text.h"
#include "yinet/host/yobject.h"

namespace yinet {
namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kBlankLine = "\r\n\r\n";

constexpr int kNoContent = 204;
constexpr int kNotModified = 304;
constexpr bool is_interim(int code) { return code >= 100 && code <= 199; }

// Digits only; a number beyond 64 bits counts as the largest one, which no body reaches.
std::optional<std::uint64_t> read_length(std::string_view text) {
  if (text.empty() || !std::all_of(text.begin(), text.end(), is_digit)) return std::nullopt;
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
  std::uint64_t length = 0;
  for (const char digit : text) {
    const auto value = static_cast<std::uint64_t>(digit - '0');
    if (length > (kMost - value) / 10) return kMost;
    length = length * 10 + value;
  }
  return length;
}

std::string_view last_item(std::string_view list) {
  const std::size_t comma = list.rfind(',');
  return trimmed(comma == std::string_view::npos ? list : list.substr(comma + 1));
}

}  // namespace

void ChunkDecoder::decode(std::string_view& in, YBuffer& body) {
  while (!in.empty() && !done() && !bad()) await_ = step(in, body);
}

ChunkDecoder::Await ChunkDecoder::step(std::string_view& in, YBuffer& body) {
  switch (await_) {
    case Await::data: return take_data(in, body);
    case Await::size_line:
    case Await::data_end:
    case Await::trailer_line: return on_line(in);
    case Await::nothing:
    case Await::nothing_after_fault: return await_;
  }
  return Await::nothing_after_fault;
}

ChunkDecoder::Await ChunkDecoder::take_data(std::string_view& in, YBuffer& body) {
  const std::size_t count = data_left_ < in.size() ? static_cast<std::size_t>(data_left_) : in.size();
  body.Add(in.substr(0, count));
  in.remove_prefix(count);
  data_left_ -= count;
  return data_left_ == 0 ? Await::data_end : Await::data;
}

ChunkDecoder::Await ChunkDecoder::on_line(std::string_view& in) {
  const std::size_t end = in.find('\n');
  const std::size_t count = end == std::string_view::npos ? in.size() : end + 1;
  line_.append(in.substr(0, count));
  in.remove_prefix(count);
  line_bytes_ += count;
  if (line_bytes_ > line_limit_) return Await::nothing_after_fault;
  if (end == std::string_view::npos) return await_;
  if (!line_.ends_with(kLineEnd)) return Await::nothing_after_fault;
  line_.resize(line_.size() - kLineEnd.size());

  Await next = Await::nothing_after_fault;
  if (await_ == Await::size_line) next = after_size_line();
  else if (await_ == Await::data_end) next = line_.empty() ? Await::size_line : Await::nothing_after_fault;
  else next = line_.empty() ? Await::nothing : Await::trailer_line;
  line_.clear();
  if (next != Await::trailer_line) line_bytes_ = 0;
  return next;
}

ChunkDecoder::Await ChunkDecoder::after_size_line() {
  constexpr std::size_t kMostDigits = 16;
  std::size_t digits = 0;
  data_left_ = 0;
  std::string_view rest = trimmed_front(line_);
  if (rest.empty() || hex_value(rest.front()) < 0) return Await::nothing_after_fault;
  for (; !rest.empty() && hex_value(rest.front()) >= 0; rest.remove_prefix(1)) {
    data_left_ = data_left_ * 16 + static_cast<unsigned>(hex_value(rest.front()));
    if (data_left_ != 0 && ++digits > kMostDigits) return Await::nothing_after_fault;
  }
  // Some servers pad the number with blanks; anything else but an extension is no number at all.
  if (!rest.empty() && rest.front() != ';' && rest.front() != ' ' && rest.front() != '\t')
    return Await::nothing_after_fault;
  return data_left_ == 0 ? Await::trailer_line : Await::data;
}

ReplyProgress ExactReplyReader::feed(std::string_view bytes) {
  return framing_ == Framing::unknown ? feed_header(bytes) : feed_body(bytes);
}

ReplyProgress ExactReplyReader::feed_end() {
  return framing_ == Framing::until_end ? ReplyProgress::complete : ReplyProgress::cut;
}

ReplyProgress ExactReplyReader::feed_header(std::string_view bytes) {
  std::string text = std::move(header_text_);
  // Up to three bytes of the blank line may have come before.
  std::size_t search_start = text.size() - std::min(text.size(), kBlankLine.size() - 1);
  text.append(bytes);

  for (std::size_t start = 0;;) {
    const std::size_t end = text.find(kBlankLine, search_start);
    const std::size_t header_bytes = std::min(end, text.size()) - start;
    if (interim_bytes_ + header_bytes > limits_.header_bytes) return ReplyProgress::header_too_long;
    if (end == std::string::npos) {
      header_text_ = std::move(text.erase(0, start));
      return ReplyProgress::more;
    }
    const std::string_view block = std::string_view(text).substr(start, header_bytes);
    start = search_start = end + kBlankLine.size();
    if (is_interim(header_block_code(block))) {
      interim_bytes_ += header_bytes + kBlankLine.size();
      continue;
    }
    status_code_ = parse_header_block(block, limits_.cookies, header_, status_);
    framing_ = framing_of(block);
    return feed_body(std::string_view(text).substr(start));
  }
}

// RFC 9112, section 6.3. Looks at whole values: those in the header record end at their first colon, and of several
// equal fields it holds only one.
ExactReplyReader::Framing ExactReplyReader::framing_of(std::string_view block) {
  if (status_code_ == kNoContent || status_code_ == kNotModified) return Framing::no_body;
  Framing framing = Framing::until_end;
  bool coded = false;
  for (std::size_t line_end = 0; !block.empty();
       block.remove_prefix(std::min(line_end + kLineEnd.size(), block.size()))) {
    line_end = std::min(block.find(kLineEnd), block.size());
    const std::string_view line = block.substr(0, line_end);
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    const std::string_view name = trimmed(line.substr(0, colon));
    const std::string_view value = trimmed(line.substr(colon + 1));
    if (equal_ignoring_case(name, "Transfer-Encoding")) {
      coded = true;
      framing = equal_ignoring_case(last_item(value), "chunked") ? Framing::chunked : Framing::until_end;
    } else if (equal_ignoring_case(name, "Content-Length") && !coded) {
      for (const std::string_view item : split(value, ",")) {
        const auto length = read_length(trimmed(item));
        if (!length || (framing == Framing::counted && *length != body_left_)) return Framing::invalid;
        framing = Framing::counted;
        body_left_ = *length;
      }
      if (value.empty()) return Framing::invalid;
    }
  }
  return framing;
}

ReplyProgress ExactReplyReader::feed_body(std::string_view bytes) {
  switch (framing_) {
    case Framing::unknown:
    case Framing::invalid: return ReplyProgress::malformed;
    case Framing::no_body: return ReplyProgress::complete;
    case Framing::counted: {
      const std::size_t count = body_left_ < bytes.size() ? static_cast<std::size_t>(body_left_) : bytes.size();
      body_.Add(bytes.substr(0, count));
      body_left_ -= count;
      break;
    }
    case Framing::chunked: chunks_.decode(bytes, body_); break;
    case Framing::until_end: body_.Add(bytes); break;
  }
  if (body_too_long()) return ReplyProgress::body_too_long;
  if (chunks_.bad()) return ReplyProgress::malformed;
  const bool complete = framing_ == Framing::chunked ? chunks_.done() : framing_ == Framing::counted && body_left_ == 0;
  return complete ? ReplyProgress::complete : ReplyProgress::more;
}

}  // namespace yinet
