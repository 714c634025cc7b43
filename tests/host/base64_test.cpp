#include "yinet/host/ybase64.h"

#include <gtest/gtest.h>

namespace {

// The fuzzer compares with a decoder that takes one character at a time, and goes there and back.
TEST(Base64, TextsAreTakenOrRefusedWhole) {
  const struct {
    std::string_view text;
    bool valid;
    std::string_view bytes;
  } kCases[] = {{"QQ", true, "A"}, {"QR==", true, "A"}, {"QUJD\r\nQUJD", true, "ABCABC"},
                {"QU JDQUJD", true, "ABCABC"}, {"QQ==QUJD", false, ""},
                {"QUJD=", false, ""}, {"QUJDQUJDQUJDQUJD*", false, ""}, {{"QUJ\0", 4}, false, ""}};
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

}  // namespace
