#include <gmock/gmock.h>

#include <filesystem>
#include <regex>

#include "mime/compose_fixture.h"
#include "support/bytes.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/text.h"
#include "yinet/host/ybase64.h"

namespace yinet::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::UnorderedElementsAre;

// --- Header ---------------------------------------------------------------------------------------------------------

TEST_F(ComposeTest, HeaderHasItsFieldsInOrder) {
  mail_.StoreText("ABSENDERNAME", "not written");
  mail_.StoreText("BLINDKOPIE", "secret@example.org");
  mail_.StoreText("KOPIE", "cc@example.org");
  mail_.StoreText("MAILID", "4711");
  OpenMessage message;
  message.CreateMessage(&mail_);
  const std::string header = message.GetHeader().str();
  EXPECT_TRUE(std::regex_match(header, std::regex(
      "From: <eva@example\\.org>\r\n"
      "To:<max@example\\.org>\r\n"
      "Cc:<cc@example\\.org>\r\n"
      "Date: (Mon|Tue|Wed|Thu|Fri|Sat|Sun), \\d\\d (Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) \\d{4} "
      "\\d\\d:\\d\\d:\\d\\d \\+0[12]00\r\n"
      "Subject: =\\?iso-8859-1\\?B\\?SGFsbG8=\\?=\r\n"
      "X-Mailer: KV Mail\r\n"
      "X-KV-MailID: 4711\r\n"
      "MIME-Version: 1\\.0\r\n"
      "Content-Type: multipart/mixed; boundary=" + kOuter + "\r\n\r\n"))) << header;
  EXPECT_EQ(message.GetFrom(), "<eva@example.org>");
  EXPECT_EQ(message.GetNumRecipients(2), 1);
  EXPECT_THAT(log_.numbers(), IsEmpty());
}

TEST_F(ComposeTest, HeaderLeavesOutWhatIsEmpty) {
  mail_ = YObject();
  OpenMessage message;
  message.CreateMessage(&mail_);
  EXPECT_EQ(field(message, "From"), " <>");
  EXPECT_EQ(field(message, "To"), "(none)");
  EXPECT_EQ(field(message, "Cc"), "(none)");
  EXPECT_EQ(field(message, "X-KV-MailID"), "(none)");
  EXPECT_EQ(field(message, "Subject"), " ");
  message.CreateMessage(nullptr);
}

TEST_F(ComposeTest, RecipientsStandOnLinesOfTheirOwn) {
  const std::pair<std::string, std::string> cases[] = {
      {"Eva Meier <eva@x.de>;max@x.de", "Eva Meier<<eva@x.de>>,\r\n\t\t<max@x.de>"},
      {"max@x.de, <eva@x.de>", "<max@x.de>,\r\n\t\t<<eva@x.de>>"},
      {"=?iso-8859-1?Q?M=2C_Eva?= <eva@x.de>", "M,\r\n\t\t Eva<<eva@x.de>>"},  // a comma in a name breaks the line too
      {" ; ,", "(none)"},
  };
  for (const auto& [list, line] : cases) {
    mail_.StoreText("EMPF\xC4NGER", list);
    OpenMessage message;
    message.CreateMessage(&mail_);
    EXPECT_EQ(field(message, "To"), line) << list;
  }
}

TEST_F(ComposeTest, RecipientsCanBeReadBack) {
  mail_.StoreText("EMPF\xC4NGER", "Eva <e@x.de>;m@x.de");
  mail_.StoreText("BLINDKOPIE", "b@x.de");
  OpenMessage message;
  message.CreateMessage(&mail_);
  EXPECT_EQ(message.GetNumRecipients(0), 2);
  EXPECT_EQ(message.GetNumRecipients(1), 0);
  EXPECT_EQ(message.GetNumRecipients(7), 1) << "any other kind is the blind copy";
  YString address = "kept", name = "kept";
  for (const int index : {2, -1}) EXPECT_FALSE(message.GetRecipient(address, name, index, 0));
  EXPECT_EQ(address, "kept");
  EXPECT_EQ(name, "kept");
  EXPECT_TRUE(message.GetRecipient(address, name, 0, 0));
  EXPECT_EQ(address, "<e@x.de>");
  EXPECT_EQ(name, "Eva");
  EXPECT_TRUE(message.GetRecipient(address, name, 0, 2));
  EXPECT_EQ(address, "b@x.de");
  EXPECT_EQ(name, "");
}

