#include "yinet/mime/quoted_printable.h"

#include <gtest/gtest.h>

#include "support/bytes.h"

namespace yinet {
namespace {

struct Case {
  std::string plain, encoded;
};

TEST(QuotedPrintable, EncodesEqualsAndHighBytesOnly) {
  const Case cases[] = {
      {"", ""},
      {"a=b", "a=3Db"},
      {"\xFC", "=fc"},
      {"\xE4\xFF\x80\x7F", "=e4=ff=80\x7F"},
      {"line\r\n\tand\x01" "control ", "line\r\n\tand\x01" "control "},
      {"<p>Gr\xFC\xDF" "e</p>", "<p>Gr=fc=df" "e</p>"},
      {"exactly8=exactly8", "exactly8=3Dexactly8"},
  };
  for (const Case& c : cases) EXPECT_EQ(quoted_printable_encoded(c.plain), c.encoded);
}

TEST(QuotedPrintable, DecodesWhatIsEncodedAndKeepsTheRest) {
  const Case cases[] = {
      {"", ""},
      {"\xE4\xC4", "=e4=C4"},
      {"joined", "joi=\r\nned"},
      {"ends with =", "ends with ="},
      {"=4", "=4"},
      {"=4g=g4==", "=4g=g4=="},
      {"a=\nb=\rc", "a=\nb=\rc"},
      {"==", "=3d=3D"},
      {"=A", "==41"},
      {std::string("\0\r\n", 3), "=00=0D=0A"},
      {"end", "end=\r\n"},
  };
  for (const Case& c : cases) EXPECT_EQ(quoted_printable_decoded(c.encoded), c.plain) << c.encoded;
}

TEST(QuotedPrintable, ComesBackAtEveryAlignment) {
  for (unsigned seed = 0; seed < 64; ++seed) {
    std::string bytes = test::pattern_bytes(40 + seed, seed);
    for (std::size_t i = seed % 3; i < bytes.size(); i += 1 + seed % 5) bytes[i] = 'p';
    EXPECT_EQ(quoted_printable_decoded(quoted_printable_encoded(bytes)), bytes);
  }
}

}  // namespace
}  // namespace yinet
