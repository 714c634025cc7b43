#include <gmock/gmock.h>

#include <fstream>

#include "decode_fixture.h"
#include "support/log_capture.h"
#include "yinet/host/text.h"

namespace yinet::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kEmbedded = "\r\n\r\nEingebettete Mail:\r\n\r\n";

// A multipart/mixed mail of these parts, each with its header.
std::string mixed(const std::vector<std::string>& parts, std::string_view header = "Subject: x\r\n") {
  std::string mail(header);
  mail += "Content-Type: multipart/mixed; boundary=\"=_b\"\r\n\r\n";
  for (const auto& part : parts) mail += "--=_b\r\n" + part + "\r\n";
  return mail + "--=_b--\r\n";
}

TEST_F(DecodeTest, ReadsAPlainMail) {
  ASSERT_TRUE(decode("From: =?utf-8?Q?M=C3=BCller?= <m@x.de>\r\nTo: \"A\" <a@x.de>, b@x.de\r\nCc: c@x.de\r\n"
                     "Reply-To: R <r@x.de>\r\nEnvelope-To: <e@x.de>, e@x.de f@x.de\r\nSubject: =?utf-8?B?R3LDvMOfZQ==?=\r\n"
                     "Date: Sat, 21 Nov 2026 10:00:00 +0100\r\nX-PGDocID: 17\r\nContent-Type: text/plain\r\n\r\nHallo\r\n..Punkt\r\n.\r\n"));
  EXPECT_EQ(text("ABSENDER"), "m@x.de");
  EXPECT_EQ(text("ABSENDERNAME"), "M\xFCller");
  EXPECT_EQ(text("EMPF\xC4NGER"), "a@x.de\x01" "b@x.de");
  EXPECT_EQ(text("KOPIE"), "c@x.de");
  EXPECT_EQ(text("ORIGEMPF\xC4NGER"), "e@x.de\x01" "f@x.de");
  EXPECT_EQ(text("AntwortAdresse"), "r@x.de");
  EXPECT_EQ(text("BETREFF"), "Gr\xFC\xDF" "e");
  EXPECT_EQ(text("NACHRICHT"), "Hallo\r\n.Punkt");
  EXPECT_EQ(text("MAILARCHIVID"), "17");
  ASSERT_NE(mail_.Find<YDateAndTime>("GESENDET"), nullptr);
  EXPECT_EQ(mail_.Find<YDateAndTime>("GESENDET")->EpochMilliseconds(), 1795251600000);
  EXPECT_FALSE(mail_.Exist("ANLAGEN"));
  EXPECT_FALSE(mail_.Exist("Header"));
}

TEST_F(DecodeTest, SubjectAndDateMayBeMissing) {
  ASSERT_TRUE(decode("From: a@x.de\r\nDate: 99999999999\r\n\r\n"));
  EXPECT_EQ(text("BETREFF"), "(Kein Betreff)");
  EXPECT_FALSE(mail_.Exist("GESENDET"));
  ASSERT_TRUE(decode("From: a@x.de\r\n\r\nText"));
  EXPECT_EQ(text("BETREFF"), "");
}

TEST_F(DecodeTest, FailsWithoutAMailAndWritesNothing) {
  LogCapture log;
  EXPECT_FALSE(decode(""));
  EXPECT_TRUE(mail_.IsEmpty());
  EXPECT_THAT(log.numbers(), ElementsAre(21071));
  YMIMEMessage message(YString(), 0, 10240, 0);
  EXPECT_FALSE(message.Decode(YString("fehlt.eml"), &mail_, 0));
  EXPECT_FALSE(message.Decode(YString(), &mail_, 8));
  EXPECT_FALSE(message.Decode(YString("Subject: x\r\n\r\n"), nullptr, 8));
  EXPECT_TRUE(mail_.IsEmpty());
}

