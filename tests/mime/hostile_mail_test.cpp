// Mails that nobody should have sent. Each is decoded as scripts do it and as people do it, and is held to a second of
// processor time and 256 MB beside its own size; nothing may appear outside the result, and what a person would call
// content must be in there.

#include <gmock/gmock.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <vector>

#include "mime/decode_fixture.h"
#include "support/bytes.h"
#include "support/memory.h"

namespace yinet::test {
namespace {

using testing::IsEmpty;

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

template <typename Piece>
std::string times(int count, Piece piece) {
  std::string text;
  for (int i = 0; i < count; ++i) {
    if constexpr (std::is_invocable_v<Piece, int>) text += piece(i);
    else text += piece;
  }
  return text;
}
std::string number(int i) { return std::to_string(i); }
std::string multipart(const std::string& boundary) {
  return "Content-Type: multipart/mixed; boundary=\"" + boundary + "\"\r\n\r\n--" + boundary + "\r\n";
}
const std::string kText = "Content-Type: text/plain\r\n\r\n";
const std::string kEmbedded = "Content-Type: message/rfc822\r\n\r\n";
std::string attachment(const std::string& name) {
  return "Content-Type: a/b\r\nContent-Disposition: attachment; filename=\"" + name + "\"\r\n\r\n";
}

const std::vector<std::string> kNames = {"..", ".", "-rf", std::string(300, 'n'), "/////", "a\x01" "b", "../../x",
                                         "C:\\x", "TEMP:x", "mail.eml", "MAIL.EML", "Nachricht.htm", "\xE2\x80\xAE" "fdp",
                                         std::string("a\0b", 3), "BETREFF", "~EML", "|", std::string(300, '\xE4') + ".pdf"};

struct Hostile {
  std::string name;
  std::function<std::string()> make;
  std::string kept = "zuletzt";  // what a readable decode has somewhere in its result

