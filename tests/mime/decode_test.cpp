#include <gmock/gmock.h>

#include <new>

#include "mime/decode_fixture.h"
#include "support/log_capture.h"
#include "yinet/host/text.h"
#include "yinet/host/yfile.h"
#include "yinet/script/functions.h"

namespace yinet::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kEmbedded = "\r\n\r\nEingebettete Mail:\r\n\r\n";
const std::string kText = "Content-Type: text/plain\r\n\r\n";
const std::string kMail = "Content-Type: message/rfc822\r\n\r\n";

// A multipart/mixed mail of these parts, each with its header.
std::string mixed(const std::vector<std::string>& parts, std::string_view header = "Subject: x\r\n") {
  std::string mail = std::string(header) + "Content-Type: multipart/mixed; boundary=\"=_b\"\r\n\r\n";
  for (const auto& part : parts) mail += "--=_b\r\n" + part + "\r\n";
  return mail + "--=_b--\r\n";
}
std::string file_part(const std::string& name, const std::string& content, const std::string& fields = "") {
  return "Content-Type: a/b; name=\"" + name + "\"\r\n" + fields + "\r\n" + content;
}

class MailTest : public DecodeTest {
 protected:
  // Text and attachments of the decoded mail: "text[name=bytes][name=bytes]".
  std::string result_of(std::string_view mail) {
    if (!decode(mail)) return "not decoded";
    std::string result = text("NACHRICHT");
    for (const auto& name : attachments()) result += "[" + name + "=" + text(name) + "]";
    EXPECT_THAT(files_left(), IsEmpty());
    return result;
  }
};

TEST_F(MailTest, EnvelopeComesFromTheHeader) {
  ASSERT_TRUE(decode("From: =?utf-8?Q?M=C3=BCller?= <m@x.de>\r\nTo: \"A\" <a@x.de>, b@x.de\r\nCc: c@x.de\r\n"
                     "Reply-To: R <r@x.de>\r\nEnvelope-To: <e@x.de>, e@x.de\r\nX-Original-To: f@x.de \"g@x.de =h@x.de i\r\n"
                     "Subject: =?utf-8?B?R3LDvMOfZQ==?=\r\nDate: Sat, 21 Nov 2026 10:00:00 +0100\r\n"
                     "X-PGDocID: 18\r\nX-MAILVALT-MailArchiv-ID: 17\r\n\r\nHallo"));
  const std::pair<const char*, const char*> kFields[] = {
      {"ABSENDER", "m@x.de"}, {"ABSENDERNAME", "M\xFCller"}, {"EMPF\xC4NGER", "a@x.de\x01" "b@x.de"}, {"KOPIE", "c@x.de"},
      {"ORIGEMPF\xC4NGER", "e@x.de\x01" "f@x.de"}, {"AntwortAdresse", "r@x.de"}, {"BETREFF", "Gr\xFC\xDF" "e"},
      {"NACHRICHT", "Hallo"}, {"MAILARCHIVID", "18"}};
  for (const auto& [key, value] : kFields) EXPECT_EQ(text(key), value) << key;
  ASSERT_NE(mail_.Find<YDateAndTime>("GESENDET"), nullptr);
  EXPECT_EQ(mail_.Find<YDateAndTime>("GESENDET")->EpochMilliseconds(), 1795251600000);
  ASSERT_TRUE(decode("From: N <a@x.de>\r\nReply-To: r@x.de\r\nDate: 99999999999\r\n\r\nText", 4));  // a short record
  EXPECT_EQ(text("ABSENDER") + text("BETREFF"), "a@x.de");
  for (const char* key : {"ABSENDERNAME", "AntwortAdresse", "NACHRICHT"}) EXPECT_FALSE(mail_.Exist(key)) << key;
}

TEST_F(MailTest, FieldsThatRepeatAreCountedAndTheLastAddressIsDecoded) {
  ASSERT_TRUE(decode("Received: 1\r\nreceived: 2\r\nReceived.2: 3\r\nCC: =?x?Q?a?=\r\nTo: =?x?Q?c?=\r\n\r\n", 2));
  const YObject& header = *mail_.Find<YObject>("Header");
  EXPECT_EQ(header.GetString("received.2") + header.GetString("Received.2.2"), "23");
  EXPECT_EQ(header.GetString("CC") + header.GetString("To"), "=?x?Q?a?=c");
  ASSERT_TRUE(decode("Content-Type: a/b; Name=\"n\"; name*0*=utf-8''%C3%A4; name*1=.c; CharSet=\"=?x?Q?a?=\"; "
                     "x=\"=?x?Q?c?=\"\r\n"
                     "Content-Disposition: inline;\tfilename*=utf-8''%C3%A4; charset==?x?Q?c?=; bad=1=2\r\n\r\n", 2));
  const YObject& parameters = *mail_.Find<YObject>("Header");
  EXPECT_EQ(parameters.GetString("name"), "\xE4.c");
  EXPECT_EQ(parameters.GetString("filename"), "\xE4");
  EXPECT_EQ(parameters.GetString("charset") + parameters.GetString("x"), "=?x?Q?a?=c");
  EXPECT_FALSE(parameters.Exist("bad"));
}