TEST_F(ComposeTest, NoValueAddsAHeaderLine) {
  const std::string attacks[] = {"x\r\nBcc: spy@x.de", "x\nBcc: spy@x.de", "x\rBcc: spy@x.de",
                                 std::string("x\0\r\n\r\nbody", 10), "=?iso-8859-1?Q?x=0D=0ABcc:_spy?=",
                                 "=?utf-8?B?eA0KQmNjOiBzcHk=?= <a@x.de>"};
  for (const std::string& attack : attacks) {
    for (const char* const key : {"ABSENDER", "ABSENDERNAME", "BETREFF", "EMPF\xC4NGER", "KOPIE", "BLINDKOPIE",
                                  "MAILID"}) {
      SCOPED_TRACE(std::string(key) + " = " + printable(attack));
      YObject mail = mail_;
      mail.StoreText(key, attack);
      OpenMessage message;
      log_.clear();
      message.CreateMessage(&mail);
      // Nothing but the known fields at the start of a line, and one empty line, which is the last.
      const std::string header = message.GetHeader().str();
      static const std::regex kFields(
          "((From|To|Cc|Date|Subject|X-Mailer|X-KV-MailID|MIME-Version|Content-Type):[^\r\n\\x00]*\r\n"
          "(\t[^\r\n\\x00]*\r\n)*)+\r\n");
      EXPECT_TRUE(std::regex_match(header, kFields)) << header;
      for (int kind = 0; kind < 3; ++kind) {
        YString address, name;
        for (int i = 0; message.GetRecipient(address, name, i, kind); ++i)
          EXPECT_EQ((address + name).str().find_first_of(std::string("\r\n\0", 3)), std::string::npos);
      }
      const bool is_word = attack.starts_with("=?");
      const std::string_view name(key);
      const bool written = name != "ABSENDERNAME" && name != "BETREFF" &&
                           (!is_word || (name != "ABSENDER" && name != "MAILID"));
      EXPECT_EQ(log_.last(message::kMailLineBreakReplaced).number != 0, written);
    }
  }
}

TEST_F(ComposeTest, SummerTimeCountsItsFirstDayButNotItsLastSunday) {
  struct Case {
    int year, month, day;
    bool summer;
  };
  const Case cases[] = {
      {2025, 3, 29, false}, {2025, 3, 30, true},  {2025, 3, 31, true},   {2025, 10, 25, true}, {2025, 10, 26, false},
      {2024, 3, 30, false}, {2024, 3, 31, true},  {2024, 10, 26, true},  {2024, 10, 27, false},
      {2021, 3, 27, false}, {2021, 3, 28, true},  {2021, 10, 30, true},  {2021, 10, 31, false},
      {2026, 1, 1, false},  {2026, 7, 1, true},   {2026, 12, 31, false}, {2027, 10, 30, true}, {2027, 10, 31, false},
      {2028, 3, 25, false}, {2028, 3, 26, true},  {2028, 10, 28, true},  {2028, 10, 29, false},
  };
  OpenMessage message;
  for (const Case& c : cases) {
    YDate date(c.year, c.month, c.day);
    EXPECT_EQ(message.m_IsDateInDST(date), c.summer) << c.year << "-" << c.month << "-" << c.day;
  }
}

TEST_F(ComposeTest, DateIsWrittenInEnglishWithTheZoneOfCentralEurope) {
  const std::pair<YDate, std::string> cases[] = {{YDate(2026, 1, 5), " Mon, 05 Jan 2026 07:08:09 +0100"},
                                                 {YDate(2026, 7, 19), " Sun, 19 Jul 2026 07:08:09 +0200"}};
  for (const auto& [date, line] : cases) {
    OpenMessage message;
    message.m_Date.Set(date, YTime(7, 8, 9));
    message.m_FormatMessage(false);
    EXPECT_EQ(field(message, "Date"), line);
  }
}

