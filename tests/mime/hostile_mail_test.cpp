// Mails that nobody should have sent. Each is decoded as scripts do it and as people do it, and is held to a second of
// processor time and 256 MB beside its own size; nothing may appear outside the result, and what a person would call
// content must be in there.

#include <gmock/gmock.h>

#include <cstdlib>
#include <ctime>
#include <tuple>

#include "mime/decode_fixture.h"
#include "support/bytes.h"
#include "support/memory.h"

namespace yinet::test {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr double kSlowness = 20;  // of such a build
constexpr bool kMeasuresMemory = false;
#elif defined(__OPTIMIZE__)
constexpr double kSlowness = 1;
constexpr bool kMeasuresMemory = true;
#else
constexpr double kSlowness = 8;
constexpr bool kMeasuresMemory = true;
#endif
constexpr std::size_t kMemoryKib = 256 * 1024;

// Where there is a folder in memory, the mails lie there: ext4 takes its time to make thousands of files when as many were
// deleted in the last seconds.
[[maybe_unused]] const bool kInMemory = std::filesystem::exists("/dev/shm") && setenv("TMPDIR", "/dev/shm", 0) == 0;

std::string number(int i) { return std::to_string(i); }
std::string each(int count, std::string (*piece)(int)) {
  std::string text;
  for (int i = 0; i < count; ++i) text += piece(i);
  return text;
}
std::string multipart(const std::string& boundary) {
  return "Content-Type: multipart/mixed; boundary=\"" + boundary + "\"\r\n\r\n--" + boundary + "\r\n";
}
std::string numbered(int i) { return multipart("x" + number(i) + "x"); }
std::string numbered_mail(int i) { return numbered(i) + "Content-Type: message/rfc822\r\n\r\n"; }
const std::string kText = "Content-Type: text/plain\r\n\r\n";
const std::string kLast = kText + "zuletzt";
const std::string kNext = "\r\n--b1\r\n";
const std::string kEmbedded = "Content-Type: message/rfc822\r\n\r\n";
std::string attachment(const std::string& name, const std::string& content) {
  return "Content-Type: a/b\r\nContent-Disposition: attachment; filename=\"" + name + "\"\r\n\r\n" + content + kNext;
}
// A multipart with these parts, each with the delimiter behind it, before the last.
std::string with_parts(const std::string& parts) { return multipart("b1") + parts + kLast + "\r\n--b1--"; }

const std::vector<std::string> kNames = {"..", ".", "-rf", std::string(300, 'n'), "/////", "a\x01" "b", "../../x",
                                         "C:\\x", "TEMP:x", "mail.eml", "MAIL.EML", "Nachricht.htm", "\xE2\x80\xAE" "fdp",
                                         std::string("a\0b", 3), "BETREFF", "~EML", "|", std::string(300, '\xE4') + ".pdf"};

struct Hostile {
  const char* name;
  std::string (*make)();
  const char* kept = "zuletzt";  // what a readable decode has somewhere in its result
};
const Hostile kMails[] = {
    {"NestedMultiparts",
     [] { return each(10000, numbered) + kLast + each(10000, [](int i) { return "\r\n--x" + number(9999 - i) + "x--"; }); }},
    {"NestedWithOneBoundary", [] { return times(10000, multipart("b1")) + kLast + "\r\n--b1--\r\n"; }},
    {"ManyTexts", [] { return with_parts(times(10000, kText + "x" + kNext)); }},
    {"ManyEqualNames",
     [] { return multipart("b1") + times(9998, attachment("a.jpg", "x")) + attachment("a.jpg", "zuletzt"); }},
    {"MillionSiblings", [] { return with_parts(times(1000000, "--b1\r\n")); }},
    {"EqualHeaders", [] { return times(100000, "Received: x\r\n") + kLast; }},
    {"HeadersThatCountUp", [] { return each(50000, [](int i) { return "A." + number(i) + ": x\r\nA: y\r\n"; }) + kLast; }},
    {"FoldedHeader",
     [] { return "Subject: x\r\n" + times(100000, " 45 characters of a header line that go on and o\r\n") + kLast; }},
    {"HeaderWithoutEnd", [] { return times(200000, "X: 12345678901234567890\r\n"); }, ""},
    {"SubjectOfWords", [] { return "Subject: " + times(400000, "=?utf-8?B?w6TDtsO8?= \r\n ") + "\r\n" + kLast; }},
    {"SubjectOfGluedWords", [] { return "Subject: x " + times(400000, "=?utf-8?Q?=C3=A4?=") + "\r\n" + kLast; }},
    {"SubjectOfHalfWords", [] { return "Subject: a" + times(1000000, "=?x?B?") + times(500000, "?=") + "\r\n" + kLast; }},
    {"Parameters",
     [] { return "Content-Type: text/plain" + times(200000, "; a=\"\\\"\"; b*0*=c;\"") + "\r\n\r\nzuletzt"; }, ""},
    {"Recipients", [] { return "To: " + times(300000, "a@b, ;") + "\r\n" + kLast; }},
    {"EnvelopeRecipients",
     [] { return "Envelope-To: " + each(100000, [](int i) { return number(i) + "@b "; }) + "\r\n" + kLast; }},
    {"BoundariesThatNeverCome",
     [] {
       return with_parts(each(5000, [](int i) {
         return "Content-Type: multipart/mixed; boundary=never" + number(i) + "\r\n\r\n" + std::string(1000, 'x') + kNext;
       }));
     }},
    {"BoundariesThatBeginEachOther",
     [] { return each(1000, [](int i) { return multipart(times(1000 - i, "b")); }) + kLast; }},
    {"BoundaryOfOneCharacter", [] { return multipart("a") + kText + std::string(2000000, 'a') + "zuletzt"; }},
    {"HeadersInsideHeaders", [] { return multipart("b") + "X: y\r\n" + times(20000, "b\r\nX: y\r\n") + "\r\n--b--"; }, ""},
    {"EmptyBoundaries",
     [] { return std::string("Content-Type: multipart/mixed; boundary=\"\"; boundary=\" \"\r\n\r\n-- \r\n\r\nzuletzt"); }},
    {"EmbeddedMails", [] { return each(1000, numbered_mail) + kLast; }},
    {"EmbeddedInOneBoundary", [] { return times(1000, multipart("b1") + kEmbedded) + kLast; }},
    {"EmbeddedWithoutMultipart", [] { return times(1000, kEmbedded) + kLast; }},
    {"LargeEmbeddedMails",
     [] { return each(100, numbered_mail) + kText + std::string(4000000, 'x') + "zuletzt"; }},
    {"OpenTags",
     [] { return "Content-Type: text/html\r\n\r\n" + times(1000000, "<") + times(200000, "&#x<b") + "zuletzt"; }},
    {"Zeros", [] { return times(1000, {"X\0Y: \0\r\n", 9}) + multipart("b1") + kLast + std::string(1000000, '\0'); }},
    {"BareLineFeeds",
     [] { return "Subject: x\r\nContent-Type: text/plain\n\n" + times(1000000, "\n") + "\r\n\r\nzuletzt"; }},
    {"JunkInBase64",
     [] {
       return multipart("b1") + "Content-Type: a/b; name=a.bin\r\nContent-Transfer-Encoding: base64\r\n\r\n" +
              times(300000, "=Q\x80*U=\r\n") + "enVsZXR6dA==\r\n--b1--";
     }},
    {"FieldsNamedLikeParameters",
     [] {
       return std::string() + "boundary: x\r\ncharset: y\r\nContent-Type_Media: z\r\nname: ../n\r\n"
              "Content-Type: text/plain\r\nContent-Type: multipart/mixed; boundary=x\r\n\r\nzuletzt";
     }},
    {"Charsets",
     [] {
       return with_parts(each(2000, [](int i) {
         return "Content-Type: text/plain; charset=\"utf-16," + number(i) + std::string(200, 'x') + "\"\r\n\r\nx" + kNext;
       }));
     }},
    {"Ends",
     [] {
       return std::string("Date: Fri, 99 Foo 99999999999 99:99:99 +9999\r\nSubject: %\r\nX: =?\r\nContent-Type: text/plain; "
                          "a*=utf-8''%\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\nzuletzt=");
     }},
    {"QuotedSizeNotice",
     [] {
       return kText + times(100000, "Diese Mail (") +
              ") ist gr\xF6\xDF" "er als die maximal erlaubte Mailgr\xF6\xDF" "e (zuletzt";
     }},
};

// Whether a value of the record holds the text, at any depth.
bool holds(const YObject& record, const std::string& text) {
  for (int i = 0; i < record.GetStringKeyCount(); ++i)
    if (record.GetString(record.GetStringKey(i)).str().find(text) != std::string::npos) return true;
  return false;
}

class HostileMail : public DecodeTest, public testing::WithParamInterface<std::tuple<std::size_t, bool>> {};

TEST_P(HostileMail, IsDecodedInBounds) {
  const Hostile& hostile = kMails[std::get<0>(GetParam())];
  const bool readable = std::get<1>(GetParam());
  if (readable) set("Lesefreundlich", "1");
  const YString file(folder_.write("in/mail.eml", hostile.make()).string());
  const std::size_t size = std::filesystem::file_size(folder_ / "in/mail.eml");
  const bool sees_peak = reset_peak_memory();
  const std::size_t memory_before = memory_kib("VmRSS:");
  const std::clock_t start = std::clock();
  ASSERT_TRUE(YMIMEMessage(YString(), 0, 10240, 0).Decode(file, &mail_, 0));
  EXPECT_LE(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC, kSlowness);
  if (kMeasuresMemory && sees_peak) {
    EXPECT_LE(memory_kib("VmHWM:"), memory_before + size / 1024 + kMemoryKib);
  }
  EXPECT_THAT(files_left(), testing::ElementsAre("in"));
  EXPECT_TRUE(!readable || holds(mail_, hostile.kept));
}

INSTANTIATE_TEST_SUITE_P(
    All, HostileMail, testing::Combine(testing::Range<std::size_t>(0, std::size(kMails)), testing::Bool()),
    [](const auto& info) {
      return std::string(kMails[std::get<0>(info.param)].name) + (std::get<1>(info.param) ? "Readable" : "Literal");
    });

// As many attachments as names, none of them under another's name or out of the folder.
TEST_F(DecodeTest, HostileNamesLoseNoAttachment) {
  std::string mail = multipart("b1");
  std::size_t count = 0;
  for (const std::string& name : kNames) mail += attachment(name, "Inhalt " + std::to_string(count++));
  for (const std::string subtype : {"../../x", "x\x01" "BETREFF", "", "calendar/../.."})
    mail += "Content-Type: a/" + subtype + "\r\n\r\nInhalt " + std::to_string(count++) + kNext;
  ASSERT_TRUE(decode(mail + "--\r\n"));
  EXPECT_THAT(files_left(), testing::IsEmpty());
  ASSERT_EQ(attachments().size(), count);
  count = 0;
  for (const std::string& name : attachments()) {
    EXPECT_EQ(mail_.GetString(name), "Inhalt " + std::to_string(count++)) << printable(name);
    EXPECT_EQ(name.find_first_of(std::string_view("/\\:\0\r\n", 6)), std::string::npos) << printable(name);
    EXPECT_TRUE(name != "." && name != ".." && name.size() < 256) << printable(name);
  }
}

TEST_F(DecodeTest, PlantedLinksAreNotFollowed) {
  const auto victim = folder_.write("victim", "mine");
  const std::filesystem::path temporary = temporary_ / ("yinet-" + std::to_string(geteuid()));
  std::filesystem::create_directory(temporary);
  std::filesystem::permissions(temporary, std::filesystem::perms::owner_all);
  for (const std::filesystem::path& folder : {folder_.path(), temporary}) {
    std::filesystem::create_symlink(victim, folder / "a.bin");
    std::filesystem::create_symlink("/nowhere/at/all", folder / "A_2.bin");
  }
  ASSERT_TRUE(decode(multipart("b1") + attachment("a.bin", "eins") + attachment("a.bin", "zwei")));
  EXPECT_EQ(read_file(victim), "mine");
  EXPECT_THAT(attachments(), testing::ElementsAre("a_3.bin", "a_4.bin"));
}

}  // namespace
}  // namespace yinet::test
