#include <gtest/gtest.h>

#include "yinet/filetransfer/transfer_formats.h"

namespace yinet::test {
namespace {

TEST(TransferFormats, PathsKeepTheNameThatWasWritten) {
  const struct {
    std::string_view path, http, name, literal;
  } cases[] = {
      {"a/b-_.~!$&'()*+,=:@", "a/b-_.~!$&'()*+,=:@", "a/b-_.~!$&'()*+,=:@", "a/b-_.~!$&'()*+,=:@"},
      {"a b\t\x7F", "a%20b%09%7F", "a%20b%09%7F", "a%20b%09%7F"},
      {"\xC3\xA4", "%C3%A4", "%C3%A4", "%C3%A4"},
      {"a?b#c;type=a", "a?b#c;type=a", "a%3Fb%23c%3Btype=a", "a%3Fb%23c%3Btype=a"},
      {"%41 % %4 %4g %", "%41%20%25%20%254%20%254g%20%25", "%41%20%25%20%254%20%254g%20%25",
       "%2541%20%25%20%254%20%254g%20%25"},
      {std::string_view("\0\r\n", 3), "%00%0D%0A", "%00%0D%0A", "%00%0D%0A"},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(encoded_path(row.path, PathForm::http), row.http);
    EXPECT_EQ(encoded_path(row.path, PathForm::name), row.name);
    EXPECT_EQ(encoded_path(row.path, PathForm::literal), row.literal);
  }
  EXPECT_EQ(quoted_for_sftp(R"(a "b" \c)"), R"("a \"b\" \\c")");
}

}  // namespace
}  // namespace yinet::test
