// What decoding does to large contents in pieces, and its search, beside the plain way.

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "support/bytes.h"
#include "yinet/host/ybase64.h"
#include "yinet/mime/byte_search.h"
#include "yinet/mime/mail_text.h"
#include "yinet/mime/quoted_printable.h"

namespace yinet::test {
namespace {

TEST(LargeContent, Base64ComesBackWhateverTheLines) {
  const std::string bytes = pattern_bytes(300001);
  const std::string text = base64_encoded(bytes);
  for (const std::size_t line : {4, 75, 76, 77, 1000, 100000, 1000000}) {
    for (const std::string_view between : {"\r\n", "\n", " *\r\n"}) {
      std::string lines;
      for (std::size_t at = 0; at < text.size(); at += line) lines.append(text, at, line).append(between);
      EXPECT_EQ(decode_file_content(lines, TransferEncoding::base64, false).view(), bytes) << line << printable(between);
    }
  }
}

TEST(LargeContent, QuotedPrintableIsTheSameInPieces) {
  std::mt19937 random(1);
  constexpr std::string_view kPieces[] = {"=", "=C3", "=\r\n", "\r\n", "a", "b c d e f g h", "=\n", "=4", "1"};
  std::string text;
  while (text.size() < 400000) text += kPieces[random() % std::size(kPieces)];
  EXPECT_EQ(decode_file_content(text + "\r\n", TransferEncoding::quoted_printable, false).view(), quoted_printable_decoded(text));
}

TEST(ByteSearch, AgreesWithThePlainSearch) {
  std::mt19937 random(1);
  for (int round = 0; round < 20000; ++round) {
    std::string text(random() % 300, '\0');
    for (char& c : text) c = "ab-"[random() % (round % 3 + 1)];
    std::string what(random() % (round % 50 == 0 ? 200 : 6), 'a');
    for (char& c : what) c = random() % 8 == 0 ? 'b' : 'a';
    const std::size_t from = random() % 310;
    ASSERT_EQ(find_bytes(text, what, from), text.find(what, from)) << text << " " << what << " " << from;
  }
  const std::string near_hits = std::string(1000000, 'a') + "b";
  EXPECT_EQ(find_bytes(near_hits, std::string(1000, 'a') + "b" + std::string(1000, 'a')), std::string::npos);
  EXPECT_EQ(find_bytes(near_hits, std::string(1000, 'a') + "b"), near_hits.size() - 1001);
}

}  // namespace
}  // namespace yinet::test
