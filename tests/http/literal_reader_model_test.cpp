// The literal reader against a model that does every step the slow and obvious way, over generated replies and cuts.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <random>
#include <vector>

#include "yinet/host/yobject.h"
#include "yinet/http/http_response.h"

namespace yinet {
namespace {

struct Outcome {
  bool complete = false;
  std::string status;
  int code = 0;
  std::string body;
  std::map<std::string, std::string> fields;   // lower-case names
  std::map<std::string, std::string> cookies;
  bool operator==(const Outcome&) const = default;
};

std::vector<std::string> pieces_of(const std::string& text, const std::string& delimiter) {
  std::vector<std::string> pieces(1);
  for (std::size_t i = 0; i < text.size();) {
    if (text.compare(i, delimiter.size(), delimiter) == 0) {
      pieces.emplace_back();
      i += delimiter.size();
    } else {
      pieces.back() += text[i++];
    }
  }
  return pieces;
}

bool blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }
std::string trim(std::string text) {
  while (!text.empty() && blank(text.front())) text.erase(0, 1);
  while (!text.empty() && blank(text.back())) text.pop_back();
  return text;
}
std::string lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}
long long number(const std::string& text) {  // saturated long before the 15 characters looked at are over
  const std::size_t sign = text.size() && (text[0] == '-' || text[0] == '+') ? 1 : 0;
  if (text.size() <= sign || !std::isdigit(static_cast<unsigned char>(text[sign]))) return 0;
  return std::clamp(std::stoll(text.substr(0, 15)), -2147483648LL, 2147483647LL);
}
std::string up_to_blank(const std::string& text) {
  return {text.begin(), std::find_if(text.begin(), text.end(), blank)};
}

void model_header(const std::string& block, Outcome& out) {
  std::vector<std::string> lines = pieces_of(block, "\r\n");
  std::erase(lines, "");
  if (lines.empty()) return;
  const std::string first_word = up_to_blank(lines[0]);
  const bool whole = first_word.size() == lines[0].size();
  out.status = whole ? lines[0] : lines[0].substr(first_word.size() + 1);
  out.code = whole ? 0 : static_cast<int>(number(up_to_blank(out.status)));
  for (std::size_t i = 1; i < lines.size(); ++i) {
    std::vector<std::string> items = pieces_of(lines[i], ":");
    items.emplace_back();
    const std::string name = lower(trim(items[0]));
    if (name != "set-cookie") {
      out.fields[name] = trim(items[1]);
      continue;
    }
    std::string cookie = pieces_of(items[1], ";")[0];
    std::erase_if(cookie, blank);
    if (std::any_of(cookie.begin(), cookie.end(), [](unsigned char c) { return c < 32 || c == 127; })) continue;
    const std::string key = pieces_of(cookie, "=")[0];
    out.cookies[lower(key)] = cookie.size() > key.size() ? cookie.substr(key.size() + 1) : "";
  }
}

std::string model_dechunk(const std::string& raw) {
  std::string body;
  std::size_t position = 0;
  while (position < raw.size()) {
    const std::size_t cr = raw.find("\r\n", position);
    if (cr == std::string::npos) return body;
    const std::string line = trim(raw.substr(position, cr - position));
    std::string digits;
    for (std::size_t i = 0; i < line.size() && std::isxdigit(static_cast<unsigned char>(line[i])); ++i) digits += line[i];
    const std::size_t zeros = std::min(digits.find_first_not_of('0'), digits.size());
    if (digits.size() - zeros > 16) return body;
    const std::uint64_t size = digits.empty() ? 0 : std::stoull(digits, nullptr, 16);
    if (size == 0) return body;
    for (std::uint64_t i = 0; i < size && cr + 2 + i < raw.size(); ++i) body += raw[cr + 2 + i];
    if (size > raw.size()) return body;
    position = cr + 2 + size + 2;
  }
  return body;
}

Outcome model(const std::vector<std::string>& reads) {
  Outcome out;
  std::string text;
  std::string raw;
  std::size_t search = 0;
  std::size_t total = 0;
  bool header_complete = false;
  bool chunked = false;
  long long length = 0;
  for (const std::string& read : reads) {
    total += read.size();
    std::size_t body_bytes = read.size();
    if (!header_complete) {
      text += read;
      const std::size_t i = text.find("\r\n\r\n", search);
      search = text.size();
      if (i == std::string::npos) continue;
      header_complete = true;
      model_header(text.substr(0, i), out);
      length = out.fields.contains("content-length") ? number(out.fields["content-length"]) : 0;
      chunked = length == 0 && out.fields.contains("transfer-encoding") && lower(out.fields["transfer-encoding"]) == "chunked";
      body_bytes = total - i - 4;
    }
    raw += read.substr(read.size() - body_bytes);
    const std::string end = raw.size() < 5 ? "" : raw.substr(raw.size() - 5);
    out.complete = chunked ? end == "0\r\n\r\n" : length <= static_cast<long long>(raw.size());
    if (out.complete) {
      out.body = chunked ? model_dechunk(raw) : raw;
      return out;
    }
  }
  return out;
}