// --- Body -----------------------------------------------------------------------------------------------------------

const std::string kPlainHead =
    "Content-Type: text/plain; charset=\"iso-8859-1\"\r\nContent-Transfer-Encoding: 8Bit\r\n\r\n";
const std::string kHtmlHead =
    "Content-Type: text/html; charset=\"iso-8859-1\"\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n";

std::string octet_head(const std::string& name) {
  return "Content-Type: application/octet-stream; file=\"" + name +
         "\"\r\nContent-Transfer-Encoding: base64\r\nContent-Disposition: attachment; filename=\"" + name +
         "\"\r\n\r\n";
}

TEST_F(ComposeTest, PlainTextIsOnePartOfAMultipart) {
  mail_.StoreText("NACHRICHT", "  Gr\xFC\xDF" "e\r\nzweite Zeile\r\n\r\n");
  OpenMessage message;
  message.CreateMessage(&mail_);
  EXPECT_EQ(message.GetBody().str(), kPreamble + "--" + kOuter + "\r\n" + kPlainHead +
                                         "Gr\xFC\xDF" "e\r\nzweite Zeile\r\n--" + kOuter + "--\r\n");
}

TEST_F(ComposeTest, HtmlGoesBesideItsPlainAlternative) {
  folder_.write("Nachricht.htm", "<p>Gr\xFC\xDF" "e a=b</p>");
  attach((folder_ / "Nachricht.htm").string());
  OpenMessage message;
  message.CreateMessage(&mail_);
  EXPECT_EQ(message.GetBody().str(),
            kPreamble + "--" + kOuter + "\r\nContent-Type: multipart/alternative; boundary=" + kInner +
                "\r\n\r\n--" + kInner + "\r\n" + kPlainHead + "Text\r\n--" + kInner + "\r\n" + kHtmlHead +
                "<p>Gr=fc=df" "e a=3Db</p>\r\n--" + kInner + "--\r\n--" + kOuter + "--\r\n");
}

TEST_F(ComposeTest, HtmlBodyIsRecognisedByItsName) {
  struct Case {
    std::string name;
    bool is_html;
  };
  const Case cases[] = {{"Nachricht.htm", true}, {"NACHRICHT.HTM", true}, {"Nachrich.htm", true},
                        {"Nachricht.html", true}, {"Meine Nachricht.htm", false}, {"Nachricht.txt", false}};
  for (const Case& c : cases) {
    folder_.write(c.name, "<b>html</b>");
    YObject mail = mail_;
    mail.StoreText("ANLAGEN", (folder_ / c.name).string());
    OpenMessage message;
    message.CreateMessage(&mail);
    EXPECT_EQ(message.GetBody().str().find("multipart/alternative") != std::string::npos, c.is_html) << c.name;
    EXPECT_EQ(message.GetBody().str().find(octet_head(c.name)) == std::string::npos, c.is_html) << c.name;
  }
}

TEST_F(ComposeTest, HtmlWithoutPlainTextStandsAlone) {
  mail_.StoreText("NACHRICHT", "");
  folder_.write("Nachricht.htm", "<p>only</p>");
  attach((folder_ / "Nachricht.htm").string());
  OpenMessage message;
  message.CreateMessage(&mail_);
  EXPECT_EQ(message.GetBody().str(),
            kPreamble + "--" + kOuter + "\r\n" + kHtmlHead + "<p>only</p>\r\n--" + kOuter + "--\r\n");
}

TEST_F(ComposeTest, TextComesBeforeTheAttachmentsInEveryForm) {
  folder_.write("a.bin", "x");
  attach((folder_ / "a.bin").string());
  for (const bool html : {false, true}) {
    if (html) attach(folder_.write("Nachricht.htm", "<p>html</p>").string());
    OpenMessage message;
    message.CreateMessage(&mail_);
    const std::string body = message.GetBody().str();
    EXPECT_THAT(body, HasSubstr("Text"));
    EXPECT_LT(body.find("Text"), body.find("octet-stream"));
    EXPECT_EQ(body.find("multipart/alternative") < body.find("octet-stream"), html);
  }
}