TEST_F(DecodeTest, BodiesFollowTheirTransferEncodingAndCharset) {
  const struct { std::string_view header, body, expected; } kRows[] = {
      {"", "a=C3=A4=\r\nb\r\n", "a\xC3\xA4" "b"},                                   // untyped: quoted-printable
      {"Content-Type: text/plain; charset=utf-8", "\xC3\xA4 =41\r\n\r\n", "\xE4 =41"},
      {"Content-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: quoted-printable", "=C3=A4=\r\n!", "\xE4!"},
      {"Content-Type: text/plain; charset=UTF-8\r\nContent-Transfer-Encoding: BASE64", "w6TD\r\ntg==\r\n", "\xE4\xF6"},
      {"Content-Type: text/plain; charset=iso-8859-1\r\nContent-Transfer-Encoding: 8bit", "\x80\xE4", "\x80\xE4"},
      {"Content-Type: text/plain; charset=iso-8859-15\r\nContent-Transfer-Encoding: 8bit", "\xA4", "\x80"},
      {"Content-Type: text/plain; charset=koi8-r\r\nContent-Transfer-Encoding: 8bit", "a\xC1", "a\x1A"},
      {"Content-Type: text/plain; charset=nobody\r\nContent-Transfer-Encoding: binary", "\r\n..a\xE4", "\r\n..a\xE4"},
      {"Content-Type: TEXT/PLAIN\r\nContent-Transfer-Encoding: 7bit", "a=41\r\n..b", "a=41\r\n.b"},
      {"Content-Type: text/plain\r\nContent-Transfer-Encoding: base64", "###",
       "Folgender Inhalt wurde in einer ung\xC3\xBCltigen Kodierung \xC3\xBC" "bermittelt: \r\n\r\n###"},
  };
  for (const auto& row : kRows) {
    ASSERT_TRUE(decode("Subject: x\r\n" + std::string(row.header) + (row.header.empty() ? "" : "\r\n") + "\r\n" +
                       std::string(row.body)));
    EXPECT_EQ(text("NACHRICHT"), row.expected) << row.header;
  }
}

TEST_F(DecodeTest, ServerTracesAroundAMailAreTakenOff) {
  ASSERT_TRUE(decode("+OK 120 octets\r\nSubject: x\r\n\r\nText\r\n.\r\n"));
  EXPECT_EQ(text("BETREFF"), "x");
  EXPECT_EQ(text("NACHRICHT"), "Text");
  ASSERT_TRUE(decode("Subject: x\n\nErste\nZweite\n"));
  EXPECT_EQ(text("NACHRICHT"), "Erste\r\nZweite");
  const std::string notice =
      "Diese Mail (12 KB) ist gr\xF6\xDF" "er als die maximal erlaubte Mailgr\xF6\xDF" "e (10 KB)";
  ASSERT_TRUE(decode(mixed({"Content-Type: text/plain\r\n\r\nweg"}) + notice));
  EXPECT_EQ(text("NACHRICHT"), notice);
}

TEST_F(DecodeTest, AlternativesGiveTheirPlainTextAndAnHtmlAttachment) {
  ASSERT_TRUE(decode("Subject: x\r\nContent-Type: multipart/alternative; boundary=abc\r\n\r\npreamble\r\n--abc\r\n"
                     "Content-Type: text/plain\r\n\r\nText\r\n--abc\r\nContent-Type: text/html\r\n\r\n<b>Text</b>\r\n"
                     "--abc--\r\n"));
  EXPECT_EQ(text("NACHRICHT"), "Text");
  EXPECT_THAT(attachments(), ElementsAre("Nachricht.htm"));
  EXPECT_EQ(mail_.Find<YBuffer>("Nachricht.htm")->view(), "<b>Text</b>");
  EXPECT_THAT(files_left(), IsEmpty());
}

TEST_F(DecodeTest, AnHtmlMailBecomesTextWithTheHtmlAttached) {
  ASSERT_TRUE(decode("Subject: x\r\nContent-Type: text/html; charset=utf-8\r\n\r\n<p>Gr\xC3\xBC&szlig;e</p>"));
  EXPECT_EQ(text("NACHRICHT"), "Gr\xFC\xDF" "e");
  EXPECT_EQ(mail_.GetFlags("NACHRICHT"), 1);
  EXPECT_EQ(mail_.Find<YBuffer>("Nachricht.htm")->view(), "<p>Gr\xFC&szlig;e</p>");
}

