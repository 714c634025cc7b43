// What stands in a composed mail that its readers in roundtrip_test.cpp would not notice, and what becomes of input that
// is wrong.

#include <gmock/gmock.h>

#include <regex>

#include "mime/compose_fixture.h"
#include "support/bytes.h"
#include "yinet/host/text.h"
#include "yinet/host/ybase64.h"

namespace yinet::test {
namespace {

constexpr int kLineBreakReplaced = 21073;
constexpr int kAttachmentFailed = 21074;

// A whole body of these parts, each with its header and the line end behind it.
std::string body_of(const std::vector<std::string>& parts) {
  std::string body = kPreamble;
  for (const auto& part : parts) body += "--" + kOuter + "\r\n" + part;
  return body + "--" + kOuter + "--\r\n";
}
std::string plain_part(const std::string& text) {
  return "Content-Type: text/plain; charset=\"iso-8859-1\"\r\nContent-Transfer-Encoding: 8Bit\r\n\r\n" + text +
         (text.empty() ? "" : "\r\n");
}
std::string part(const std::string& type, const std::string& encoding, const std::string& name, const std::string& lines) {
  return formatted("Content-Type: $1$\r\nContent-Transfer-Encoding: $2$\r\nContent-Disposition: attachment; "
                   "filename=\"$3$\"\r\n\r\n$4$", type, encoding, name, lines);
}
std::string file_part(const std::string& name, const std::string& lines) {
  return part("application/octet-stream; file=\"" + name + "\"", "base64", name, lines);
}
std::string calendar_part(const std::string& name, const std::string& lines) {
  return part("text/calendar ;method=REPLY; charset=UTF-8", "7bit", name, lines);
}

TEST_F(ComposeTest, HeaderHasItsFieldsInOrder) {
  mail_.StoreText("ABSENDERNAME", "not written");
  mail_.StoreText("BLINDKOPIE", "secret@example.org");
  mail_.StoreText("KOPIE", "cc@example.org");
  mail_.StoreText("MAILID", "4711");
  const OpenMessage message(mail_);
  EXPECT_TRUE(std::regex_match(message.GetHeader().str(), std::regex(
      "From: <eva@example\\.org>\r\nTo:<max@example\\.org>\r\nCc:<cc@example\\.org>\r\n"
      "Date: [A-Z][a-z]{2}, \\d\\d [A-Z][a-z]{2} \\d{4} \\d\\d:\\d\\d:\\d\\d \\+0[12]00\r\n"
      "Subject: =\\?iso-8859-1\\?B\\?SGFsbG8=\\?=\r\nX-Mailer: KV Mail\r\nX-KV-MailID: 4711\r\nMIME-Version: 1\\.0\r\n"
      "Content-Type: multipart/mixed; boundary=" + kOuter + "\r\n\r\n"))) << message.GetHeader().str();
  YObject nothing;
  EXPECT_EQ(OpenMessage(nothing).field("From:") + OpenMessage(nothing).field("To:"), "From: <>");
  OpenMessage().CreateMessage(nullptr);
}

TEST_F(ComposeTest, RecipientsStandOnLinesOfTheirOwnAndCanBeReadBack) {
  for (const auto& [list, line] : {std::pair{" ; ,", ""},
                                   std::pair{"=?x?Q?M=2C_Eva?= <e@x.de>", "To:M,\r\n\t\t Eva<<e@x.de>>"},
                                   std::pair{"Eva M <e@x.de>;m@x.de", "To:Eva M<<e@x.de>>,\r\n\t\t<m@x.de>"}}) {
    mail_.StoreText("EMPF\xC4NGER", list);
    EXPECT_EQ(OpenMessage(mail_).field("To:"), line) << list;
  }
  const OpenMessage message(mail_);
  EXPECT_EQ(std::pair(message.GetNumRecipients(0), message.GetNumRecipients(1)), std::pair(2, 0));
  YString address, name;
  EXPECT_FALSE(message.GetRecipient(address, name, 2, 0));
  EXPECT_TRUE(message.GetRecipient(address, name, 0, 0));
  EXPECT_EQ(name + address, "Eva M<e@x.de>");
}

TEST_F(ComposeTest, NoValueAddsAHeaderLine) {
  const std::string attacks[] = {"x\r\nBcc: spy@x.de", "x\nBcc: spy", "x\rBcc: spy", std::string("x\0\r\n\r\nbody", 10),
                                 "=?utf-8?B?eA0KQmNjOiBzcHk=?= <a@x.de>"};
  for (const std::string& attack : attacks)
    for (const std::string key : {"ABSENDER", "ABSENDERNAME", "BETREFF", "EMPF\xC4NGER", "KOPIE", "BLINDKOPIE", "MAILID"}) {
      SCOPED_TRACE(key + " = " + printable(attack));
      YObject mail = mail_;
      mail.StoreText(key, attack);
      log_.clear();
      const OpenMessage message(mail);
      // Nothing but the known fields at the start of a line, and one empty line, which is the last.
      static const std::regex kFields(
          "((From|To|Cc|Date|Subject|X-Mailer|X-KV-MailID|MIME-Version|Content-Type):[^\r\n\\x00]*\r\n"
          "(\t[^\r\n\\x00]*\r\n)*)+\r\n");
      EXPECT_TRUE(std::regex_match(message.GetHeader().str(), kFields)) << message.GetHeader().str();
      YString address, name;
      for (int kind = 0; kind < 3; ++kind)
        for (int i = 0; message.GetRecipient(address, name, i, kind); ++i)
          EXPECT_FALSE(breaks_protocol_line(address + name));
      const bool is_list = key.ends_with("NGER") || key.ends_with("KOPIE");
      const bool replaced = is_list || ((key == "ABSENDER" || key == "MAILID") && !attack.starts_with("=?"));
      EXPECT_EQ(log_.last(kLineBreakReplaced).number != 0, replaced);
    }
  attach_file("a\"b\r\nBcc: x.txt", "");
  EXPECT_EQ(OpenMessage(mail_).GetBody(), YString(body_of({plain_part("Text"), file_part("a'b Bcc: x.txt", "\r\n")})));
}

TEST_F(ComposeTest, DatesAreEnglishAndSummerTimeEndsOnASaturday) {
  const std::pair<YDate, std::string> kDays[] = {
      {YDate(2025, 3, 29), "Sat, 29 Mar 2025 07:08:09 +0100"}, {YDate(2024, 3, 31), "Sun, 31 Mar 2024 07:08:09 +0200"},
      {YDate(2025, 10, 25), "Sat, 25 Oct 2025 07:08:09 +0200"}, {YDate(2021, 10, 31), "Sun, 31 Oct 2021 07:08:09 +0100"}};
  for (const auto& [date, line] : kDays) {
    OpenMessage message;
    message.m_Date.Set(date, YTime(7, 8, 9));
    message.m_FormatMessage(false);
    EXPECT_EQ(message.field("Date:"), "Date: " + line);
  }
}

TEST_F(ComposeTest, PartsHaveTheirHeadersAndTheirOrder) {
  mail_.StoreText("NACHRICHT", "  Gr\xFC\xDF" "e\n\r\n");
  attach_file("a.bin", std::string(60, 'a'));
  attach("");
  attach_file("leer.txt", "");
  attach_file("sub/Zusage.ics", "BEGIN:VCALENDAR\nA\r\nB\rEND:VCALENDAR");
  attach_file("zusage.ics", "");
  std::vector<std::string> parts = {
      plain_part("Gr\xFC\xDF" "e"),
      file_part("a.bin", base64_encoded(std::string(54, 'a')) + "\r\n" + base64_encoded("aaaaaa") + "\r\n\r\n"),
      file_part("leer.txt", "\r\n"), calendar_part("Zusage.ics", "BEGIN:VCALENDAR\r\nA\r\nB\r\nEND:VCALENDAR\r\n"),
      file_part("zusage.ics", "\r\n")};
  EXPECT_EQ(OpenMessage(mail_).GetBody().str(), body_of(parts));

  attach_file("Meine Nachricht.htm", "");
  attach_file("Nachrich.HTML", "<p>Gr\xFC\xDF" "e a=b</p>");
  const std::string inner = "--" + kInner;
  parts[0] = "Content-Type: multipart/alternative; boundary=" + kInner + "\r\n\r\n" + inner + "\r\n" + parts[0] + inner +
             "\r\nContent-Type: text/html; charset=\"iso-8859-1\"\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n"
             "<p>Gr=fc=df" "e a=3Db</p>\r\n" + inner + "--\r\n";
  parts.push_back(file_part("Meine Nachricht.htm", "\r\n"));
  EXPECT_EQ(OpenMessage(mail_).GetBody().str(), body_of(parts));
  EXPECT_THAT(log_.numbers(), testing::IsEmpty());
}

// A file that was read has an empty line at its end, one that was not has no line at all.
TEST_F(ComposeTest, WhatCannotBeReadIsReportedAndLeavesItsHeader) {
  folder_.make_folder("folder");
  attach_file("big.bin", "");
  std::filesystem::resize_file(folder_ / "big.bin", 2LL << 30);  // sparse: nothing is read
  for (const char* name : {"Nachricht.htm", "missing.bin", "Abgelehnt.ics", "folder"}) attach((folder_ / name).string());
  EXPECT_EQ(OpenMessage(mail_).GetBody().str(),
            body_of({plain_part("Text"), file_part("big.bin", ""), file_part("missing.bin", ""),
                     calendar_part("Abgelehnt.ics", ""), file_part("folder", "")}));
  EXPECT_EQ(log_.numbers(), std::vector<int>(5, kAttachmentFailed));
}

TEST_F(ComposeTest, LineEndsAreLeftAloneUnlessASettingUnifiesThem) {
  mail_.StoreText("NACHRICHT", "a\nb\r\rc\r\n.d");
  for (const auto& [setting, sent] : {std::pair{"0", "a\nb\r\rc\r\n..d"}, std::pair{"1", "a\r\nb\r\n\r\nc\r\n..d"}}) {
    set("ZeilenendenVereinheitlichen", setting);
    EXPECT_EQ(OpenMessage(mail_).GetBody().str(), body_of({plain_part(sent)}));
  }
}

TEST_F(ComposeTest, SecondCompositionAppendsItsParts) {
  OpenMessage message(mail_);
  mail_.StoreText("NACHRICHT", "Second");
  message.CreateMessage(&mail_);
  EXPECT_EQ(message.GetBody().str(), body_of({plain_part("Second"), plain_part("Text")}));
}

TEST_F(ComposeTest, NoHalfMailIsLeftWhenAStepFails) {
  class Failing : public OpenMessage {
   public:
    void append_mime_parts() override {
      m_Body += "own parts";
      throw std::bad_alloc();
    }
  } message;
  message.CreateMessage(&mail_);
  EXPECT_EQ(message.GetHeader() + message.GetBody(), "");
  EXPECT_EQ(log_.numbers(), std::vector{21075});
}

TEST_F(ComposeTest, AttachmentsComeFromTheRecordUnderTheirExactKey) {
  mail_.Store<YBuffer>("puffer.bin", YBuffer(std::string_view("\0\xFF", 2)));
  mail_.StoreText("text.txt", "Text\n");
  mail_.Store<std::int32_t>("zahl.dat", 42);
  mail_.StoreText("Gross.txt", "not taken");
  mail_.StoreText("ANLAGEN", "C:\\irgendwo\\puffer.bin , text.txt|/tmp/zahl.dat");
  attach_file("gross.txt", "Platte");
  temporary_.write("MAIL0001.TMP", "mine");
  std::filesystem::create_symlink(folder_ / "target", temporary_ / "MAIL0002.TMP");
  EXPECT_EQ(OpenMessage(mail_).GetBody().str(),
            body_of({plain_part("Text"), file_part("MAIL0003.TMP", "AP8=\r\n\r\n"),
                     file_part("MAIL0004.TMP", "VGV4dAo=\r\n\r\n"),
                     file_part("MAIL0005.TMP", "NDI=\r\n\r\n"), file_part("gross.txt", "UGxhdHRl\r\n\r\n")}));
  EXPECT_EQ(temporary_files().size(), 2U) << "those that were there before";
  EXPECT_EQ(read_file(temporary_ / "MAIL0001.TMP"), "mine");
  EXPECT_FALSE(std::filesystem::exists(folder_ / "target"));
  set("AnlagenNamenBehalten", "1");
  mail_.StoreText("ANLAGEN", "text.txt");
  EXPECT_THAT(OpenMessage(mail_).GetBody().str(), testing::HasSubstr(file_part("text.txt", "VGV4dAo=")));
  set("AnlagenNamenBehalten", "0");
  set_temporary_folder(folder_.write("file", "no folder").string());
  EXPECT_EQ(OpenMessage(mail_).GetBody().str(), body_of({plain_part("Text")}));
  EXPECT_THAT(log_.numbers(), testing::Contains(kAttachmentFailed));
}

TEST_F(ComposeTest, WhatIsBeyondTheLimitOfTheProfileIsLeftOut) {
  mail_.StoreText("PROFIL", "Standard");
  attach_file("first.bin", std::string(2000, 'x'));
  attach_from_record("second.bin", std::string(1000, 'x'));
  attach_file("last.bin", "x");
  const std::tuple<int, std::string, std::size_t> kRows[] = {
      {3001, "", 3},
      {2999, "The attachments of the mail \"Hallo\" to max@example.org (profile Standard) are too large (2 KB); the mail "
             "goes without those beyond the limit.", 1},  // last.bin would fit, but comes later
      {3, "The text of the mail \"Hallo\" to max@example.org (profile Standard) is too large (0 KB); the mail goes without "
          "attachments.", 0}};
  for (const auto& [limit, error, files] : kRows) {
    mail_.Delete("_Error_");
    EXPECT_EQ(OpenMessage(mail_, limit).m_Parts.size(), files + 1);
    EXPECT_EQ(text("_Error_"), error);
    EXPECT_TRUE(error.empty() || (log_.records().back().text == error && log_.records().back().level == 6));
  }
}

}  // namespace
}  // namespace yinet::test