TEST_F(ComposeTest, HtmlBodyThatCannotBeReadLeavesAPlainMail) {
  attach((folder_ / "Nachricht.htm").string());
  OpenMessage message;
  message.CreateMessage(&mail_);
  EXPECT_EQ(message.GetBody().str(), kPreamble + "--" + kOuter + "\r\n" + kPlainHead + "Text\r\n--" + kOuter + "--\r\n");
  EXPECT_THAT(log_.numbers(), ElementsAre(message::kMailAttachmentFailed));
}

TEST_F(ComposeTest, AttachmentsFollowTheTextInTheirOrder) {
  folder_.write("a.bin", pattern_bytes(60));
  folder_.write("leer.txt", "");
  folder_.write("Zusage.ics", "BEGIN:VCALENDAR\nA\r\nB\rEND:VCALENDAR");
  mail_.StoreText("ANLAGEN", (folder_ / "a.bin").string() + " , " + (folder_ / "leer.txt").string() + "||" +
                                 (folder_ / "Zusage.ics").string());
  OpenMessage message;
  message.CreateMessage(&mail_);
  const std::string bytes = pattern_bytes(60);
  EXPECT_EQ(message.GetBody().str(),
            kPreamble + "--" + kOuter + "\r\n" + kPlainHead + "Text\r\n--" + kOuter + "\r\n" + octet_head("a.bin") +
                base64_encoded(bytes.substr(0, 54)) + "\r\n" + base64_encoded(bytes.substr(54)) + "\r\n\r\n--" +
                kOuter + "\r\n" + octet_head("leer.txt") + "\r\n--" + kOuter +
                "\r\nContent-Type: text/calendar ;method=REPLY; charset=UTF-8\r\n"
                "Content-Transfer-Encoding: 7bit\r\n"
                "Content-Disposition: attachment; filename=\"Zusage.ics\"\r\n\r\n"
                "BEGIN:VCALENDAR\r\nA\r\nB\r\nEND:VCALENDAR\r\n--" + kOuter + "--\r\n");
}

TEST_F(ComposeTest, AttachmentsThatCannotBeReadLeaveTheirHeader) {
  folder_.make_folder("folder");
  attach((folder_ / "missing.bin").string());
  attach((folder_ / "Abgelehnt.ics").string());
  attach((folder_ / "folder").string());
  OpenMessage message;
  message.CreateMessage(&mail_);
  EXPECT_THAT(message.GetBody().str(),
              HasSubstr("\r\n" + octet_head("missing.bin") + "--" + kOuter + "\r\nContent-Type: text/calendar"));
  EXPECT_THAT(message.GetBody().str(), HasSubstr(octet_head("folder") + "--" + kOuter + "--\r\n"));
  EXPECT_EQ(log_.numbers(), std::vector<int>(3, message::kMailAttachmentFailed));
  EXPECT_THAT(log_.records().front().text, HasSubstr("No such file"));
}

TEST_F(ComposeTest, AttachmentsBeyondTheSizeOfAMailAreRefused) {
  set("VersandLimit", "3000");
  folder_.write("big.bin", pattern_bytes(3000));
  folder_.write("small.bin", pattern_bytes(300));
  attach((folder_ / "big.bin").string());
  attach((folder_ / "small.bin").string());
  OpenMessage message;
  message.CreateMessage(&mail_);
  EXPECT_THAT(message.GetBody().str(), HasSubstr(octet_head("big.bin") + "--" + kOuter));
  EXPECT_THAT(message.GetBody().str(), HasSubstr(base64_encoded(pattern_bytes(300).substr(0, 54))));
  EXPECT_THAT(log_.numbers(), ElementsAre(message::kMailAttachmentFailed));
}