TEST_F(DecodeTest, LongTextsAreCutAndKeptWhole) {
  ASSERT_TRUE(decode("Subject: x\r\n\r\n" + std::string(10241, 'a')));
  EXPECT_THAT(attachments(), ElementsAre("Nachricht.txt"));
  EXPECT_EQ(mail_.Find<YBuffer>("Nachricht.txt")->Size(), 10241);
  EXPECT_EQ(text("NACHRICHT"),
            std::string(10240, 'a') +
                "...\r\n\r\n------- System-Hinweis:\r\nDiese Nachricht ist gr\xF6\xDF"
                "er als die zugelassenen 10 KB und wurde daher abgeschnitten! Die vollst\xE4ndige Nachricht befindet sich "
                "in der Datei \"Nachricht.txt\".");
  ASSERT_TRUE(decode("Subject: x\r\n\r\n" + std::string(10240, 'a')));
  EXPECT_TRUE(attachments().empty());
}

TEST_F(DecodeTest, AttachmentNamesStayInTheFolderAndApart) {
  const auto named = [](const std::string& name) {
    return "Content-Type: application/x; name=\"" + name + "\"\r\n\r\n" + name;
  };
  ASSERT_TRUE(decode(mixed({named("bild.jpg"), named("Bild.JPG"), named("../../etc/passwd"), named(".."), named("-rf"),
                            named("Nachricht.HTM"), named("a;b:c*?.txt"), named("/\\"), named("c\x01.txt"),
                            named(std::string(300, 'n') + ".pdf"), "Content-Type: text/calendar\r\n\r\nBEGIN",
                            "Content-Type: image/png\r\n\r\nx", "Content-Type: image/../../x\r\n\r\nx",
                            "Content-Type: image\r\n\r\nx"})));
  EXPECT_THAT(attachments(),
              ElementsAre("bild.jpg", "Bild_2.JPG", ".._.._etc_passwd", "..xxx", "-rf.xxx", "Nachricht_orig.htm",
                          "a_b_c__.txt", "__.xxx", "c_.txt", std::string(236, 'n') + ".pdf", "Termin.ics", "Embedded.png",
                          "Embedded...", "Embedded.xxx"));
  EXPECT_EQ(mail_.Find<YBuffer>("Bild_2.JPG")->view(), "Bild.JPG");
  EXPECT_THAT(files_left(), IsEmpty());
}

TEST_F(DecodeTest, NamesInUseInTheFolderAreNotTouched) {
  folder_.write("BILD.jpg", "alt");
  std::filesystem::create_symlink("/etc/passwd", folder_ / "x.txt");
  ASSERT_TRUE(decode(mixed({"Content-Type: image/jpeg; name=bild.jpg\r\n\r\nneu",
                            "Content-Type: a/b; name=x.txt\r\n\r\nneu"})));
  EXPECT_THAT(attachments(), ElementsAre("bild_2.jpg", "x_2.txt"));
  EXPECT_EQ(read_file(folder_ / "BILD.jpg"), "alt");
}

TEST_F(DecodeTest, AttachmentsFollowTheirTransferEncoding) {
  const struct { std::string_view encoding, content, expected; } kRows[] = {
      {"", "a=41\r\n..b", "a=41\r\n..b"},
      {"base64", "QUJD\r\nRA==\r\n\r\n", "ABCD"},
      {"base64", "QU!JD*RA=\r\n=", "ABCD"},                 // junk is passed over
      {"base64", "QQ==\r\nQg==\r\n", "AB"},                 // padding in the middle
      {"base64", "QUJDR", "ABC"},
      {"8bit", "a=41", "a=41"},
      {"quoted-printable", "a=41=\r\nb", "aAb"},
      {"7bit", "a=41", "aA"},
      {"x-unknown", "a=41", "a=41"},
  };
  for (const auto& row : kRows) {
    const std::string part = "Content-Type: a/b; name=f.bin\r\nContent-Transfer-Encoding: " + std::string(row.encoding) +
                             "\r\n\r\n" + std::string(row.content);
    ASSERT_TRUE(decode(mixed({part})));
    ASSERT_NE(mail_.Find<YBuffer>("f.bin"), nullptr) << row.content;
    EXPECT_EQ(mail_.Find<YBuffer>("f.bin")->view(), row.expected) << row.encoding;
    ASSERT_TRUE(decode("Subject: single\r\n" + part)) << "a single part goes the same way";
    EXPECT_EQ(mail_.Find<YBuffer>("f.bin")->view(), row.expected) << row.encoding;
    EXPECT_THAT(attachments(), ElementsAre("f.bin"));
  }
  ASSERT_TRUE(decode(mixed({"Content-Type: text/calendar\r\nContent-Transfer-Encoding: 7bit\r\n\r\na=41"})));
  EXPECT_EQ(mail_.Find<YBuffer>("Termin.ics")->view(), "a=41");
}

