#include "yinet/mime/fold_lines.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <string>
#include <vector>

#include "mime/literal_models.h"

namespace yinet {
namespace {

std::string repeat(std::string_view text, std::size_t count) {
  std::string out;
  for (std::size_t i = 0; i < count; ++i) out += text;
  return out;
}

TEST(FoldLines, BreaksWhereTheRuleSays) {
  struct Case {
    std::string text, folded;
  };
  const std::string a77(77, 'a');
  const Case cases[] = {
      {"", ""},
      {"short", "short"},
      {std::string(120, 'x'), std::string(120, 'x')},
      {std::string(998, 'x'), std::string(998, 'x')},
      {std::string(1000, 'x'), std::string(998, 'x') + "\r\nxx"},
      {"a " + a77, "a\r\n" + a77},
      {a77 + " b", a77 + "\r\nb"},
      {std::string(76, 'a') + " b", std::string(76, 'a') + "\r\nb"},  // the 78th character makes a fold due
      {std::string(75, 'a') + " b", std::string(75, 'a') + " b"},
      {" " + a77 + "b", " " + a77 + "b"},                          // a space at the very start is never a place to fold
      {a77 + "\tb", a77 + "\tb"},                                  // nor is a tab
      {"a \t \t" + a77, "a\r\n" + a77},
      {"one two\r\n" + a77, "one\r\ntwo\r\n" + a77},  // the space may stand on an earlier line
  };
  for (const Case& c : cases) EXPECT_EQ(fold_lines(c.text), c.folded) << c.text;
}

// Texts whose characters are drawn by weight, so that long words, runs of blanks, lone CR and LF, and lines of all lengths
// occur in each other's neighbourhood.
class TextGenerator {
 public:
  explicit TextGenerator(unsigned seed) : random_(seed) {}

  std::string text() {
    static const std::vector<std::vector<double>> kinds = {
        // letter, space, tab, CRLF, CR, LF
        {85, 12, 0, 2, 0, 0}, {97, 2, 0.5, 0.5, 0, 0}, {99.8, 0.1, 0, 0.1, 0, 0}, {40, 30, 20, 6, 2, 2},
        {98, 0, 1, 0.2, 0.2, 0.2}, {94, 1, 0, 5, 0, 0}, {70, 10, 5, 5, 5, 5},
    };
    static const std::vector<std::string> pieces = {"a", " ", "\t", "\r\n", "\r", "\n"};
    const auto& weights = kinds[random_() % kinds.size()];
    std::discrete_distribution<std::size_t> piece(weights.begin(), weights.end());
    const std::size_t length = random_() % (random_() % 8 == 0 ? 3000 : 500);
    std::string text;
    while (text.size() < length) text += pieces[piece(random_)];
    return text;
  }

 private:
  std::mt19937 random_;
};

TEST(FoldLines, FollowsTheRuleOnGeneratedTexts) {
  TextGenerator generator(20240519);
  for (int i = 0; i < 30000; ++i) {
    const std::string text = generator.text();
    ASSERT_EQ(fold_lines(text), test::folded_by_the_rule(text)) << "text " << i << ":\n" << text;
  }
}

TEST(FoldLines, CostStaysFlat) {
  // Moving the text at every fold would take minutes.
  const std::size_t size = 2 << 20;
  const std::string texts[] = {
      repeat("word ", size / 5),
      std::string(size, 'x'),
      std::string(size, ' '),
      "a " + repeat("x\r\n", size / 3) + std::string(100, 'y'),
      repeat(std::string(90, 'x') + " \t", size / 92),
      repeat("\r", size),
  };
  for (const std::string& text : texts) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(fold_lines(text).empty());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << text.substr(0, 20);
  }
}

}  // namespace
}  // namespace yinet