// The size is that of a sparse file: nothing is read.
TEST_F(ComposeTest, AttachmentOfTwoGigabytesIsRefused) {
  const auto big = folder_.write("big.bin", "");
  std::filesystem::resize_file(big, 2LL << 30);
  attach(big.string());
  OpenMessage message;
  message.CreateMessage(&mail_);
  EXPECT_THAT(message.GetBody().str(), HasSubstr(octet_head("big.bin") + "--" + kOuter + "--\r\n"));
  EXPECT_THAT(log_.numbers(), ElementsAre(message::kMailAttachmentFailed));
}

TEST_F(ComposeTest, AttachmentNamesCannotAddHeaderLines) {
  const std::string name = "a\"b\r\nBcc: x.txt";
  folder_.write(name, "content");
  attach((folder_ / name).string());
  OpenMessage message;
  message.CreateMessage(&mail_);
  EXPECT_THAT(message.GetBody().str(), HasSubstr(octet_head("a'b Bcc: x.txt") + base64_encoded("content")));
  EXPECT_THAT(log_.numbers(), ElementsAre(message::kMailLineBreakReplaced));
}

TEST_F(ComposeTest, DotsAreStuffed) {
  class DotMessage : public OpenMessage {
   public:
    void prepare_body(bool) override { m_Body = text; }
    std::string text;
  };
  const std::pair<std::string, std::string> cases[] = {{".\r\n.\r\na", "..\r\n..\r\na"}, {".a\r\n.b", ".a\r\n..b"}};
  for (const auto& [text, stuffed] : cases) {
    DotMessage message;
    message.text = text;
    message.CreateMessage(&mail_);
    EXPECT_EQ(message.GetBody().str(), stuffed);
  }
}

TEST_F(ComposeTest, LineEndsAreLeftAloneUnlessASettingUnifiesThem) {
  mail_.StoreText("NACHRICHT", "a\nb\rc\r\nd");
  OpenMessage as_given;
  as_given.CreateMessage(&mail_);
  EXPECT_THAT(as_given.GetBody().str(), HasSubstr("\r\n\r\na\nb\rc\r\nd\r\n--"));
  set("ZeilenendenVereinheitlichen", "1");
  OpenMessage unified;
  unified.CreateMessage(&mail_);
  EXPECT_THAT(unified.GetBody().str(), HasSubstr("\r\n\r\na\r\nb\r\nc\r\nd\r\n--"));
}

TEST_F(ComposeTest, SecondCompositionAppendsItsParts) {
  OpenMessage message;
  message.CreateMessage(&mail_);
  mail_.StoreText("NACHRICHT", "Second");
  message.CreateMessage(&mail_);
  EXPECT_THAT(message.GetBody().str(), HasSubstr("Second\r\n--" + kOuter + "\r\n" + kPlainHead + "Text"));
  EXPECT_EQ(message.GetNumRecipients(0), 2);
  EXPECT_EQ(field(message, "Subject"), " =?iso-8859-1?B?SGFsbG8=?=");
}

TEST_F(ComposeTest, DerivedClassesReplaceSteps) {
  class Traced : public OpenMessage {
   public:
    void prepare_header() override { m_Header += "own header\r\n"; }
    void append_mime_parts() override { m_Body += "own parts"; }
  };
  Traced message;
  message.CreateMessage(&mail_);
  EXPECT_EQ(message.GetHeader(), "own header\r\n\r\n");
  EXPECT_EQ(message.GetBody().str(), kPreamble + "own parts\r\n--" + kOuter + "--\r\n");
}

TEST_F(ComposeTest, FailureInsideAStepLeavesNoHalfMail) {
  class Failing : public OpenMessage {
   public:
    void append_mime_parts() override { throw std::bad_alloc(); }
  };
  Failing message;
  message.CreateMessage(&mail_);
  EXPECT_EQ(message.GetHeader(), "");
  EXPECT_EQ(message.GetBody(), "");
  EXPECT_THAT(log_.numbers(), ElementsAre(message::kMailComposeFailed));
}

// --- Attachments from the record ------------------------------------------------------------------------------------