TEST_F(MailTest, FailsWithoutAMailAndWritesNothing) {
  LogCapture log;
  EXPECT_FALSE(decode(""));
  EXPECT_THAT(log.numbers(), ElementsAre(21071));
  YMIMEMessage message(YString(), 0, 10240, 0);
  EXPECT_FALSE(message.Decode(YString("Subject: x\r\n\r\n"), &mail_, 0));
  EXPECT_FALSE(message.Decode(YString("Subject: x\r\n\r\n"), nullptr, 8));
  EXPECT_TRUE(mail_.IsEmpty());
}

// The ordinary ones stand in the collection of mails.
TEST_F(MailTest, ContentsFollowTheirTransferEncoding) {
  const std::string utf8 = "Content-Type: text/plain; charset=utf-8\r\n";
  EXPECT_EQ(result_of("Subject: x\r\nContent-Type: \r\nContent-Transfer-Encoding: \r\n\r\na=C3=A4=\r\nb"),
            "a\xC3\xA4" "b");  // quoted-printable
  EXPECT_EQ(result_of(utf8 + "\r\n\xC3\xA4 =41\r\n..b"), "\xE4 =41\r\n.b");
  EXPECT_EQ(result_of(utf8 + "Content-Transfer-Encoding: base64\r\n\r\n###"),
            "Folgender Inhalt wurde in einer ung\xFCltigen Kodierung \xFC" "bermittelt: \r\n\r\n###");
  const std::pair<std::string, std::string> kRows[] = {
      {"\r\n\r\na=41\r\n..b", "a=41\r\n..b"},
      {"base64\r\n\r\nQU!JD*RA=\r\n=\r\nQg==", "ABCDB"},  // junk is passed over, padding in the middle too
      {"7bit\r\n\r\na=41", "aA"},
  };
  for (const auto& [part, expected] : kRows) {
    const std::string mail = "Content-Type: a/b; name=f.bin\r\nContent-Transfer-Encoding: " + part;
    EXPECT_EQ(result_of(mixed({mail})), "[f.bin=" + expected + "]") << part;
    EXPECT_EQ(result_of("Subject: x\r\n" + mail + "\r\n.\r\n"), "[f.bin=" + expected + "]") << part;  // the terminator goes
  }
  const std::string calendar = "Content-Type: text/calendar\r\nContent-Transfer-Encoding: 7bit\r\n\r\na=41";
  EXPECT_EQ(result_of(mixed({calendar})), "[Termin.ics=a=41]");
}

TEST_F(MailTest, StructuresGiveTextAndAttachments) {
  const std::string notice = "Diese Mail (12 KB) ist gr\xF6\xDF" "er als die maximal erlaubte Mailgr\xF6\xDF" "e (10 KB)";
  const std::string inner = replaced(mixed({kText + "innen", file_part("f.bin", "x")}), "=_b", "=_i");
  const std::pair<std::string, std::string> kRows[] = {
      {"+OK 120 octets\r\nSubject: x\r\n\r\nText\r\n.\r\n", "Text"},
      {mixed({kText + "weg"}) + notice, notice},
      {"Content-Type: text/html\r\n\r\n<p>Gr&uuml;n</p>", "Gr\xFCn[Nachricht.htm=<p>Gr&uuml;n</p>]"},
      {mixed({kText + "Text", "Content-Type: text/html\r\n\r\n<b>Text</b>", "Content-Type: text/html\r\n\r\n2"}),
       "Text[Nachricht.htm=<b>Text</b>][Nachricht_2.htm=2]"},
      {mixed({kText + "eins", "", kMail + inner, "\r\nzwei",
              "Content-Type: message/delivery-status\r\n\r\nStatus: 5\r\n", "Content-Type: message/partial\r\n\r\nweg"}),
       "eins" + kEmbedded + "zwei" + kEmbedded + "innen[Embedded.rfc822=" + inner.substr(0, inner.size() - 2) +
           "\r\n][delivery-status.txt=Status: 5\r\n][f.bin=x]"},
  };
  for (const auto& [mail, expected] : kRows) EXPECT_EQ(printable(result_of(mail)), printable(expected)) << printable(mail);
}