  friend void PrintTo(const Hostile& hostile, std::ostream* out) { *out << hostile.name; }
};
const Hostile kMails[] = {
    {"NestedMultiparts", [] {
       return times(10000, [](int i) { return multipart("x" + number(i) + "x"); }) + kText + "zuletzt\r\n" +
              times(10000, [](int i) { return "--x" + number(9999 - i) + "x--\r\n"; });
     }},
    {"NestedWithOneBoundary", [] { return times(10000, multipart("b1")) + kText + "zuletzt\r\n--b1--\r\n"; }},
    {"ManyTexts", [] { return multipart("b1") + times(10000, kText + "x\r\n--b1\r\n") + kText + "zuletzt\r\n--b1--"; }},
    {"ManyEqualNames",
     [] { return multipart("b1") + times(9998, attachment("bild.jpg") + "x\r\n--b1\r\n") + attachment("bild.jpg") + "zuletzt\r\n--b1--"; }},
    {"MillionSiblings", [] { return multipart("b1") + times(1000000, "--b1\r\n") + kText + "zuletzt\r\n--b1--"; }},
    {"EqualHeaders", [] { return times(100000, "Received: x\r\n") + kText + "zuletzt"; }},
    {"HeadersThatCountUp", [] { return times(50000, [](int i) { return "A." + number(i) + ": x\r\nA: y\r\n"; }) + kText + "zuletzt"; }},
    {"FoldedHeader", [] { return "Subject: x\r\n" + times(100000, " 45 characters of a header line that go on and o\r\n") + kText + "zuletzt"; }},
    {"HeaderWithoutEnd", [] { return times(200000, "X: 12345678901234567890\r\n"); }, ""},
    {"SubjectOfWords", [] { return "Subject: " + times(400000, "=?utf-8?B?w6TDtsO8?= \r\n ") + "\r\n" + kText + "zuletzt"; }},
    {"SubjectOfGluedWords", [] { return "Subject: x " + times(400000, "=?utf-8?Q?=C3=A4?=") + "\r\n" + kText + "zuletzt"; }},
    {"SubjectOfHalfWords", [] { return "Subject: a" + times(1000000, "=?x?B?") + times(500000, "?=") + "\r\n" + kText + "zuletzt"; }},
    {"Parameters", [] { return "Content-Type: text/plain" + times(200000, "; a=\"\\\"\"; b*0*=c;\"") + "\r\n\r\nzuletzt"; }, ""},
    {"Recipients", [] { return "To: " + times(300000, "a@b, ;") + "\r\nEnvelope-To: " + times(100000, [](int i) { return number(i) + "@b "; }) +
                               "\r\n" + kText + "zuletzt"; }},
    {"BoundariesThatNeverCome",
     [] {
       return multipart("b1") + times(5000, [](int i) {
                return "Content-Type: multipart/mixed; boundary=never" + number(i) + "\r\n\r\n" + std::string(1000, 'x') + "\r\n--b1\r\n";
              }) + kText + "zuletzt\r\n--b1--";
     }},
    {"BoundariesThatBeginEachOther",
     [] { return times(1000, [](int i) { return multipart(std::string(static_cast<std::size_t>(1000 - i), 'b')); }) + kText + "zuletzt\r\n"; }},
    {"BoundaryOfOneCharacter", [] { return multipart("a") + kText + std::string(2000000, 'a') + "zuletzt"; }},
    {"HeadersInsideHeaders", [] { return multipart("b") + "X: y\r\n" + times(20000, "b\r\nX: y\r\n") + "\r\nzuletzt\r\n--b--"; }, ""},
    {"EmptyBoundaries", [] { return "Content-Type: multipart/mixed; boundary=\"\"; boundary=\" \"\r\n\r\n-- \r\n\r\nzuletzt"; }},
    {"EmbeddedMails", [] { return times(1000, [](int i) { return multipart("x" + number(i) + "x") + kEmbedded; }) + kText + "zuletzt"; }},
    {"EmbeddedInOneBoundary", [] { return times(1000, multipart("b1") + kEmbedded) + kText + "zuletzt"; }},
    {"EmbeddedWithoutMultipart", [] { return times(1000, kEmbedded) + kText + "zuletzt"; }},
    {"LargeEmbeddedMails",
     [] { return times(100, [](int i) { return multipart("x" + number(i) + "x") + kEmbedded; }) + kText + std::string(4000000, 'x') + "zuletzt"; }},
    {"OpenTags", [] { return "Content-Type: text/html\r\n\r\n" + times(1000000, "<") + times(200000, "&#x<b") + "zuletzt"; }},
    {"Zeros", [] { return times(1000, std::string("X\0Y: \0\r\n", 9)) + multipart("b1") + kText + std::string(1000000, '\0') + "zuletzt"; }},
    {"BareLineFeeds", [] { return "Subject: x\r\nContent-Type: text/plain\n\n" + times(1000000, "\n") + "\r\n\r\nzuletzt"; }},
    {"JunkInBase64",
     [] { return multipart("b1") + "Content-Type: a/b; name=a.bin\r\nContent-Transfer-Encoding: base64\r\n\r\n" +
                 times(300000, "=Q\x80*U=\r\n") + "enVsZXR6dA==\r\n--b1--"; }},
    {"FieldsNamedLikeParameters",
     [] { return "boundary: x\r\ncharset: y\r\nContent-Type_Media: z\r\nname: ../n\r\nContent-Type: text/plain\r\n"
                 "Content-Type: multipart/mixed; boundary=x\r\n\r\nzuletzt"; }},
    {"Charsets",
     [] { return multipart("b1") + times(2000, [](int i) { return "Content-Type: text/plain; charset=\"utf-16," + number(i) + std::string(200, 'x') +
                                                                  "\"\r\n\r\nx\r\n--b1\r\n"; }) + kText + "zuletzt\r\n--b1--"; }},
    {"Ends", [] { return std::string("Date: Fri, 99 Foo 99999999999 99:99:99 +9999\r\nSubject: %\r\nX: =?\r\nContent-Type: text/plain; a*=utf-8''%\r\n"
                                     "Content-Transfer-Encoding: quoted-printable\r\n\r\nzuletzt="); }},
    {"QuotedSizeNotice", [] { return kText + times(100000, "Diese Mail (") + ") ist gr\xF6\xDF" "er als die maximal erlaubte Mailgr\xF6\xDF" "e (zuletzt"; }},
    {"Names", [] {
       std::string mail = multipart("b1");
       for (const std::string& name : kNames) mail += attachment(name) + "zuletzt\r\n--b1\r\n";
       for (const char* subtype : {"../../x", "x\x01" "BETREFF", "", "calendar/../.."}) mail += std::string("Content-Type: a/") + subtype + "\r\n\r\nzuletzt\r\n--b1\r\n";
       return mail;
     }},
};

// Whether a value of the record holds the text, at any depth.
bool holds(const YObject& record, const std::string& text) {
  for (int i = 0; i < record.GetStringKeyCount(); ++i)
    if (record.GetString(record.GetStringKey(i)).str().find(text) != std::string::npos) return true;
  return false;
}

class HostileMail : public DecodeTest, public testing::WithParamInterface<std::tuple<Hostile, bool>> {};

TEST_P(HostileMail, IsDecodedInBounds) {
  const auto& [hostile, readable] = GetParam();
  if (readable) set("Lesefreundlich", "1");
  std::size_t size = 0;
  {
    const std::string text = hostile.make();
    size = text.size();
    folder_.write("in/mail.eml", text);
  }
  const YString file((folder_ / "in/mail.eml").string());
  const bool sees_peak = reset_peak_memory();
  const std::size_t memory_before = memory_kib("VmRSS:");
  const std::clock_t start = std::clock();
  ASSERT_TRUE(YMIMEMessage(YString(), 0, 10240, 0).Decode(file, &mail_, 0));
  EXPECT_LE(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC, kSlowness);
  if (kMeasuresMemory && sees_peak) {
    EXPECT_LE(memory_kib("VmHWM:"), memory_before + size / 1024 + kMemoryKib);
  }
  EXPECT_THAT(files_left(), testing::ElementsAre("in"));
  if (readable) {
    EXPECT_TRUE(hostile.kept.empty() || holds(mail_, hostile.kept));
  }
  for (const std::string& name : attachments()) {
    EXPECT_EQ(name.find_first_of(std::string_view("/\\:\0\r\n", 6)), std::string::npos) << printable(name);
    EXPECT_TRUE(name != "." && name != ".." && name.size() < 256) << printable(name);
    EXPECT_NE(mail_.Find<YBuffer>(name), nullptr) << printable(name);
  }
}

INSTANTIATE_TEST_SUITE_P(All, HostileMail, testing::Combine(testing::ValuesIn(kMails), testing::Bool()),
                         [](const auto& info) { return std::get<0>(info.param).name + (std::get<1>(info.param) ? "Readable" : "Literal"); });

// As many attachments as names, none of them under another's name.
TEST_F(DecodeTest, HostileNamesLoseNoAttachment) {
  std::string mail = multipart("b1");
  for (std::size_t i = 0; i < kNames.size(); ++i) mail += attachment(kNames[i]) + "Inhalt " + number(static_cast<int>(i)) + "\r\n--b1\r\n";
  ASSERT_TRUE(decode(mail + "--\r\n"));
  std::vector<std::string> names = attachments();
  ASSERT_EQ(names.size(), kNames.size());
  for (std::size_t i = 0; i < names.size(); ++i)
    EXPECT_EQ(mail_.GetString(names[i]), "Inhalt " + number(static_cast<int>(i))) << printable(names[i]);
}

TEST_F(DecodeTest, PlantedLinksAreNotFollowed) {
  const auto victim = folder_.write("victim", "mine");
  const std::string temporary = (temporary_ / ("yinet-" + number(static_cast<int>(geteuid())))).string();
  std::filesystem::create_directory(temporary);
  std::filesystem::permissions(temporary, std::filesystem::perms::owner_all);
  for (const std::filesystem::path& folder : {folder_.path(), std::filesystem::path(temporary)}) {
    std::filesystem::create_symlink(victim, folder / "a.bin");
    std::filesystem::create_symlink("/nowhere/at/all", folder / "A_2.bin");
  }
  ASSERT_TRUE(decode(multipart("b1") + attachment("a.bin") + "eins\r\n--b1\r\n" + attachment("a.bin") + "zwei\r\n--b1--"));
  EXPECT_EQ(read_file(victim), "mine");
  EXPECT_THAT(attachments(), testing::ElementsAre("a_3.bin", "a_4.bin"));
}

TEST_F(DecodeTest, AFolderThatVanishesLosesNoAttachment) {
  class Vanishing : public YMIMEMessage {
   public:
    explicit Vanishing(std::filesystem::path folder) : YMIMEMessage(YString(), 0, 10240, 0), folder_(std::move(folder)) {}
    void m_DecodeHeader(YObject* record, YString& header) override {
      YMIMEMessage::m_DecodeHeader(record, header);
      if (record->GetString("filename") == "b.bin") std::filesystem::remove_all(folder_);
    }

   private:
    std::filesystem::path folder_;
  };
  folder_.write("in/mail.eml", multipart("b1") + attachment("a.bin") + "eins\r\n--b1\r\n" + attachment("b.bin") + "zwei\r\n--b1--");
  ASSERT_TRUE(Vanishing(folder_ / "in").Decode(YString((folder_ / "in/mail.eml").string()), &mail_, 0));
  EXPECT_EQ(mail_.GetString("b.bin"), "zwei");  // a.bin went with its folder
}

TEST_F(DecodeTest, EightThreadsDecodeTheSameMail) {
  folder_.write("mail.eml", multipart("b1") + times(50, attachment("a.bin") + "Inhalt\r\n--b1\r\n"));
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t)
    threads.emplace_back([this] {
      YObject mail;
      EXPECT_TRUE(YMIMEMessage(YString(), 0, 10240, 0).Decode(YString((folder_ / "mail.eml").string()), &mail, 0));
      const YString list = mail.GetString("ANLAGEN");
      EXPECT_EQ(list.GetItemCount(), 50);
      for (const auto name : list.Items()) EXPECT_EQ(mail.GetString(name), "Inhalt");
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(files_left(), IsEmpty());
}

}  // namespace
}  // namespace yinet::test
