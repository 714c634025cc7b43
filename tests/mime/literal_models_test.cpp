// Quick routines beside the rules told slowly, on generated texts; and their cost on texts that would be slow to move about.

#include "mime/literal_models.h"

#include <gtest/gtest.h>

#include <ctime>
#include <random>
#include <vector>

#include "support/bytes.h"
#include "yinet/mime/base64_lines.h"
#include "yinet/mime/byte_search.h"
#include "yinet/mime/fold_lines.h"
#include "yinet/mime/header_decoding.h"
#include "yinet/mime/html_to_text.h"
#include "yinet/mime/mail_parser.h"
#include "yinet/mime/mail_text.h"

namespace yinet::test {
namespace {

// Pieces are drawn by weight, so that long words, runs of blanks, lone CR and LF, and lines of all lengths meet.
TEST(LiteralModel, FoldedTextsFollowTheRule) {
  static const std::string kPieces[] = {"a", " ", "\t", "\r\n", "\r", "\n"};
  static const std::vector<std::vector<double>> kWeights = {
      {85, 12, 0, 2, 0, 0},       {97, 2, 0.5, 0.5, 0, 0}, {99.8, 0.1, 0, 0.1, 0, 0}, {40, 30, 20, 6, 2, 2},
      {98, 0, 1, 0.2, 0.2, 0.2},  {94, 1, 0, 5, 0, 0},     {70, 10, 5, 5, 5, 5},
  };
  std::mt19937 random(20240519);
  for (int i = 0; i < 5000; ++i) {
    const auto& weights = kWeights[random() % kWeights.size()];
    std::discrete_distribution<std::size_t> piece(weights.begin(), weights.end());
    const std::size_t length = random() % (random() % 8 == 0 ? 3000 : 500);
    std::string text;
    while (text.size() < length) text += kPieces[piece(random)];
    ASSERT_EQ(fold_lines(text), folded_by_the_rule(text)) << printable(text);
  }
}

TEST(LiteralModel, HeaderValuesFollowTheRules) {
  static const std::vector<std::string> kPieces = {
      "=?", "?=", "?B?", "?Q?", "?b?", "?", "=", "_", " ", "  ", "\t", "utf-8", "UTF", "iso-8859-1", "iso-8859-2",
      "charset", "utf-8''", "iso-8859-15''", "%41", "%4", "%", "SGFsbG8=", "w6Q=", "=C3=A4", "=?utf-8?Q?a?=",
      "=?utf-8?B?w6Q=?=", "a", "\xE4", "\xC3\xA4", "=?utf-8?Q?", "=?x?B?", "\""};
  std::mt19937 random(20261121);
  for (int round = 0; round < 30000; ++round) {
    std::string value;
    for (std::size_t i = random() % 9; i > 0; --i) value += kPieces[random() % kPieces.size()];
    ASSERT_EQ(decode_header_value(value), header_value_by_the_rule(value)) << printable(value);
  }
}

TEST(LiteralModel, SearchesFindWhatThePlainSearchFinds) {
  std::mt19937 random(1);
  for (int round = 0; round < 20000; ++round) {
    std::string text(random() % 300, '\0');
    for (char& c : text) c = "ab-"[random() % (round % 3 + 1)];
    std::string what(random() % (round % 50 == 0 ? 200 : 6), 'a');
    for (char& c : what) c = random() % 8 == 0 ? 'b' : 'a';
    const std::size_t from = random() % 310;
    ASSERT_EQ(find_bytes(text, what, from), text.find(what, from)) << text << " " << what << " " << from;
  }
}

// Encoding and decoding go piece by piece.
TEST(LiteralModel, LargeContentsAreTheSameInPieces) {
  for (const std::size_t size : {0, 1, 53, 54, 55, 512 * 54 - 1, 512 * 54, 512 * 54 + 1, 200'000}) {
    const std::string bytes = pattern_bytes(size, 3);
    const std::string text = base64_encoded(bytes);
    std::string lines;
    append_base64_lines(bytes, lines);
    EXPECT_EQ(base64_lines_size(static_cast<std::int64_t>(size)), static_cast<std::int64_t>(lines.size())) << size;
    for (const std::size_t line : {4, 72, 77, 100000}) {
      std::string cut;
      for (std::size_t at = 0; at < text.size(); at += line) cut += text.substr(at, line) + "\r\n";
      EXPECT_TRUE(line != 72 || cut == lines) << size;
      EXPECT_TRUE(decode_file_content(replaced(cut, "\r", " *\r"), TransferEncoding::base64, false).view() == bytes) << size;
    }
  }
  std::mt19937 random(1);
  constexpr std::string_view kPieces[] = {"=", "=C3", "=\r\n", "\r\n", "a", "b c d e f g h", "=\n", "=4", "1"};
  std::string text;
  while (text.size() < 400000) text += kPieces[random() % std::size(kPieces)];
  const YBuffer decoded = decode_file_content(text + "\r\n", TransferEncoding::quoted_printable, false);
  EXPECT_EQ(decoded.view(), quoted_printable_decoded(text));
}

TEST(LiteralModel, CostStaysFlat) {
  constexpr std::size_t kSize = 2'000'000;
  const auto repeat = [](std::string_view text) {
    std::string out;
    while (out.size() < kSize) out += text;
    return out;
  };
  const std::string near_hit = std::string(1000, 'a') + "b" + std::string(1000, 'a');
  for (const std::string& text :
       {repeat("word "), repeat("x"), repeat(" "), "a " + repeat("x\r\n") + std::string(100, 'y'), repeat("&"),
        repeat("<<br>"), repeat(std::string(90, 'x') + " \t"), repeat("<") + ">" + repeat("<"),
        repeat("Received: by somebody\r\n"), "Subject: x" + repeat("\r\n more"), repeat("a") + "b"}) {
    const std::clock_t start = std::clock();
    fold_lines(text);
    html_to_text(text);
    MailParser.ParseMailHeader(text);
    EXPECT_EQ(find_bytes(text, near_hit), std::string::npos);
    EXPECT_LT(std::clock() - start, 5 * CLOCKS_PER_SEC) << text.substr(0, 20);
  }
}

}  // namespace
}  // namespace yinet::test