Outcome run_reader(const std::vector<std::string>& reads) {
  YObject header;
  YString status;
  LiteralReplyReader reader({.header_bytes = 1 << 20, .body_bytes = 0, .cookies = 300}, header, status);
  ReplyProgress progress = ReplyProgress::more;
  for (const std::string& read : reads) {
    progress = reader.feed(read);
    if (progress != ReplyProgress::more) break;
  }
  Outcome out{.complete = progress == ReplyProgress::complete, .status = status.str(), .code = reader.status_code(),
              .body = {}, .fields = {}, .cookies = {}};
  if (out.complete) out.body = reader.take_body().toString().str();
  for (int i = 0; i < header.GetStringKeyCount(); ++i) {
    if (const auto* text = header.FindAt<YString>(i)) out.fields[lower(header.GetStringKey(i).str())] = text->str();
  }
  if (const auto* cookies = header.Find<YObject>("COOKIES"))
    for (int i = 0; i < cookies->GetStringKeyCount(); ++i)
      out.cookies[lower(cookies->GetStringKey(i).str())] = cookies->FindAt<YObject>(i)->GetString("VALUE").str();
  return out;
}

TEST(LiteralReader, DoesWhatTheModelDoes) {
  const std::vector<std::string> kHeader = {
      "\r\n", "\r\n", "\r\n", "\r\n\r\n", "\r", "\n", ":", " ", "HTTP/1.1 200 OK", "HTTP/1.1 404\tNo", "HTTP/1.1", "20",
      "Content-Length: ", "content-length:", "5", "12", "-5", "+3", "0x10", "99999999999", "Transfer-Encoding: chunked\r\n",
      "TRANSFER-ENCODING:Chunked\r\n", "Set-Cookie: a=b; c", "set-cookie:", "=", ";", "x", "\x01", "\xE4", std::string(1, '\0')};
  const std::vector<std::string> kBody = {
      "0\r\n\r\n", "\r\n0\r\n\r\n", "5\r\nhello\r\n", "1;x\r\n0\r\n", "b\r\n0\r\n\r\n012345", "\r\n", "\r", "0", "-5\r\n",
      "0x10\r\n", "ffffffffffffffff\r\n", "7fffffff\r\n", "11111111111111111\r\n", "\n 3\r\nabc", "text", std::string(1, '\0')};
  std::mt19937 random(20240611);
  const auto below = [&random](std::size_t n) { return static_cast<std::size_t>(random() % n); };
  int complete = 0;
  int chunked_bodies = 0;
  constexpr int kRounds = 30000;
  for (int round = 0; round < kRounds; ++round) {
    std::string wire;
    if (below(4) != 0) {  // most of the time a header that leads to a body
      wire = "HTTP/1.1 200 OK\r\n";
      for (std::size_t i = below(4); i > 0; --i) wire += kHeader[below(kHeader.size())];
      const std::string framing[] = {"", "\r\nTransfer-Encoding: chunked", "\r\nContent-Length:12", "\r\nContent-Length: 5:6"};
      wire += framing[below(4)] + "\r\n\r\n";
    } else {
      for (std::size_t i = below(20); i > 0; --i) wire += kHeader[below(kHeader.size())];
    }
    for (std::size_t i = below(8); i > 0; --i) wire += kBody[below(kBody.size())];
    if (below(2) == 0) wire += kBody[0];

    std::vector<std::string> reads;
    const std::size_t longest = 1 + below(60);
    for (std::size_t at = 0; at < wire.size(); at += reads.back().size()) reads.push_back(wire.substr(at, 1 + below(longest)));

    const Outcome expected = model(reads);
    complete += expected.complete ? 1 : 0;
    chunked_bodies += expected.complete && expected.fields.contains("transfer-encoding") && !expected.body.empty() ? 1 : 0;
    const Outcome got = run_reader(reads);
    ASSERT_EQ(got.complete, expected.complete) << "round " << round << ": " << testing::PrintToString(reads);
    ASSERT_EQ(got.body, expected.body) << "round " << round << ": " << testing::PrintToString(reads);
    ASSERT_TRUE(got == expected) << "round " << round << ": " << testing::PrintToString(reads);
  }
  EXPECT_GT(complete, kRounds / 3);
  EXPECT_GT(chunked_bodies, kRounds / 40);
}

}  // namespace
}  // namespace yinet
