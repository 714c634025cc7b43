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

// Random characters, half of them from the alphabet: the answer has to be OpenSSL's for every group of four.
TEST(Base64, TakesAndRefusesTheGroupsThatOpenSslTakesAndRefuses) {
  std::mt19937 random(7);
  int valid = 0;
  for (int round = 0; round < 200'000; ++round) {
    std::string text(16, 'A');
    for (int changes = static_cast<int>(random() % 3); changes > 0; --changes) {
      text[random() % text.size()] = static_cast<char>(random());
    }
    if (text.find_first_of("= \t\r\n\v\f-") != std::string::npos) continue;  // where the two differ on purpose
    std::string peer(12, '\0');
    const bool taken = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(peer.data()), octets(text), 16) == 12;
    std::string ours;
    ASSERT_EQ(yinet::base64_decode(text, ours), taken) << testing::PrintToString(text);
    if (taken) {
      ASSERT_EQ(ours, peer);
    }
    valid += taken ? 1 : 0;
  }
  EXPECT_GT(valid, 10'000);
}

TEST(Base64, BlanksMayStandAnywhere) {
  std::mt19937 random(3);
  const std::string bytes = random_bytes(1000, random);
  const std::string text = openssl_encoded(bytes);
  for (std::size_t width = 1; width < 100; ++width) {
    for (const char* blank : {"\r\n", "\n", " ", " \t\r\n \r\n"}) {
      std::string lines = blank;
      for (std::size_t at = 0; at < text.size(); at += width) lines += text.substr(at, width) + blank;
      std::string decoded;
      ASSERT_TRUE(yinet::base64_decode(lines, decoded)) << width;
      ASSERT_EQ(decoded, bytes) << width;
    }
  }
}

struct Case {
  std::string_view text;
  bool valid;
  std::string_view bytes;
};

constexpr Case kCases[] = {
    {"", true, ""},
    {" \r\n\t", true, ""},
    {"QUJD", true, "ABC"},
    {"QUI=", true, "AB"},
    {"QQ==", true, "A"},
    {"QUI", true, "AB"},
    {"QQ", true, "A"},
    {"QQ=", true, "A"},
    {"QR==", true, "A"},  // bits behind the last byte don't count
    {"Q Q = = \r\n", true, "A"},
    {"Q", false, ""},
    {"Q===", false, ""},
    {"=", false, ""},
    {"====", false, ""},
    {"QUJD=", false, ""},
    {"QUI==", false, ""},
    {"QQ===", false, ""},
    {"QUJDQ", false, ""},
    {"QQ==QUJD", false, ""},
    {"QQ=Q", false, ""},
    {"QUJDQUJDQ=JDQUJD", false, ""},
    {"QU-D", false, ""},
    {"QU_D", false, ""},
    {"QUJD\v", false, ""},
    {"QUJDQUJD*UJDQUJD", false, ""},
    {"QUJDQUJDQUJDQUJ\xC4", false, ""},
    {{"QUJ\0", 4}, false, ""},
    {{"QUJD\0", 5}, false, ""},
};

TEST(Base64, TableOfGoodAndBadTexts) {
  for (const Case& row : kCases) {
    std::string appended = "before";
    EXPECT_EQ(yinet::base64_decode(row.text, appended), row.valid) << row.text;
    EXPECT_EQ(appended, "before" + std::string(row.bytes)) << row.text;

    YString text = "old";
    EXPECT_EQ(YBase64::Decode(YString(row.text), text), row.valid) << row.text;
    EXPECT_EQ(text.str(), row.bytes) << row.text;

    YBuffer buffer("old content that is longer than any of the results");
    EXPECT_EQ(YBase64::Decode(YString(row.text), buffer), row.valid) << row.text;
    EXPECT_EQ(buffer.view(), row.bytes) << row.text;
  }
}

TEST(Base64, DecodesATextIntoItself) {
  YString text = "QUJD";
  EXPECT_TRUE(YBase64::Decode(text, text));
  EXPECT_EQ(text, "ABC");
}

TEST(Base64, EncodesNothingForNoBytes) {
  EXPECT_EQ(YBase64::Encode(nullptr, 5), "");
  EXPECT_EQ(YBase64::Encode("abc", -1), "");
}

}  // namespace
