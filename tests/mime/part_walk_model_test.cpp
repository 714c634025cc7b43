// The walk over the parts of a mail against the rules told one after the other, without caches, budgets or limits.

#include <gtest/gtest.h>

#include <random>

#include "mime/decode_fixture.h"
#include "yinet/host/text.h"

namespace yinet::test {
namespace {

constexpr std::size_t kNone = std::string::npos;

// What the first "Content-Type" line of a header says; unfolding is proven elsewhere.
struct Type {
  explicit Type(const std::string& header) {
    std::string lines = "\r\n" + header;
    for (const char* fold : {"\r\n ", "\r\n\t"}) lines = replaced(lines, fold, " ");
    const std::size_t at = lines.find("\r\nContent-Type:");
    if (at == kNone) return;
    const std::size_t end = lines.find("\r\n", at + 2);
    value = trimmed(std::string_view(lines).substr(at + 15, end == kNone ? 0 : end - at - 15));
    const std::size_t mark = value.find("; boundary=");
    if (mark != kNone) boundary = value.substr(mark + 11);
  }
  [[nodiscard]] bool is_text() const { return value.empty() || value.substr(0, value.find(';')) == "text/plain"; }

  std::string value, boundary;
};

struct Leaf {
  Type type;
  std::string content;
};

class Model {
 public:
  explicit Model(std::string text) : text_(std::move(text)) {}

  // False when a test mail makes more parts than it should.
  bool decode(std::size_t start, const std::string& parent) {
    if (++parts_ > 400) return false;
    const std::size_t line_end = find("\r\n", start);
    std::string header;
    std::size_t body = start + 2;
    if (start == 0 || (line_end != kNone && start < line_end)) {
      const std::size_t blank = find("\r\n\r\n", start);
      std::size_t end = blank == kNone ? text_.size() : blank + 2;
      body = blank == kNone ? end : blank + 4;
      const std::size_t next_part = parent.empty() ? kNone : find("\r\n--" + parent, start - 2);
      if (next_part != kNone && next_part + 2 < end) end = body = next_part + 2;
      header = text_.substr(start, end - start);
      if (header.starts_with("\r\n")) header.clear();  // begins with an empty line: nothing is read
    }
    const Type type(header);
    if (const std::string& b = type.boundary; !b.empty()) {
      const std::size_t first = find(b, body);
      std::size_t end = find("--" + b + "--", body);
      if (end == kNone && first != kNone) {
        end = 0;
        for (std::size_t q = find("--" + b, first + b.size() + 2); q != kNone; q = find("--" + b, q + 4 + b.size())) end = q;
      }
      for (std::size_t i = first; i != kNone && end != kNone && i < end; i = find(b, i)) {
        i += b.size();
        if (!decode(i + 2, b)) return false;
      }
      return true;
    }
    body = std::min(body, text_.size());
    const std::size_t next = parent.empty() ? kNone : find(parent, body);
    const std::size_t end = next == kNone ? text_.size() : std::max(next, body + 2) - 2;
    leaves.push_back({type, text_.substr(body, end - body)});
    return true;
  }

  std::vector<Leaf> leaves;

 private:
  [[nodiscard]] std::size_t find(const std::string& what, std::size_t from) const { return text_.find(what, from); }

  std::string text_;
  int parts_ = 0;
};

TEST_F(DecodeTest, TheWalkAgreesWithTheRulesOnGeneratedMails) {
  static const std::vector<std::string> kPieces = {
      "--z\r\n", "--z", "--z--", "--z--\r\n", "--zz\r\n", "--zz--\r\n", "z", "\r\n", "\r\n\r\n",
      "Content-Type: text/plain\r\n", "Content-Type: a/x\r\n", "Content-Type: multipart/mixed; boundary=zz\r\n",
      "Content-Type: multipart/x; boundary=z\r\n", "Content-Type: multipart/x; boundary=xx\r\n", "--xx\r\n", "--xx--\r\n",
      "eins", "zwei\r\n", "X: y\r\n", " folded\r\n", "\t\r\n"};
  std::mt19937 random(5);
  int compared = 0;
  for (int round = 0; round < 1500; ++round) {
    std::string mail = random() % 4 == 0 ? "" : "Content-Type: multipart/mixed; boundary=z\r\n\r\n";
    for (std::size_t i = random() % 16; i > 0; --i) mail += kPieces[random() % kPieces.size()];
    if (mail.empty() || mail.ends_with("\r\n.\r\n")) continue;
    Model model(mail);
    if (!model.decode(0, "")) continue;
    ++compared;
    std::string expected;
    std::vector<std::string> files;
    for (auto& [type, content] : model.leaves) {
      for (bool more = true; more && content.ends_with("\r\n"); more = type.is_text() && !type.value.empty())
        content.resize(content.size() - 2);
      if (content.empty()) continue;
      if (type.is_text()) expected += (expected.empty() ? "" : "\r\n\r\nEingebettete Mail:\r\n\r\n") + content;
      else files.push_back(content);
    }
    ASSERT_TRUE(decode(mail)) << printable(mail);
    std::vector<std::string> found;
    for (const auto& name : attachments()) found.push_back(text(name));
    ASSERT_EQ(printable(text("NACHRICHT")), printable(expected)) << printable(mail);
    ASSERT_EQ(found, files) << printable(mail);
  }
  EXPECT_GT(compared, 700);
}

}  // namespace
}  // namespace yinet::test
