#include "yinet/host/ybase64.h"

#include <gtest/gtest.h>

namespace {

// The fuzzer compares with a decoder that takes one character at a time, and goes there and back.
TEST(Base64, TextsAreTakenOrRefusedWhole) {
  const struct {
    std::string_view text;
    bool valid;
    std::string_view bytes;
  } kCases[] = {
      {"QQ", true, "A"},       {"QR==", true, "A"},  {"QUJD\r\nQUJD", true, "ABCABC"}, {"QU JDQUJD", true, "ABCABC"},
      {"QQ==QUJD", false, ""}, {"QUJD=", false, ""}, {"QUJDQUJDQUJDQUJD*", false, ""}, {{"QUJ\0", 4}, false, ""}};
  for (const auto& row : kCases) {
    std::string appended = "before";
    EXPECT_EQ(yinet::base64_decode(row.text, appended), row.valid) << row.text;
    EXPECT_EQ(appended, "before" + std::string(row.bytes)) << row.text;
    YString text = row.text;
    EXPECT_EQ(YBase64::Decode(text, text), row.valid) << row.text;
    EXPECT_EQ(text.str(), row.bytes) << row.text;
  }
  EXPECT_EQ(YBase64::Encode("\0\xFF\xFE>", 4), "AP/+Pg==");
}

// Long texts are decoded in blocks.
TEST(Base64, EveryByteCountsAtEveryPlaceOfABlock) {
  const std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (int byte = 0; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    for (std::size_t place = 0; place < 40; ++place) {
      std::string text(80, 'x');
      text[place] = c;
      const bool is_character = alphabet.find(c) != std::string_view::npos;
      std::string decoded;
      EXPECT_EQ(yinet::base64_decode(text, decoded),
                is_character || std::string_view(" \t\r\n").find(c) != std::string_view::npos)
          << byte;
      if (!is_character) continue;
      EXPECT_EQ(yinet::base64_encoded(decoded), text);
    }
  }
}

}  // namespace