TEST_F(ComposeTest, AttachmentsComeFromTheRecordUnderTheirExactKey) {
  mail_.Store<YBuffer>("puffer.bin", YBuffer(std::string_view("\0\xFF", 2)));
  mail_.StoreText("text.txt", "Text\n");
  mail_.Store<std::int32_t>("zahl.dat", 42);
  mail_.StoreText("Gross.txt", "not taken");
  mail_.StoreText("ANLAGEN", "C:\\irgendwo\\puffer.bin|text.txt|/tmp/zahl.dat|" + (folder_ / "gross.txt").string());
  folder_.write("gross.txt", "from the disk");
  {
    OpenMessage message;
    message.CreateMessage(&mail_);
    const std::string body = message.GetBody().str();
    EXPECT_THAT(body, HasSubstr(octet_head("MAIL0001.TMP") + "AP8=\r\n"));
    EXPECT_THAT(body, HasSubstr(octet_head("MAIL0002.TMP") + "VGV4dAo=\r\n"));
    EXPECT_THAT(body, HasSubstr(octet_head("MAIL0003.TMP") + "NDI=\r\n"));
    EXPECT_THAT(body, HasSubstr(octet_head("gross.txt") + base64_encoded("from the disk")));
    EXPECT_THAT(temporary_files(), UnorderedElementsAre("MAIL0001.TMP", "MAIL0002.TMP", "MAIL0003.TMP"));
  }
  EXPECT_THAT(temporary_files(), IsEmpty());
  EXPECT_THAT(log_.numbers(), IsEmpty());
}

TEST_F(ComposeTest, TemporaryNamesInUseArePassedOver) {
  temporary_.write("MAIL0001.TMP", "mine");
  std::filesystem::create_symlink(folder_ / "target", temporary_ / "MAIL0002.TMP");
  attach_from_record("a.txt", "content");
  OpenMessage message;
  message.CreateMessage(&mail_);
  EXPECT_THAT(message.GetBody().str(), HasSubstr(octet_head("MAIL0003.TMP")));
  EXPECT_EQ(read_file(temporary_ / "MAIL0001.TMP"), "mine");
  EXPECT_FALSE(std::filesystem::exists(folder_ / "target"));
}

TEST_F(ComposeTest, RecordKeyIsTheNameInTheMailWhenASettingSaysSo) {
  set("AnlagenNamenBehalten", "1");
  attach_from_record("Angebot 7\".pdf", "content");
  OpenMessage message;
  message.CreateMessage(&mail_);
  EXPECT_THAT(message.GetBody().str(), HasSubstr(octet_head("Angebot 7'.pdf") + base64_encoded("content")));
  EXPECT_THAT(temporary_files(), ElementsAre("MAIL0001.TMP"));
  EXPECT_THAT(log_.numbers(), ElementsAre(message::kMailLineBreakReplaced));
}

TEST_F(ComposeTest, TemporaryFilesLiveAsLongAsAnyCopyOfTheMessage) {
  attach_from_record("a.txt", "content");
  auto first = std::make_unique<OpenMessage>();
  first->CreateMessage(&mail_);
  auto second = std::make_unique<OpenMessage>(*first);
  OpenMessage third;
  third = *second;
  first.reset();
  EXPECT_THAT(temporary_files(), ElementsAre("MAIL0001.TMP"));
  second->m_Parts.clear();
  second.reset();
  EXPECT_THAT(temporary_files(), ElementsAre("MAIL0001.TMP"));
  third.m_Body.Clear();
  third.append_mime_parts();
  EXPECT_THAT(third.m_Body.str(), HasSubstr(base64_encoded("content")));
  third = OpenMessage();
  EXPECT_THAT(temporary_files(), IsEmpty());
}

TEST_F(ComposeTest, UnusableTemporaryFolderIsReported) {
  set_temporary_folder(folder_.write("file", "no folder").string());
  attach_from_record("a.txt", "content");
  OpenMessage message;
  message.CreateMessage(&mail_);
  EXPECT_THAT(message.GetBody().str(), Not(HasSubstr("a.txt")));
  EXPECT_THAT(log_.numbers(), testing::Contains(message::kMailAttachmentFailed));
}