TEST_F(DecodeTest, EmbeddedMailsAddTheirTextAndTheirAttachments) {
  const std::string inner = mixed({"Content-Type: text/plain\r\n\r\ninnen", "Content-Type: a/b; name=f.bin\r\n\r\nx"});
  ASSERT_TRUE(decode(mixed({"Content-Type: text/plain\r\n\r\neins", "Content-Type: text/plain\r\n\r\nzwei",
                            "Content-Type: message/rfc822\r\n\r\n" + replaced(inner, "=_b", "=_i"),
                            "Content-Type: message/delivery-status\r\n\r\nStatus: 5\r\n",
                            "Content-Type: message/partial\r\n\r\nweg"})));
  EXPECT_EQ(text("NACHRICHT"), "eins" + kEmbedded + "zwei" + kEmbedded + "innen");
  EXPECT_THAT(attachments(), ElementsAre("Embedded.rfc822", "delivery-status.txt", "f.bin"));
  EXPECT_THAT(files_left(), IsEmpty());
}

TEST_F(DecodeTest, AMissingEndLosesNoPartThatHasADelimiter) {
  const std::string open = "Content-Type: multipart/mixed; boundary=b1\r\n\r\n--b1\r\nContent-Type: text/plain\r\n\r\n"
                           "eins\r\n--b1\r\nContent-Type: text/plain\r\n\r\nzwei\r\n";
  ASSERT_TRUE(decode(open));
  EXPECT_EQ(text("NACHRICHT"), "eins");  // the last delimiter is the end
  set("Lesefreundlich", "1");
  ASSERT_TRUE(decode(open));
  EXPECT_EQ(text("NACHRICHT"), "eins" + kEmbedded + "zwei");
}

TEST_F(DecodeTest, ReadableDecodingMindsLineStartsOnly) {
  const std::string mail = "Content-Type: multipart/mixed; boundary=b\r\n\r\nabout b\r\n--b \r\n\r\nno b here, --b\r\n"
                           "--bb\r\n--b\r\nContent-Type: a/x; name==f.bin\r\nContent-Transfer-Encoding: 7bit\r\n\r\na=41\r\n--b--";
  set("Lesefreundlich", "1");
  ASSERT_TRUE(decode(mail));
  EXPECT_EQ(text("NACHRICHT"), "no b here, --b\r\n--bb");
  EXPECT_EQ(mail_.Find<YBuffer>("=f.bin")->view(), "a=41");
}

TEST_F(DecodeTest, ReadableDecodingTakesLinesThatEndWithCrAlone) {
  const std::string mail = "Subject: x\r\rErste\rZweite\r";
  ASSERT_TRUE(decode(mail));
  EXPECT_EQ(text("NACHRICHT"), "");
  set("Lesefreundlich", "1");
  ASSERT_TRUE(decode(mail));
  EXPECT_EQ(text("BETREFF"), "x");
  EXPECT_EQ(text("NACHRICHT"), "Erste\r\nZweite");
  ASSERT_TRUE(decode("Subject: x\r\n\r\na\rb"));  // beside any LF a CR is a character like others
  EXPECT_EQ(text("NACHRICHT"), "a\rb");
}

