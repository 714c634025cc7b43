#include "yinet/host/ybase64.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <random>

namespace {

std::string random_bytes(std::size_t count, std::mt19937& random) {
  std::string bytes(count, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

const unsigned char* octets(const std::string& text) { return reinterpret_cast<const unsigned char*>(text.data()); }

std::string openssl_encoded(const std::string& bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  text.resize(static_cast<std::size_t>(
      EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), octets(bytes), static_cast<int>(bytes.size()))));
  return text;
}

TEST(Base64, AgreesWithOpenSslAtEverySmallSizeAndAtSomeLargeOnes) {
  std::mt19937 random(20261121);
  for (std::size_t size = 0; size < 70'000; size = size < 400 ? size + 1 : size * 2 + 7) {
    const std::string bytes = random_bytes(size, random);
    const std::string text = openssl_encoded(bytes);
    ASSERT_EQ(yinet::base64_encoded(bytes), text) << size;
    ASSERT_EQ(YBase64::Encode(bytes.data(), static_cast<long>(size)).str(), text) << size;
    std::string decoded;
    ASSERT_TRUE(yinet::base64_decode(text, decoded)) << size;
    ASSERT_EQ(decoded, bytes) << size;
  }
}

// The fuzzer compares with a decoder that takes one character at a time.
TEST(Base64, TextsAreTakenOrRefusedWhole) {
  const struct {
    std::string_view text;
    bool valid;
    std::string_view bytes;
  } kCases[] = {{"", true, ""},      {"QUJD", true, "ABC"}, {"QQ", true, "A"},          {"QR==", true, "A"},  // spare bits
                {"QUJD\r\nQUJD", true, "ABCABC"}, {"QU JDQUJD", true, "ABCABC"},
                {"Q Q = = \r\n", true, "A"}, {"Q", false, ""},  {"QQ==QUJD", false, ""}, {"QUJD=", false, ""},
                {"QUJDQUJD*UJDQUJD", false, ""}, {{"QUJ\0", 4}, false, ""}};
  for (const auto& row : kCases) {
    std::string appended = "before";
    EXPECT_EQ(yinet::base64_decode(row.text, appended), row.valid) << row.text;
    EXPECT_EQ(appended, "before" + std::string(row.bytes)) << row.text;
    YString text = row.text;
    EXPECT_EQ(YBase64::Decode(text, text), row.valid) << row.text;
    EXPECT_EQ(text.str(), row.bytes) << row.text;
    YBuffer buffer("old content that is longer than any of the results");
    EXPECT_EQ(YBase64::Decode(YString(row.text), buffer), row.valid) << row.text;
    EXPECT_EQ(buffer.view(), row.bytes) << row.text;
  }
}

}  // namespace
