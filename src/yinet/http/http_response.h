#pragma once

// Reading an HTTP reply, without I/O: the header block, chunked bodies, and the two readers that are fed with what a
// connection brings. Nothing here keeps a view it was given.
//
// The literal reader is the product's: simple, and relied on in its simplicity. The exact reader follows RFC 9112 and is
// chosen by the setting kHttpExactReader.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "yinet/host/ybuffer.h"

class YObject;
class YString;

namespace yinet {

// Keys of the header record beside the field names.
inline constexpr std::string_view kCookies = "COOKIES";    // record of cookies by name ...
inline constexpr std::string_view kCookieValue = "VALUE";  // ... each a record with this text

// --- Header block ---------------------------------------------------------------------------------------------------

// Fills `header` with one text per line of the block (without the blank line that ends it) and sets `status` to the first
// line without its first word. A value ends at its own first colon, if it has one; of equal names the last counts.
// "Set-Cookie" lines go to the record "COOKIES": name and value only, control characters in one of them drop the cookie,
// and no more than `cookie_limit` are kept. Gives the status code, 0 when the first line holds none.
int parse_header_block(std::string_view block, int cookie_limit, YObject& header, YString& status);

// The status code of such a block, as above.
int header_block_code(std::string_view block);

// --- Counted and chunked bodies as the literal reader sees them -------------------------------------------------------

// A chunked body counts as complete when it happens to end with the bytes of a last chunk; any other one as soon as it is
// as long as announced.
bool body_is_complete(std::string_view body, bool chunked, std::int64_t content_length);

struct ChunkStart {
  std::uint64_t size = 0;      // of the data, as announced
  std::size_t data_start = 0;  // position of the first data byte
};
// The size line that begins at `start`: hexadecimal digits after optional blanks, whatever follows them up to CR LF being
// ignored. Empty when there is no CR LF, no digit, or a number of more than 64 bits.
std::optional<ChunkStart> read_chunk_start(std::string_view raw, std::size_t start);

// Turns a chunked body into its content, in place, in one pass; gives the length of the content. It ends at the chunk of
// size 0, at a size line that can't be read, or where the bytes end.
std::size_t decode_chunks_in_place(char* bytes, std::size_t count);

// --- Readers ----------------------------------------------------------------------------------------------------------

struct ReplyLimits {
  std::size_t header_bytes = 0;  // header text; in the exact reader all of a reply that is not body
  std::size_t body_bytes = 0;    // as received; 0: no limit
  int cookies = 0;               // kept of one reply
};

enum class ReplyProgress {
  more,  // bytes are missing
  complete,
  cut,  // the connection ended too early
  header_too_long,
  body_too_long,
  malformed,  // exact reader only
};

// One reply. Header record and status text belong to the caller, stay alive with the reader and are filled as soon as the
// header is there. After any progress but `more` the reader must not be fed again.
class ReplyReader {
 public:
  virtual ~ReplyReader() = default;
  // What one read of the connection brought, at least one byte. The literal reader's results depend on these cuts.
  virtual ReplyProgress feed(std::string_view bytes) = 0;
  // The peer ended the connection: complete or cut. After a reset there is nothing to ask: the reply is cut.
  virtual ReplyProgress feed_end() = 0;
  // After `complete`.
  [[nodiscard]] YBuffer take_body() { return std::move(body_); }
  [[nodiscard]] int status_code() const { return status_code_; }

 protected:
  ReplyReader(const ReplyLimits& limits, YObject& header, YString& status)
      : limits_(limits), header_(header), status_(status) {}
  [[nodiscard]] bool body_too_long() const;

  const ReplyLimits limits_;
  YObject& header_;
  YString& status_;
  YBuffer body_;
  int status_code_ = 0;
};

// Finds the blank line only when one read brings all four bytes of it, believes the length or the end marker of a body,
// and keeps what came too much. A reply with neither length nor chunks is over with the read that completed its header.
class LiteralReplyReader final : public ReplyReader {
 public:
  LiteralReplyReader(const ReplyLimits& limits, YObject& header, YString& status)
      : ReplyReader(limits, header, status) {}
  ReplyProgress feed(std::string_view bytes) override;
  ReplyProgress feed_end() override { return ReplyProgress::cut; }

 private:
  ReplyProgress feed_header(std::string_view bytes);
  ReplyProgress feed_body(std::string_view bytes);

  std::string header_text_;
  bool header_complete_ = false;
  bool chunked_ = false;
  std::int64_t content_length_ = 0;
};

std::unique_ptr<ReplyReader> make_reply_reader(bool exact, const ReplyLimits& limits, YObject& header, YString& status);

}  // namespace yinet
