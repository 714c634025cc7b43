// The literal reader against a model that does every step the slow and obvious way, over generated replies and cuts.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "yinet/host/text.h"
#include "yinet/host/yobject.h"
#include "yinet/http/http_response.h"

namespace yinet {
namespace {

using namespace std::string_view_literals;

struct Outcome {
  bool complete = false;
  int code = 0;
  std::string status, body;
  bool operator==(const Outcome&) const = default;
};

std::string model_dechunk(const std::string& raw) {
  std::string body;
  for (std::uint64_t position = 0; position < raw.size();) {
    const std::size_t cr = raw.find("\r\n", position);
    if (cr == std::string::npos) break;
    const std::string line = raw.substr(position, cr - position);
    const std::size_t start = std::min(line.find_first_not_of(" \t\r\n"), line.size());
    const std::string digits = line.substr(start, line.find_first_not_of("0123456789abcdefABCDEF", start) - start);
    const std::size_t zeros = std::min(digits.find_first_not_of('0'), digits.size());
    if (digits.empty() || digits.size() - zeros > 16) break;
    const std::uint64_t size = std::stoull(digits, nullptr, 16);
    if (cr + 2 < raw.size()) body += raw.substr(cr + 2, size);
    if (size == 0 || size > raw.size()) break;
    position = cr + 2 + size + 2;
  }
  return body;
}

Outcome model(const std::vector<std::string>& reads) {
  Outcome out;
  YObject header;
  YString status;
  std::string text, raw;
  std::size_t search = 0, total = 0;
  bool header_complete = false, chunked = false;
  for (const std::string& read : reads) {
    total += read.size();
    std::size_t body_bytes = read.size();
    if (!header_complete) {
      text += read;
      const std::size_t i = text.find("\r\n\r\n", search);
      search = text.size();
      if (i == std::string::npos) continue;
      header_complete = true;
      out.code = parse_header_block(text.substr(0, i), 300, header, status);
      out.status = status.str();
      chunked = header.GetInteger("Content-Length") == 0 && header.GetString("Transfer-Encoding").EqualsIC("chunked");
      body_bytes = total - i - 4;
    }
    raw += read.substr(read.size() - body_bytes);
    const std::string end = raw.size() < 5 ? "" : raw.substr(raw.size() - 5);
    out.complete = chunked ? end == "0\r\n\r\n" : header.GetInteger("Content-Length") <= static_cast<int>(raw.size());
    if (!out.complete) continue;
    out.body = chunked ? model_dechunk(raw) : raw;
    break;
  }
  return out;
}

Outcome run_reader(const std::vector<std::string>& reads) {
  YObject header;
  YString status;
  LiteralReplyReader reader({.header_bytes = 1 << 20, .body_bytes = 0, .cookies = 300}, header, status);
  ReplyProgress progress = ReplyProgress::more;
  for (auto read = reads.begin(); read != reads.end() && progress == ReplyProgress::more; ++read)
    progress = reader.feed(*read);
  const bool complete = progress == ReplyProgress::complete;
  return {complete, reader.status_code(), status.str(), complete ? reader.take_body().toString().str() : ""};
}

TEST(LiteralReader, DoesWhatTheModelDoes) {
  const auto kHeader = split(
      "\r\n|\r\n\r\n|\r|\n|HTTP/1.1 404\tNo|5|-5|Content-Length: |content-length:|99999999999|x:y|"
      "Transfer-Encoding: chunked\r\n|TRANSFER-ENCODING:Chunked\r\n",
      "|");
  const auto kBody = split(
      "0\r\n\r\n|\r\n0\r\n\r\n|5\r\nhello\r\n|1;x\r\n0\r\n|\r\n|\r|b\r\n0\r\n\r\n012345|0|-5\r\n|0x10\r\n|"
      "ffffffffffffffff\r\n|7fffffff\r\n|11111111111111111\r\n|\n 3\r\nabc|text|\0"sv,
      "|");
  std::mt19937 random(20240611);
  const auto below = [&random](std::size_t n) { return static_cast<std::size_t>(random() % n); };
  int complete = 0, chunked_bodies = 0;
  constexpr int kRounds = 30000;
  const auto kFraming = split("|\r\nTransfer-Encoding: chunked|\r\nContent-Length:12|\r\nContent-Length: 5:6", "|");
  for (int round = 0; round < kRounds; ++round) {
    const bool sound = below(4) != 0;  // most of the time a header that leads to a body
    std::string wire = sound ? "HTTP/1.1 200 OK\r\n" : "";
    for (std::size_t i = below(sound ? 4 : 20); i > 0; --i) wire += kHeader[below(kHeader.size())];
    if (sound) wire.append(kFraming[below(4)]).append("\r\n\r\n");
    for (std::size_t i = below(8); i > 0; --i) wire += kBody[below(kBody.size())];
    if (below(2) == 0) wire += kBody[0];

    std::vector<std::string> reads;
    const std::size_t longest = 1 + below(60);
    for (std::size_t at = 0; at < wire.size(); at += reads.back().size())
      reads.push_back(wire.substr(at, 1 + below(longest)));

    const Outcome expected = model(reads);
    ASSERT_TRUE(run_reader(reads) == expected) << "round " << round << ": " << testing::PrintToString(reads);
    complete += expected.complete;
    chunked_bodies += expected.complete && wire.find("hunked\r\n\r\n") != wire.npos && !expected.body.empty();
  }
  EXPECT_GT(complete, kRounds / 3);
  EXPECT_GT(chunked_bodies, kRounds / 40);
}

}  // namespace
}  // namespace yinet
