// Both readers of HTTP replies. The first byte decides about the cuts, the rest is what the server sends.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "yinet/host/yobject.h"
#include "yinet/http/http_response.h"

namespace {

using namespace yinet;

struct Result {
  ReplyProgress progress = ReplyProgress::more;
  int code = 0;
  std::string status;
  std::string body;
  int fields = 0;
  bool operator==(const Result&) const = default;
};

// `first` bytes at once, then pieces whose lengths follow from `seed`; 0: all the rest at once.
Result run(bool exact, std::string_view wire, std::size_t first, unsigned seed) {
  YObject header;
  YString status;
  const auto reader = make_reply_reader(exact, {.header_bytes = 500, .body_bytes = 5000, .cookies = 3}, header, status);
  Result result;
  for (std::size_t next = first; !wire.empty() && result.progress == ReplyProgress::more;) {
    const std::string_view piece = wire.substr(0, next);
    if (!piece.empty()) result.progress = reader->feed(piece);
    wire.remove_prefix(piece.size());
    seed = seed * 1103515245U + 12345U;
    next = seed == 0 ? wire.size() : 1 + (seed >> 16) % 7;
    if (first == std::string_view::npos) next = wire.size();
  }
  if (result.progress == ReplyProgress::more) result.progress = reader->feed_end();
  if (result.progress == ReplyProgress::complete) result.body = reader->take_body().toString().str();
  result.code = reader->status_code();
  result.status = status.str();
  result.fields = header.GetStringKeyCount();
  const auto* cookies = header.Find<YObject>(kCookies);
  if (cookies && cookies->GetStringKeyCount() > 3) std::abort();
  return result;
}

bool both_complete(const Result& a, const Result& b) {
  return a.progress == ReplyProgress::complete && b.progress == ReplyProgress::complete;
}

bool hit_limit(const Result& result) {
  return result.progress == ReplyProgress::header_too_long || result.progress == ReplyProgress::body_too_long;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view wire(reinterpret_cast<const char*>(data) + 1, size - 1);
  const unsigned seed = data[0];

  const Result whole = run(true, wire, std::string_view::npos, 0);
  for (const std::size_t first : {std::size_t{seed % 16}, wire.size() * seed / 256, wire.size() * (size % 64) / 64}) {
    const Result cut = run(true, wire, first, seed);
    // A limit may be noticed before or after a fault, depending on the cuts; else the cuts change nothing.
    if (!hit_limit(whole) && !hit_limit(cut) && !(whole == cut)) std::abort();
    if (hit_limit(cut) && whole.progress == ReplyProgress::complete) std::abort();
    if (hit_limit(whole) && cut.progress == ReplyProgress::complete) std::abort();
  }
  if (whole.body.size() > wire.size()) std::abort();

  // Here only the body may be cut: an earlier end then gives the beginning of the same body.
  const Result literal = run(false, wire, std::string_view::npos, 0);
  const std::size_t blank_line = wire.find("\r\n\r\n");
  const std::size_t head = blank_line == std::string_view::npos ? wire.size() : blank_line + 4;
  const Result literal_cut = run(false, wire, head, seed);
  if (literal.status != literal_cut.status || literal.code != literal_cut.code || literal.fields != literal_cut.fields)
    std::abort();
  if (both_complete(literal, literal_cut) && !literal.body.starts_with(literal_cut.body)) std::abort();
  run(false, wire, seed % 16, seed);
  return 0;
}