TEST_F(MailTest, ReadableDecodingMindsLineStartsOnly) {
  const std::tuple<std::string, std::string, std::string> kRows[] = {
      {replaced(mixed({kText + "eins", kText + "zwei"}), "--=_b--\r\n", ""), "eins", "eins" + kEmbedded + "zwei"},
      {"Content-Type: multipart/mixed; boundary=b\r\n\r\nabout b\r\n--b \r\n\r\nno b here, --b\r\n--bb\r\n--b\r\n"
       "Content-Type: a/x; name==f.bin\r\nContent-Transfer-Encoding: 7bit\r\n\r\na=41\r\n--b--", "?",
       "no b here, --b\r\n--bb[=f.bin=a=41]"},
      {"Content-Type: multipart/mixed; boundary=b\r\n\r\nnur Text", "", "[Embedded.mixed=nur Text]"},
      {"Subject: x\n\nErste\nZweite\n", "Erste\r\nZweite", "Erste\r\nZweite"},
      {"Subject: x\r\rErste\rZweite\r", "", "Erste\r\nZweite"},
      {"Subject: x\r\n\r\na\rb", "a\rb", "a\rb"},  // beside any LF a CR is a character like others
  };
  for (const auto& [mail, literal, readable] : kRows) {
    set("Lesefreundlich", "0");
    EXPECT_EQ(literal == "?" ? literal : result_of(mail), literal) << printable(mail);
    set("Lesefreundlich", "1");
    EXPECT_EQ(result_of(mail), readable) << printable(mail);
  }
}

TEST_F(MailTest, LongTextsAreCutAndKeptWhole) {
  const std::string kept(10240, 'a');
  EXPECT_EQ(result_of("Subject: x\r\n\r\n" + kept), kept);
  ASSERT_TRUE(decode("Subject: x\r\n\r\n" + kept + "b"));
  EXPECT_EQ(text("NACHRICHT"), kept + "...\r\n\r\n------- System-Hinweis:\r\nDiese Nachricht ist gr\xF6\xDF"
            "er als die zugelassenen 10 KB und wurde daher abgeschnitten! Die vollst\xE4ndige Nachricht befindet sich "
            "in der Datei \"Nachricht.txt\".");
  EXPECT_EQ(text("Nachricht.txt"), kept + "b");
}

TEST_F(MailTest, AttachmentNamesStayInTheFolderAndApart) {
  std::vector<std::string> parts;
  for (const char* name : {"bild.jpg", "Bild.JPG", "../../etc/passwd", "..", "Nachricht.HTM", "\"a:b*c?.txt", "c\x01.txt"})
    parts.push_back(std::string("Content-Type: a/b\r\nContent-Disposition: x; filename=") + name + "\r\n\r\nneu");
  parts.push_back(file_part(std::string(300, 'n') + ".pdf", "neu"));
  for (const char* subtype : {"/calendar", "/png", "/../../x", ""})
    parts.push_back("Content-Type: image" + std::string(subtype) + "\r\n\r\nneu");
  folder_.write("EMBEDDED.png", "alt");
  ASSERT_TRUE(decode(mixed(parts)));
  EXPECT_THAT(attachments(),
              ElementsAre("bild.jpg", "Bild_2.JPG", ".._.._etc_passwd", "..xxx", "Nachricht_orig.htm", "a_b_c_.txt",
                          "c_.txt", std::string(236, 'n') + ".pdf", "Termin.ics", "Embedded_2.png", "Embedded...",
                          "Embedded.xxx"));
  EXPECT_THAT(files_left(), ElementsAre("EMBEDDED.png"));
  EXPECT_EQ(read_file(folder_ / "EMBEDDED.png"), "alt");
}

TEST_F(MailTest, PartInformationDescribesWithoutDecoding) {
  const std::string image = file_part("bild.jpg", "QUJD", "Content-Transfer-Encoding: base64\r\n");
  const std::string mail = mixed({"Content-Type: text/plain; charset=utf-8\r\n\r\nText", image, image, image,
                                  "Content-Type: text/html\r\n\r\nx", "Content-Disposition: x; filename=y.txt\r\n\r\nx",
                                  kMail + file_part("innen.bin", "x")});
  YObject result;
  ASSERT_TRUE(YMIMEMessage(YString(), 0, 10240, 0).Decode(YString(mail), &result, 8));
  EXPECT_EQ(result.GetString("NACHRICHT") + result.GetString("BETREFF"), "x");
  EXPECT_EQ(result.GetString("ANLAGEN"), "Embedded.rfc822");
  EXPECT_THAT(files_left(), ElementsAre(testing::StartsWith("yinet-")));  // nothing in the temporary folder
  const YObject& information = *result.Find<YObject>("PARTINFORMATION");
  EXPECT_EQ(information.Find<YObject>("PLAINBODY")->GetString("CHARSET"), "utf-8");
  EXPECT_EQ(information.Find<YObject>("HTMLBODY")->GetString("CONTENTTYPE"), "text/html");
  const YObject& files = *information.Find<YObject>("ANLAGENINFO");
  std::string seen;
  for (int i = 0; i < files.GetStringKeyCount(); ++i)
    seen += files.GetStringKey(i).str() + "=" + files.FindAt<YObject>(i)->GetString("CONTENTTYPE").str() + ";";
  EXPECT_EQ(seen, "bild.jpg=a/b;bild23$=a/b;bild23$23$=a/b;y.txt=text/plain;");
  EXPECT_EQ(files.Find<YObject>("bild.jpg")->GetString("TRANSFERENCODING"), "base64");
}

