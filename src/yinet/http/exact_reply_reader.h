#pragma once

// The reader that takes replies as RFC 9112 means them: the same result however the bytes are cut.

#include "yinet/http/http_response.h"

namespace yinet {

// Undoes chunked transfer coding (RFC 9112, section 7.1) piece by piece. Extensions and trailers are passed over. Once it
// is done or bad it stays so.
class ChunkDecoder {
 public:
  // `line_limit` bounds one size line, and all trailer lines together.
  explicit ChunkDecoder(std::size_t line_limit) : line_limit_(line_limit) {}

  // Takes bytes off the front of `in`, all of them unless the last chunk ends before, and appends content to `body`.
  void decode(std::string_view& in, YBuffer& body);
  [[nodiscard]] bool done() const { return await_ == Await::nothing; }
  [[nodiscard]] bool bad() const { return await_ == Await::nothing_after_fault; }

 private:
  enum class Await { size_line, data, data_end, trailer_line, nothing, nothing_after_fault };  // what must come next

  Await step(std::string_view& in, YBuffer& body);
  Await take_data(std::string_view& in, YBuffer& body);
  Await on_line(std::string_view& in);
  [[nodiscard]] Await after_size_line();

  const std::size_t line_limit_;
  Await await_ = Await::size_line;
  std::string line_;            // begun, not yet ended
  std::size_t line_bytes_ = 0;  // towards the limit
  std::uint64_t data_left_ = 0;
};

class ExactReplyReader final : public ReplyReader {
 public:
  ExactReplyReader(const ReplyLimits& limits, YObject& header, YString& status)
      : ReplyReader(limits, header, status), chunks_(limits.header_bytes) {}
  ReplyProgress feed(std::string_view bytes) override;
  ReplyProgress feed_end() override;

 private:
  enum class Framing { unknown, no_body, counted, chunked, until_end, invalid };

  ReplyProgress feed_header(std::string_view bytes);
  ReplyProgress feed_body(std::string_view bytes);
  Framing framing_of(std::string_view block);

  std::string header_text_;
  std::size_t interim_bytes_ = 0;  // of 1xx replies passed over
  Framing framing_ = Framing::unknown;
  std::uint64_t body_left_ = 0;  // counted only
  ChunkDecoder chunks_;
};

}  // namespace yinet
