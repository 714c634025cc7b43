// Quick routines beside the rules told slowly, on generated texts; and their cost on texts that would be slow to move about.

#include "mime/literal_models.h"

#include <gtest/gtest.h>

#include <ctime>
#include <functional>
#include <random>
#include <vector>

#include "yinet/mime/fold_lines.h"
#include "yinet/mime/header_decoding.h"
#include "yinet/mime/html_to_text.h"
#include "yinet/mime/mail_parser.h"

namespace yinet::test {
namespace {

std::string repeat(std::string_view text, std::size_t count) {
  std::string out;
  for (std::size_t i = 0; i < count; ++i) out += text;
  return out;
}

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

TEST(LiteralModel, CostStaysFlat) {
  constexpr std::size_t kSize = 2'000'000;
  const auto within_seconds = [](const std::function<void(const std::string&)>& run, const std::vector<std::string>& texts) {
    for (const std::string& text : texts) {
      const std::clock_t start = std::clock();
      run(text);
      EXPECT_LT(std::clock() - start, 5 * CLOCKS_PER_SEC) << text.substr(0, 20);
    }
  };
  within_seconds([](const std::string& text) { fold_lines(text); },
                 {repeat("word ", kSize / 5), std::string(kSize, 'x'), std::string(kSize, ' '),
                  "a " + repeat("x\r\n", kSize / 3) + std::string(100, 'y'), repeat(std::string(90, 'x') + " \t", kSize / 92)});
  within_seconds([](const std::string& html) { html_to_text(html); },
                 {std::string(kSize, '&'), repeat("<<br>", kSize / 4), std::string(kSize, '<') + ">" + std::string(kSize, '<')});
  within_seconds([](const std::string& header) { MailParser.ParseMailHeader(header); },
                 {repeat("Received: by somebody\r\n", kSize / 10), "Subject: x" + repeat("\r\n more", kSize / 2)});
}

}  // namespace
}  // namespace yinet::test