TEST_F(DecodeTest, PartInformationDescribesWithoutDecoding) {
  const auto image = [](std::string_view name) {
    return "Content-Type: image/jpeg; name=" + std::string(name) + "\r\nContent-Transfer-Encoding: base64\r\n\r\nQUJD";
  };
  const std::string mail = mixed({"Content-Type: text/plain; charset=utf-8\r\n\r\nText", image("bild.jpg"),
                                  image("bild.jpg"), image("bild.jpg"), "Content-Type: text/html\r\n\r\nx"});
  YObject result;
  ASSERT_TRUE(YMIMEMessage(YString(), 0, 10240, 0).Decode(YString(mail), &result, 8 | 2));
  EXPECT_FALSE(result.Exist("NACHRICHT") && !result.GetString("NACHRICHT").IsEmpty());
  EXPECT_EQ(result.GetString("BETREFF"), "x");
  EXPECT_EQ(result.Find<YObject>("Header")->GetString("Subject"), "x");
  const YObject& information = *result.Find<YObject>("PARTINFORMATION");
  EXPECT_EQ(information.Find<YObject>("PLAINBODY")->GetString("CHARSET"), "utf-8");
  EXPECT_EQ(information.Find<YObject>("HTMLBODY")->GetString("CONTENTTYPE"), "text/html");
  const YObject& files = *information.Find<YObject>("ANLAGENINFO");
  ASSERT_EQ(files.GetStringKeyCount(), 3);
  EXPECT_EQ(files.GetStringKey(0), "bild.jpg");
  EXPECT_EQ(files.GetStringKey(1), "bild23$");
  EXPECT_EQ(files.GetStringKey(2), "bild23$23$");
  EXPECT_EQ(files.Find<YObject>("bild.jpg")->GetString("TRANSFERENCODING"), "base64");
}

TEST_F(DecodeTest, ShortRecordsLeaveTheTextOut) {
  ASSERT_TRUE(decode("From: N <a@x.de>\r\nReply-To: r@x.de\r\nSubject: x\r\n\r\nText", 4));
  EXPECT_EQ(text("ABSENDER"), "a@x.de");
  for (const char* key : {"ABSENDERNAME", "AntwortAdresse", "NACHRICHT"}) EXPECT_FALSE(mail_.Exist(key)) << key;
}

TEST_F(DecodeTest, AFolderThatCannotBeWrittenToLosesNoAttachment) {
  // A plain file stands where the folder of the mail would be: nothing can be created below it.
  folder_.write("mail.eml", mixed({"Content-Type: a/b; name=f.bin\r\n\r\nxyz"}));
  std::filesystem::create_directory_symlink("/proc/self", folder_ / "link");
  LogCapture log;
  const std::string mail = mixed({"Content-Type: a/b; name=f.bin\r\n\r\nxyz"});
  class Elsewhere : public YMIMEMessage {
   public:
    Elsewhere() : YMIMEMessage(YString(), 0, 10240, 0) {}
    void m_DecodeHeader(YObject* record, YString& header) override {
      m_MailDir = YString("/proc/nowhere/");
      YMIMEMessage::m_DecodeHeader(record, header);
    }
  } message;
  ASSERT_TRUE(message.Decode(YString((folder_ / "mail.eml").string()), &mail_, 0));
  EXPECT_EQ(mail_.Find<YBuffer>("f.bin")->view(), "xyz");
  EXPECT_THAT(log.numbers(), IsEmpty());
}

TEST_F(DecodeTest, ASecondDecodeStartsClean) {
  const std::string one = (folder_.write("eins.eml", mixed({"Content-Type: message/rfc822\r\n\r\nSubject: i\r\n\r\ninnen"},
                                                           "To: a@x.de\r\nSubject: x\r\n"))).string();
  const std::string two = (folder_.write("zwei.eml", "To: b@x.de\r\nSubject: y\r\n\r\nText")).string();
  YMIMEMessage message(YString(), 0, 10240, 0);
  YObject first, second;
  ASSERT_TRUE(message.Decode(YString(one), &first, 0));
  ASSERT_TRUE(message.Decode(YString(two), &second, 0));
  EXPECT_EQ(second.GetString("NACHRICHT"), "Text");
  EXPECT_EQ(second.GetString("EMPF\xC4NGER"), "b@x.de");
}

}  // namespace
}  // namespace yinet::test
