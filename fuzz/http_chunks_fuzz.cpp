// Chunked bodies: the decoder of the literal reader and the strict one. The first byte decides about the cuts.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "yinet/http/exact_reply_reader.h"

namespace {

struct Strict {
  bool done = false;
  bool bad = false;
  std::string content;
  bool operator==(const Strict&) const = default;
};

Strict decode_strictly(std::string_view raw, std::size_t piece_size) {
  yinet::ChunkDecoder decoder(1000000);
  YBuffer body;
  while (!raw.empty() && !decoder.done() && !decoder.bad()) {
    std::string_view piece = raw.substr(0, piece_size);
    raw.remove_prefix(piece.size());
    decoder.decode(piece, body);
  }
  return {decoder.done(), decoder.bad(), body.toString().str()};
}

std::string decode_literally(std::string raw) {
  const std::size_t size = raw.size();
  const std::size_t decoded = yinet::decode_chunks_in_place(raw.data(), size);
  if (decoded > size) std::abort();
  raw.resize(decoded);
  return raw;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view raw(reinterpret_cast<const char*>(data) + 1, size - 1);

  const std::string literal = decode_literally(std::string(raw));
  if (!literal.starts_with(decode_literally(std::string(raw.substr(0, data[0]))))) std::abort();

  const Strict whole = decode_strictly(raw, raw.size() + 1);
  if (!(whole == decode_strictly(raw, 1 + data[0] % 9))) std::abort();
  // What the strict decoder accepts means the same to both.
  if (whole.done && whole.content != literal) std::abort();
  return 0;
}