// Fails in the header of the part called f.bin, or moves the mail's folder to where nothing can be written.
class Disturbed : public YMIMEMessage {
 public:
  explicit Disturbed(bool fails) : YMIMEMessage(YString(), 0, 10240, 0), fails_(fails) {}
  void m_DecodeHeader(YObject* record, YString& header) override {
    YMIMEMessage::m_DecodeHeader(record, header);
    if (record->GetString("name") != "f.bin") return;
    if (fails_) throw std::bad_alloc();
    m_MailDir = YString("/proc/nowhere/");
  }

 private:
  bool fails_;
};

TEST_F(MailTest, WhatGoesWrongOnTheWayLosesAndLeavesNothing) {
  const std::string mail = mixed({kMail, file_part("a.bin", "a"), file_part("f.bin", "xyz")}, "To: a@x.de\r\n");
  const YString file(folder_.write("mail.eml", mail).string());
  LogCapture log;
  EXPECT_FALSE(Disturbed(true).Decode(file, &mail_, 0));
  EXPECT_THAT(log.numbers(), ElementsAre(21001));
  EXPECT_THAT(files_left(), IsEmpty());
  Disturbed message(false);
  EXPECT_TRUE(message.Decode(file, &mail_, 0));
  EXPECT_EQ(text("f.bin"), "xyz") << "taken by the temporary folder";
  EXPECT_THAT(log.numbers(), ElementsAre(21001));
  folder_.write("mail.eml", "Subject: y\r\n\r\nText");
  YObject second;  // a second decode with the same object starts clean
  EXPECT_TRUE(message.Decode(file, &second, 0));
  EXPECT_EQ(second.GetString("NACHRICHT") + second.GetString("EMPF\xC4NGER"), "Text");
}

class ScriptTest : public MailTest {
 protected:
  // What the function makes of a mail: files and their contents in the folder of the last mail, then the text left.
  std::string files_of(const std::string& mail) {
    YObject arguments;
    auto& parameters = arguments.Ensure<YObject>("0");
    parameters.StoreText("pEMLDatei", mail.empty() ? "fehlt.eml" : folder_.write("mail.eml", mail).string());
    parameters.Store<std::int32_t>("pOptionen", 1);
    MIME_DEKODIERE(&arguments);
    mail_ = *parameters.Find<YObject>("pMail");
    std::vector<std::string> files;
    if (YFileManager.FolderExists(kFolder))
      for (const auto& entry : std::filesystem::directory_iterator(YFileManager.ResolveSystemPath(kFolder)))
        files.push_back("[" + entry.path().filename().string() + "=" + read_file(entry.path()) + "]");
    std::ranges::sort(files);
    return (parameters.GetBool("_RETV") ? "" : "false ") + joined(files, "") + text("NACHRICHT");
  }
  static constexpr const char* kFolder = "TEMP:~EML\\";
};

TEST_F(ScriptTest, FilesOfTheLastMailStandInOneFolder) {
  LogCapture log;
  YFile(YString("TEMP:~EML")).Open(kCreateNew, kAccessWrite);  // in place of the folder
  EXPECT_EQ(files_of(mixed({kText + "Text", file_part("a.bin", "x")})), "false Text");
  EXPECT_EQ(text("a.bin"), "x");
  EXPECT_THAT(log.numbers(), ElementsAre(21072));
  YFile::Delete("TEMP:~EML");
  const std::pair<std::string, std::string> kRows[] = {
      {mixed({kText + "Text", file_part("a.bin", "lang")}, "Subject: Re: Angebot 2024/05 (final)\r\n"),
       "[ReAngebot202405.mail.txt=Text][a.bin=lang]"},
      {mixed({kText + "T", file_part("a.bin", "x")}, "Subject: \xA7\xC4!\r\n"), "[a.bin=x][\xC2\xA7\xC3\x84.mail.txt=T]"},
      // The text stays in the record where an attachment has the name of its file.
      {mixed({kText + "Text", file_part("x.mail.txt", "Anlage")}), "[x.mail.txt=Anlage]Text"},
      {"", "false "},
  };
  for (const auto& [mail, expected] : kRows) {
    EXPECT_EQ(files_of(mail), expected);
    for (const auto& name : attachments()) EXPECT_FALSE(mail_.Exist(name)) << name;
  }
}

}  // namespace
}  // namespace yinet::test
