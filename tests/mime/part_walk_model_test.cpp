// The walk over the parts of a mail against the rules told one after the other, without caches, budgets or limits.

#include <gtest/gtest.h>

#include <random>

#include "decode_fixture.h"
#include "yinet/host/text.h"

namespace yinet::test {
namespace {

struct Leaf {
  bool text;
  bool typed;
  std::string content;
};

// A header block of this test: "T: text" or "T: file", and "boundary" inside a Content-Type.
struct Fields {
  std::string boundary;
  bool text = true;
  bool typed = false;
};

Fields read_fields(const std::string& header) {
  Fields fields;
  std::vector<std::string> lines;
  std::size_t at = 0;
  for (;;) {
    const std::size_t end = header.find("\r\n", at);
    if (end == std::string::npos || end == 0) break;
    const std::string line = header.substr(at, end - at);
    at = end + 2;
    if (header.substr(at, 2) == "\r\n") at += 2;
    if (!line.empty() && (line[0] == ' ' || line[0] == '\t')) {
      if (lines.empty()) lines.emplace_back(trimmed(line));
      else lines.back() += (lines.back().empty() ? "" : " ") + std::string(trimmed(line));
    } else {
      lines.push_back(line);
    }
  }
  bool has_type = false;
  for (const std::string& line : lines) {
    if (line.rfind("Content-Type:", 0) != 0 || has_type) continue;
    has_type = true;
    const std::string type(trimmed(std::string_view(line).substr(13)));
    fields.typed = !type.empty();
    fields.text = type.empty() || type.substr(0, type.find(';')) == "text/plain";
    const std::size_t mark = type.find("; boundary=");
    if (mark != std::string::npos) fields.boundary = type.substr(mark + 11);
  }
  return fields;
}

class Model {
 public:
  explicit Model(std::string text) : text_(std::move(text)) {}

  void decode(int start, const std::string& parent) {
    if (++parts_ > 400) throw std::length_error("more parts than a test mail should make");
    const auto find = [&](const std::string& what, std::size_t from) {
      return from > text_.size() ? -1 : static_cast<int>(text_.find(what, from));
    };
    const int length = static_cast<int>(text_.size());
    Fields fields;
    int body = start + 2;
    const int c = find("\r\n", start);
    if (start == 0 || start < c) {
      int end = find("\r\n\r\n", start);
      int header_end = end < 0 ? length : end + 2;
      body = end < 0 ? length : end + 4;
      const int next_part = parent.empty() ? -1 : find("\r\n--" + parent, start);
      if (next_part >= 0 && next_part + 2 < header_end) header_end = body = next_part + 2;
      fields = read_fields(text_.substr(start, header_end - start));
    }
    if (!fields.boundary.empty()) {
      const std::string& b = fields.boundary;
      const int size = static_cast<int>(b.size());
      const int first = find(b, body);
      int end = find("--" + b + "--", body);
      if (end < 0 && first >= 0) {
        for (int q = find("--" + b, first + size + 2); q >= 0; q = find("--" + b, q + 4 + size)) end = q;
      }
      for (int i = first; 0 < i && i < end;) {
        i += size;
        decode(i + 2, b);
        i = find(b, i);
      }
      return;
    }
    int end = length;
    if (!parent.empty()) {
      const int n = find(parent, body);
      if (n >= 0) end = n - 2;
    }
    body = std::min(body, length);
    leaves.push_back({fields.text, fields.typed, text_.substr(body, std::max(0, end - body))});
  }

  std::vector<Leaf> leaves;

 private:
  std::string text_;
  int parts_ = 0;
};

TEST_F(DecodeTest, TheWalkAgreesWithTheRulesOnGeneratedMails) {
  static const std::vector<std::string> kPieces = {
      "--z\r\n", "--z", "--z--", "--z--\r\n", "--zz\r\n", "--zz--\r\n", "z", "\r\n", "\r\n\r\n",
      "Content-Type: text/plain\r\n", "Content-Type: a/x\r\n", "Content-Type: multipart/mixed; boundary=zz\r\n",
      "Content-Type: multipart/mixed; boundary=z\r\n", "Content-Type: multipart/x; boundary=xx\r\n", "--xx\r\n", "--xx--\r\n",
      "eins", "zwei\r\n", "X: y\r\n", " folded\r\n", "\t\r\n"};
  std::mt19937 random(5);
  int compared = 0;
  for (int round = 0; round < 1200; ++round) {
    std::string mail = random() % 4 == 0 ? "" : "Content-Type: multipart/mixed; boundary=z\r\n\r\n";
    for (std::size_t i = random() % 16; i > 0; --i) mail += kPieces[random() % kPieces.size()];
    if (mail.empty() || mail.ends_with("\r\n.\r\n")) continue;
    Model model(mail);
    try {
      model.decode(0, "");
    } catch (const std::length_error&) {
      continue;
    }
    ++compared;
    std::string text;
    std::vector<std::string> files;
    for (const Leaf& leaf : model.leaves) {
      std::string content = leaf.content;
      if (leaf.text) {
        for (bool more = true; more && content.ends_with("\r\n"); more = leaf.typed) content.resize(content.size() - 2);
        if (content.empty()) continue;
        text += (text.empty() ? "" : "\r\n\r\nEingebettete Mail:\r\n\r\n") + content;
      } else {
        if (content.ends_with("\r\n")) content.resize(content.size() - 2);
        if (!content.empty()) files.push_back(content);
      }
    }
    ASSERT_TRUE(decode(mail)) << printable(mail);
    std::vector<std::string> found;
    for (const auto& name : attachments()) found.emplace_back(mail_.Find<YBuffer>(name)->view());
    ASSERT_EQ(replaced(this->text("NACHRICHT"), "\r\n", "|"), replaced(text, "\r\n", "|")) << printable(mail);
    ASSERT_EQ(found, files) << printable(mail);
  }
  EXPECT_GT(compared, 800);
}

}  // namespace
}  // namespace yinet::test