// --- Limits of the sending profile ----------------------------------------------------------------------------------

TEST_F(ComposeTest, TextBeyondTheLimitGoesWithoutAttachments) {
  mail_.StoreText("PROFIL", "Standard");
  mail_.StoreText("NACHRICHT", std::string(3000, 'x'));
  attach_from_record("a.txt", "content");
  OpenMessage message(2999);
  message.CreateMessage(&mail_);
  EXPECT_EQ(mail_.GetString("_Error_"),
            "The text of the mail \"Hallo\" to max@example.org (profile Standard) is too large (2 KB); the mail goes "
            "without attachments.");
  EXPECT_EQ(log_.last(message::kMailBodyTooLarge).text, mail_.GetString("_Error_").str());
  EXPECT_EQ(log_.last(message::kMailBodyTooLarge).level, 6);
  EXPECT_THAT(message.GetBody().str(), Not(HasSubstr("octet-stream")));
}

TEST_F(ComposeTest, AttachmentsBeyondTheLimitAreLeftOut) {
  const auto first = folder_.write("first.bin", std::string(2000, 'x'));
  const auto last = folder_.write("last.bin", "x");
  attach(first.string());
  attach_from_record("second.bin", std::string(1000, 'x'));
  attach(last.string());
  OpenMessage message(2999);
  message.CreateMessage(&mail_);
  EXPECT_THAT(message.GetBody().str(), HasSubstr("first.bin"));
  EXPECT_THAT(message.GetBody().str(), Not(HasSubstr(".TMP")));
  EXPECT_THAT(message.GetBody().str(), Not(HasSubstr("last.bin"))) << "what comes later is left out even if it would fit";
  EXPECT_THAT(mail_.GetString("_Error_").str(), HasSubstr("(2 KB)"));
  EXPECT_THAT(log_.numbers(), ElementsAre(message::kMailAttachmentsTooLarge));
  EXPECT_THAT(temporary_files(), IsEmpty());

  OpenMessage exact(3001);
  mail_.Delete("_Error_");
  exact.CreateMessage(&mail_);
  EXPECT_FALSE(mail_.Exist("_Error_"));
  EXPECT_THAT(exact.GetBody().str(), HasSubstr("last.bin"));
}

// --- Names and texts ------------------------------------------------------------------------------------------------

TEST_F(ComposeTest, AttachmentNamesFitForTheDisk) {
  const std::pair<const char*, const char*> cases[] = {
      {"", "Embeddedxxx"},
      {"Bild.jpg", "Bild.jpg"},
      {"\"Bild.jpg", "Bild.jpg"},
      {"\"Bild.jpg\"", "Bild.jpg_"},
      {"a;b\"c?d*e:f/g\\h<i>j.txt", "a_b_c_d_e_f_g_h_i_j.txt"},
      {"../../etc/passwd", ".._.._etc_passwd"},
      {"a/b", "a_b.xxx"},
      {"nachricht.HTM", "Nachricht_orig.htm"},
      {"\"Nachricht.htm", "Nachricht_orig.htm"},
      {"Nachricht.html", "Nachricht.html"},
      {"ohne", "ohne.xxx"},
      {"punkt.", "punkt.xxx"},
      {"a|b.txt", "a|b.txt"},
      {"..", "..xxx"},
      {"\"", ".xxx"},
  };
  OpenMessage message;
  for (const auto& [name, safe] : cases) EXPECT_EQ(message.m_MakeAttachFileName(name), safe) << name;
}

TEST_F(ComposeTest, LineLengthOfTheSubjectFollowsTheMessage) {
  OpenMessage message;
  message.m_MaxLineLength = 44;
  EXPECT_EQ(message.m_EncodeHeaderLine("abcdef"), "=?iso-8859-1?B?YWJjZA==?=\r\n\t=?iso-8859-1?B?ZWY=?=");
  YString html = "<b>fett</b>&auml;";
  message.m_ConvertHTM2TXT(html);
  EXPECT_EQ(html, "fett\xE4");
}

}  // namespace
}  // namespace yinet::test
