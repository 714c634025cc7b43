// Mails that nobody should have sent. Each is decoded as scripts do it and as people do it, and is held to a second of
// processor time and 256 MB beside its own size; nothing may appear outside the result, and what a person would call
// content must be in there. Small ones are seeds of the mail fuzzer.

#include <cstdlib>
#include <ctime>

#include "mime/mail_fixture.h"
#include "support/resource_check.h"

namespace yinet::test {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kSlowness = 20;  // of such a build, whose memory cannot be told either
#elif defined(__OPTIMIZE__)
constexpr int kSlowness = 1;
#else
constexpr int kSlowness = 8;
#endif
constexpr std::size_t kMemoryKib = 256 * 1024;

// Where there is a folder in memory, the mails lie there: ext4 takes its time to make thousands of files when as many were
// deleted in the last seconds.
[[maybe_unused]] const bool kInMemory = std::filesystem::exists("/dev/shm") && setenv("TMPDIR", "/dev/shm", 0) == 0;

std::string multipart(const std::string& boundary) {
  return "Content-Type: multipart/mixed; boundary=\"" + boundary + "\"\r\n\r\n--" + boundary + "\r\n";
}
const std::string kLast = kText + "zuletzt";
const std::string kNext = "\r\n--b1\r\n";
const std::string kFile = "Content-Type: a/b; name=a.bin\r\n";
// A multipart with these parts, each with the delimiter behind it, before the last.
std::string with_parts(const std::string& parts) { return multipart("b1") + parts + kLast + "\r\n--b1--"; }

// "{3*x}" stands for xxx; in there ^ counts up and ~ down, and ! is as many letters. A ` is a zero byte.
struct Hostile {
  const char* name;
  std::string rule;
  const char* kept = "zuletzt";  // what a readable decode has somewhere in its result
};
const Hostile kMails[] = {
    {"NestedMultiparts", "{10000*" + multipart("x^x") + "}" + kLast + "{10000*\r\n--x~x--}"},
    {"NestedWithOneBoundary", "{10000*" + multipart("b1") + "}" + kLast + "\r\n--b1--\r\n"},
    {"ManyTexts", with_parts("{10000*" + kText + "x" + kNext + "}")},
    {"ManyEqualNames", multipart("b1") + "{9998*" + kFile + "\r\nx" + kNext + "}" + kFile + "\r\nzuletzt"},
    {"MillionSiblings", with_parts("{1000000*--b1\r\n}")},
    {"EqualHeaders", "{100000*Received: x\r\n}" + kLast},
    {"HeadersThatCountUp", "{50000*A.^: x\r\nA: y\r\n}" + kLast},
    {"FoldedHeader", "Subject: x\r\n{100000* 45 characters of a header line that go on and o\r\n}" + kLast},
    {"HeaderWithoutEnd", "{200000*X: 12345678901234567890\r\n}", ""},
    {"SubjectOfWords", "Subject: {400000*=?utf-8?B?w6TDtsO8?= \r\n }\r\n" + kLast},
    {"SubjectOfGluedWords", "Subject: x {400000*=?utf-8?Q?=C3=A4?=}\r\n" + kLast},
    {"SubjectOfHalfWords", "Subject: a{1000000*=?x?B?}{500000*?=}\r\n" + kLast},
    {"Parameters", "Content-Type: text/plain{200000*; a=\"\\\"\"; b*0*=c;\"}\r\n\r\nzuletzt", ""},
    {"Recipients", "To: {300000*a@b, ;}\r\n" + kLast},
    {"RecipientsBeyondNumber", "To: {2500000*a,}\r\n" + kLast},
    {"EnvelopeRecipients", "Envelope-To: {100000*^@b }\r\n" + kLast},
    {"BoundariesThatNeverCome",
     with_parts("{5000*Content-Type: multipart/mixed; boundary=never^\r\n\r\n" + std::string(1000, 'x') + kNext + "}")},
    {"BoundariesThatBeginEachOther", "{1000*" + multipart("!") + "}" + kLast},
    {"BoundaryOfOneCharacter", multipart("a") + kText + "{2000000*a}zuletzt"},
    {"HeadersInsideHeaders", multipart("b") + "X: y\r\n{20000*b\r\nX: y\r\n}\r\n--b--", ""},
    {"EmbeddedMails", "{1000*" + multipart("x^x") + kMail + "}" + kLast},
    {"EmbeddedInOneBoundary", "{1000*" + multipart("b1") + kMail + "}" + kLast},
    {"EmbeddedWithoutMultipart", "{1000*" + kMail + "}" + kLast},
    {"LargeEmbeddedMails", "{100*" + multipart("x^x") + kMail + "}" + kText + "{4000000*x}zuletzt"},
    {"OpenTags", "Content-Type: text/html\r\n\r\n{1000000*<}{200000*&#x<b}zuletzt"},
    {"Zeros", "{1000*X`Y: `\r\n}" + multipart("b1") + kLast + "{1000000*`}"},
    {"BareLineFeeds", "Subject: x\r\nContent-Type: text/plain\n\n{1000000*\n}\r\n\r\nzuletzt"},
    {"JunkInBase64",
     multipart("b1") + kFile + "Content-Transfer-Encoding: base64\r\n\r\n{300000*=Q\x80*U=\r\n}enVsZXR6dA==\r\n--b1--"},
    {"Charsets", with_parts("{2000*Content-Type: text/plain; charset=\"utf-16,^" + std::string(200, 'x') +
                            "\"\r\n\r\nx" + kNext + "}")},
    {"QuotedSizeNotice",
     kText + "{100000*Diese Mail (}) ist gr\366\337er als die maximal erlaubte Mailgr\366\337e (zuletzt"},
};

std::string made_by(std::string_view rule) {
  std::string mail;
  for (std::size_t at = rule.find('{'); at != rule.npos; at = rule.find('{')) {
    const std::size_t end = rule.find('}', at), star = rule.find('*', at);
    const auto count = std::stoul(std::string(rule.substr(at + 1, star)));
    const std::string_view piece = rule.substr(star + 1, end - star - 1);
    mail += rule.substr(0, at);
    const bool counts = piece.find_first_of("^~!") != piece.npos;
    for (std::size_t i = 0; i < count && !counts; ++i) mail += piece;
    for (std::size_t i = 0; i < count && counts; ++i) {
      const std::string up = replaced(piece, "^", std::to_string(i));
      mail += replaced(replaced(up, "~", std::to_string(count - 1 - i)), "!", std::string(count - i, 'b'));
    }
    rule.remove_prefix(end + 1);
  }
  return replaced(mail.append(rule), "`", std::string_view("\0", 1));
}

class HostileMail : public MailTest, public testing::WithParamInterface<std::size_t> {};

TEST_P(HostileMail, IsDecodedInBounds) {
  const Hostile& hostile = kMails[GetParam()];
  const YString file(folder_.write("mail.eml", made_by(hostile.rule)).string());
  const std::size_t size = std::filesystem::file_size(file.str());
  for (const bool readable : {false, true}) {
    set_setting("Mail", "Lesefreundlich", readable ? "1" : "0");
    YObject record;
    const bool sees_peak = reset_peak_memory() && kSlowness < 20;
    const std::size_t memory_before = memory_kib("VmRSS:");
    const std::clock_t start = std::clock();
    ASSERT_TRUE(OpenMessage().Decode(file, &record, 0));
    EXPECT_LE(std::clock() - start, kSlowness * CLOCKS_PER_SEC) << readable;
    EXPECT_LE(sees_peak ? memory_kib("VmHWM:") : 0, memory_before + size / 1024 + kMemoryKib) << readable;
    EXPECT_THAT(files_left(), testing::IsEmpty());
    bool kept = !readable;
    for (int i = 0; !kept && i < record.GetStringKeyCount(); ++i)
      kept = record.GetString(record.GetStringKey(i)).str().find(hostile.kept) != std::string::npos;
    EXPECT_TRUE(kept);
  }
}

INSTANTIATE_TEST_SUITE_P(All, HostileMail, testing::Range<std::size_t>(0, std::size(kMails)),
                         [](const auto& info) { return kMails[info.param].name; });

}  // namespace
}  // namespace yinet::test
