// Composed mails, read by others; what these would not notice, what becomes of input that is wrong, and who shares what.
// Who frees it, and how often, is seen by AddressSanitizer.

#include <gmime/gmime.h>

#include <memory>
#include <regex>

#include "cli/program.h"
#include "mime/mail_fixture.h"
#include "support/bytes.h"
#include "support/requirements.h"

namespace yinet::test {
namespace {

using namespace std::string_view_literals;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

class ComposeTest : public MailTest {
 protected:
  ComposeTest() { start_record(); }

  // The composed body with "|" for line ends, "*" and "+" for the boundaries outside and inside an alternative, and
  // <text>, <html>, <both>, <file NAME> and <reply NAME> for the headers of its parts.
  std::string composed() { return outline(OpenMessage(mail_)); }
  static std::string outline(const OpenMessage& message) {
    std::string body = message.GetBody().str();
    for (const auto& [header, mark] :
         {std::pair("This is a multi-part message in MIME format.\r\n\r\n", "MIME:"),
          {"multipart/alternative; boundary=KV_MAIL_PaRt_BoUnDaRy_30032012_WN\r\n\r\n", "<both>"},
          {"--KV_MAIL_PaRt_BoUnDaRy_28052007_XJ", "*"},
          {"--KV_MAIL_PaRt_BoUnDaRy_30032012_WN", "+"},
          {"text/plain; charset=\"iso-8859-1\"\r\nContent-Transfer-Encoding: 8Bit\r\n\r\n", "<text>"},
          {"text/html; charset=\"iso-8859-1\"\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n", "<html>"},
          {"Content-Disposition: attachment; filename=(\".*\")\r\n\r\n", "<$1>"},
          {"text/calendar ;method=REPLY; charset=UTF-8\r\nContent-Transfer-Encoding: 7bit\r\n<\"(.*)\">", "<reply $1>"},
          {"application/octet-stream; file=\"(.*)\"\r\nContent-Transfer-Encoding: base64\r\n<\"\\1\">", "<file $1>"}})
      body = std::regex_replace(body, std::regex(header), mark);
    return replaced(replaced(body, "\r\n", "|"), "Content-Type: <", "<");
  }
};

TEST_F(ComposeTest, HeaderHasItsFieldsAndRecipientsInOrder) {
  store(
      "ABSENDERNAME=not written|BLINDKOPIE=secret@example.org|MAILID=4711|EMPF\xC4NGER=Eva M <e@x.de>;m@x.de, ,|"
      "KOPIE==?x?Q?M=2C_Eva?= <e@x.de>");
  const OpenMessage message(mail_);
  const std::string header = message.GetHeader().str();
  const std::size_t date = header.find("Date: ");
  EXPECT_EQ(header.substr(0, date),
            "From: <eva@example.org>\r\nTo:Eva M<<e@x.de>>,\r\n\t\t<m@x.de>\r\nCc:M,\r\n\t\t Eva<<e@x.de>>\r\n");
  EXPECT_EQ(header.substr(header.find("Subject", date)),
            "Subject: =?iso-8859-1?B?SGFsbG8=?=\r\nX-Mailer: KV Mail\r\nX-KV-MailID: 4711\r\n"
            "MIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=KV_MAIL_PaRt_BoUnDaRy_28052007_XJ\r\n\r\n");
  YString address, name;
  EXPECT_FALSE(message.GetRecipient(address, name, message.GetNumRecipients(0), 0));
  EXPECT_TRUE(message.GetRecipient(address, name, 0, 0));
  EXPECT_EQ(name + address, "Eva M<e@x.de>");
  YObject nothing;
  EXPECT_THAT(OpenMessage(nothing).GetHeader().str(), testing::StartsWith("From: <>\r\nDate:"));
  OpenMessage().CreateMessage(nullptr);
}

TEST_F(ComposeTest, NoValueAddsAHeaderLine) {
  // Nothing but the known fields at the start of a line, and one empty line, which is the last.
  const std::regex fields(
      "((From|To|Cc|Date|Subject|X-Mailer|X-KV-MailID|MIME-Version|Content-Type):[^\r\n\\x00]*\r\n"
      "(\t[^\r\n\\x00]*\r\n)*)+\r\n");
  for (const auto attack : {"x\r\nBcc: spy@x.de"sv, "x\nBcc: spy"sv, "x\rBcc: spy"sv, "x\0\r\n\r\nbody"sv,
                            "=?utf-8?B?eA0KQmNjOiBzcHk=?= <a@x.de>"sv})
    for (const auto key : split("ABSENDER ABSENDERNAME BETREFF EMPF\xC4NGER KOPIE BLINDKOPIE MAILID", " ")) {
      SCOPED_TRACE(std::string(key) + " = " + printable(attack));
      YObject mail = mail_;
      mail.StoreText(key, attack);
      const OpenMessage message(mail);
      EXPECT_TRUE(std::regex_match(message.GetHeader().str(), fields)) << message.GetHeader().str();
      YString address, name;
      for (int kind = 0; kind < 3; ++kind)
        for (int i = 0; message.GetRecipient(address, name, i, kind); ++i)
          EXPECT_FALSE(breaks_protocol_line(address + name));
    }
  EXPECT_EQ(log_.numbers(), std::vector<int>(23, message::kMailLineBreakReplaced)) << "not in encoded words";
  log_.clear();
  attach_file("a\"b\r\nBcc: x.txt", "");
  EXPECT_EQ(composed(), "MIME:*|<text>Text|*|<file a'b Bcc: x.txt>|*--|");
  EXPECT_NE(log_.last(message::kMailLineBreakReplaced).number, 0);
  attach(std::string("n\0m", 3));  // no file can have it, its header stays
  EXPECT_EQ(composed(), "MIME:*|<text>Text|*|<file a'b Bcc: x.txt>|*|<file n m>*--|");
}

TEST_F(ComposeTest, DatesAreEnglishAndSummerTimeEndsOnASaturday) {
  for (const std::string day : {"2025-03-29 Sat, 29 Mar 2025$1$ +0100", "2024-03-31 Sun, 31 Mar 2024$1$ +0200",
                                "2025-10-25 Sat, 25 Oct 2025$1$ +0200", "2021-10-31 Sun, 31 Oct 2021$1$ +0100"}) {
    OpenMessage message;
    EXPECT_TRUE(message.m_Date.SetIso(day.substr(0, 10) + "T07:08:09"));
    message.m_FormatMessage(false);
    EXPECT_THAT(message.GetHeader().str(), HasSubstr("\r\nDate: " + formatted(day.substr(11), " 07:08:09") + "\r\n"));
  }
}

TEST_F(ComposeTest, PartsHaveTheirHeadersAndTheirOrder) {
  const std::string line = "--KV_MAIL_PaRt_BoUnDaRy_28052007_XJ";
  mail_.StoreText("NACHRICHT", "vor\r\n" + line + "\r\nnach\r\n" + line + "--");
  EXPECT_EQ(composed(), "MIME:*|<text>vor|*|nach|*--|*--|") << "stays as it is";
  mail_.StoreText("NACHRICHT", "  Gr\xFC\xDFt\na\r\rb\r\n.c\r\n");
  attach_file("a.bin", std::string(60, 'a'));
  attach("");
  attach_file("leer.txt", "");
  attach_file("sub/Zusage.ics", "BEGIN:VCALENDAR\nA\r\nB\rEND:VCALENDAR");
  attach_file("zusage.ics", "");
  const std::string base64(72, 'Y'), text = "Gr\xFC\xDFt\na\r\rb|..c|";
  const std::string files = "*|<file a.bin>" + replaced(base64, "YYYY", "YWFh") +
                            "|YWFhYWFh||*|<file leer.txt>|"
                            "*|<reply Zusage.ics>BEGIN:VCALENDAR|A|B|END:VCALENDAR|*|<file zusage.ics>|*";
  EXPECT_EQ(composed(), "MIME:*|<text>" + text + files + "--|");
  attach_file("Meine Nachricht.htm", "");
  attach_file("Nachrich.HTML", "<p>Gr\xFC\xDFt a=b</p>");
  EXPECT_EQ(composed(), "MIME:*|<both>+|<text>" + text + "+|<html><p>Gr=fc=dft a=3Db</p>|+--|" + files +
                            "|<file Meine Nachricht.htm>|*--|");
  EXPECT_TRUE(log_.numbers().empty());
}

// A file that was read has an empty line at its end, one that was not has no line at all.
TEST_F(ComposeTest, WhatCannotBeReadIsReportedAndLeavesItsHeader) {
  folder_.make_folder("folder");
  attach_file("big.bin", "");
  std::filesystem::resize_file(folder_ / "big.bin", 2LL << 30);  // sparse: nothing is read
  for (const char* name : {"Nachricht.htm", "missing.bin", "Abgelehnt.ics", "folder"})
    attach((folder_ / name).string());
  EXPECT_EQ(composed(),
            "MIME:*|<text>Text|*|<file big.bin>*|<file missing.bin>*|<reply Abgelehnt.ics>*|<file folder>*--|");
  EXPECT_EQ(log_.numbers(), std::vector<int>(5, message::kMailAttachmentFailed));
}

TEST_F(ComposeTest, ASecondCompositionAppendsAndAFailedOneLeavesNoHalfMail) {
  class Failing : public OpenMessage {
    void append_mime_parts() override {
      OpenMessage::append_mime_parts();
      if (m_Parts.size() > 2) throw std::bad_alloc();
    }
  } message;
  message.CreateMessage(&mail_);
  mail_.StoreText("NACHRICHT", "Second");
  message.CreateMessage(&mail_);
  EXPECT_EQ(outline(message), "MIME:*|<text>Second|*|<text>Text|*--|");
  message.CreateMessage(&mail_);
  EXPECT_EQ(message.GetHeader() + message.GetBody(), "");
  EXPECT_EQ(log_.numbers(), std::vector{21075});
}

TEST_F(ComposeTest, AttachmentsComeFromTheRecordUnderTheirExactKey) {
  mail_.Store<YBuffer>("puffer.bin", YBuffer(std::string_view("\0\xFF", 2)));
  mail_.Store<std::int32_t>("zahl.dat", 42);
  store("text.txt=Text\n|Gross.txt=not taken|ANLAGEN=C:\\irgendwo\\puffer.bin , text.txt");
  attach("/tmp/zahl.dat");
  attach_file("gross.txt", "Platte");
  temporary_.write("MAIL0001.TMP", "mine");
  std::filesystem::create_symlink(folder_ / "target", temporary_ / "MAIL0002.TMP");
  EXPECT_EQ(composed(),
            "MIME:*|<text>Text|*|<file MAIL0003.TMP>AP8=||*|<file MAIL0004.TMP>VGV4dAo=||*|<file MAIL0005.TMP>NDI=||"
            "*|<file gross.txt>UGxhdHRl||*--|");
  EXPECT_THAT(files_left(), UnorderedElementsAre("gross.txt", "MAIL0001.TMP", "MAIL0002.TMP"));
  EXPECT_EQ(read_file(temporary_ / "MAIL0001.TMP"), "mine");
  store("ANLAGEN=text.txt");
  set_setting("Mail", "AnlagenNamenBehalten", "1");
  std::filesystem::create_directory(temporary_ / "a|b");
  set_temporary_folder((temporary_ / "a|b").string());
  EXPECT_EQ(composed(), "MIME:*|<text>Text|*|<file text.txt>VGV4dAo=||*--|");
  set_temporary_folder(folder_.write("file", "no folder").string());
  EXPECT_EQ(composed(), "MIME:*|<text>Text|*--|");
  EXPECT_THAT(log_.numbers(), testing::Contains(message::kMailAttachmentFailed));
}

TEST_F(ComposeTest, WhatIsBeyondTheLimitOfTheProfileIsLeftOut) {
  mail_.StoreText("PROFIL", "Standard");
  mail_.Store<YBuffer>("second.bin", YBuffer(std::string(1000, 'x')));
  attach_file("first.bin", std::string(2000, 'x'));
  attach("second.bin");
  attach_file("last.bin", "x");  // would fit, but comes later
  for (const auto& [limit, files, number] : {std::tuple(3001, 3U, 0), {2999, 1U, 21070}, {3, 0U, 21076}}) {
    log_.clear();
    mail_.Delete("_Error_");
    EXPECT_EQ(OpenMessage(mail_, limit).m_Parts.size(), files + 1);
    EXPECT_EQ(log_.numbers(), number == 0 ? std::vector<int>() : std::vector{number});
    EXPECT_EQ(text("_Error_"), number == 0 ? "" : log_.records().back().text);
  }
  EXPECT_EQ(log_.last(21076).level, 6);
  EXPECT_THAT(text("_Error_"), HasSubstr("\"Hallo\" to max@example.org (profile Standard)"));
}

TEST_F(ComposeTest, TemporaryFilesLiveAsLongAsAnyCopyOfTheMessage) {
  attach_file("Nachricht.htm", "<p>html</p>");
  mail_.Store<YBuffer>("a.txt", YBuffer("content"));
  attach("a.txt");
  auto first = std::make_unique<OpenMessage>(mail_);
  auto second = std::make_unique<OpenMessage>(*first);
  EXPECT_EQ(first->m_Parts.at(0), second->m_Parts.at(0)) << "parts are shared";
  first->m_Body = "changed";
  EXPECT_NE(second->m_Body, "changed") << "fields are copies";
  OpenMessage third;
  third = *second;
  first.reset();
  second->m_Parts.clear();
  second.reset();
  EXPECT_THAT(files_left(), UnorderedElementsAre("Nachricht.htm", "MAIL0001.TMP"));
  third.m_FormatMessage(false);
  for (const char* content : {"<p>html</p>", "Y29udGVudA=="}) EXPECT_THAT(third.GetBody().str(), HasSubstr(content));
  third = OpenMessage();
  EXPECT_THAT(files_left(), UnorderedElementsAre("Nachricht.htm"));
}

TEST(Registry, FirstMatchWinsAndTheUnknownGoToTheLastUntilAMessageIsBuilt) {
  using Registry = YMIMEMessage::CMIMETypeManager;
  Registry copy;
  {
    Registry registry;
    registry.RegisterMIMEType(nullptr);
    EXPECT_EQ(registry.GetHandler(0), nullptr);
    registry.RegisterMIMEType(new TextHTML(kMimeOctetStream));
    registry.RegisterStandardAgents();
    registry.RegisterMIMEType(new TextHTML(kMimeTextPlain));
    EXPECT_EQ(registry.GetHandler(7)->GetTypeName(), "text/html");
    registry.RegisterStandardAgents();
    copy = Registry(registry);
  }
  std::string types;
  for (const int code : {0, 1, 2, 3, 7}) types += copy.GetHandler(code)->GetTypeName().str() + " ";
  EXPECT_EQ(types, "text/plain text/html text/calendar text/html application/octet-stream ");
  EXPECT_EQ(copy.Count(), 6);
  const int before = YMIMEMessage::m_MIMETypeManager.Count();
  YMIMEMessage();
  EXPECT_EQ(YMIMEMessage::m_MIMETypeManager.Count(), before) << "the default constructor registers nothing";
}

// --- Composed by the program, read by others: Python's email package, GMime, and this library's decoder ------------------

using Leaf = std::pair<std::string, std::string>;  // file name, bytes

// Subject, text and files; "Nachricht.htm" is no file, but the same mail as HTML.
using Sent = std::tuple<std::string, std::string, std::vector<Leaf>>;

std::vector<Sent> mails() {
  const std::string german = "Sch\xF6ne Gr\xFC\xDFt,\r\n\r\n  \204bis bald\x93 \x96 5 \x80.\r\n.Punkt\r\n.\r\nEnde";
  const Leaf html("Nachricht.htm",
                  "<html><body class=\"x\">\r\n<p>Gr\xFC\xDFt &amp; a=b</p>\r\n=E4=\r\n</body></html>");
  std::string every_byte, long_subject = "\xC4rger \x80";
  for (int byte = 0; byte < 256; ++byte) every_byte.push_back(static_cast<char>(byte));
  for (int i = 0; i < 20; ++i) long_subject += " Sehr langer Betreff mit \xE4\xF6\xFC";
  const std::vector<Leaf> some = {{"leer.txt", ""},
                                  {"ein Byte.bin", "x"},
                                  {"gross.bin", pattern_bytes(1'000'000)},
                                  {"jedes.bin", every_byte},
                                  {"Zusage.ics", "BEGIN:VCALENDAR\r\nMETHOD:REPLY\r\nEND:VCALENDAR"},
                                  {"punkt.txt", "x\r\n.\r\n"},
                                  {"\xC4\xD6\xDC\xE4\xF6\xFC\xDF \x80.txt", "Umlaute"}};
  std::vector<Leaf> many;
  for (unsigned i = 0; i < 200; ++i) many.emplace_back("anlage" + std::to_string(i) + ".bin", pattern_bytes(i * 7, i));
  return {{"", "", {}},
          {long_subject, german, {}},
          {"Anlagen", german, some},
          {"Alles", german, {html, some[2], some[1]}},
          {"Viele", "Text", many}};
}

// The leaves that GMime finds; a warning of it is one more, without name and bytes.
std::vector<Leaf> read_by_gmime(const std::string& mail) {
  std::vector<Leaf> found;
  const std::shared_ptr<GMimeStream> stream(g_mime_stream_mem_new_with_buffer(mail.data(), mail.size()),
                                            g_object_unref);
  const std::shared_ptr<GMimeParser> parser(g_mime_parser_new_with_stream(stream.get()), g_object_unref);
  GMimeParserOptions* const options = g_mime_parser_options_new();
  const auto warn = [](gint64, GMimeParserWarning, const gchar*, gpointer leaves) {
    static_cast<std::vector<Leaf>*>(leaves)->emplace_back();
  };
  // File names stand in the header as their bytes, of which GMime warns.
  if (mail.find("\xC4\xD6\xDC") == std::string::npos) g_mime_parser_options_set_warning_callback(options, warn, &found);
  const std::shared_ptr<GMimeMessage> message(g_mime_parser_construct_message(parser.get(), options), g_object_unref);
  g_mime_parser_options_free(options);
  const auto take = [](GMimeObject*, GMimeObject* object, gpointer leaves) {
    if (!GMIME_IS_PART(object)) return;
    const std::shared_ptr<GMimeStream> content(g_mime_stream_mem_new(), g_object_unref);
    if (GMimeDataWrapper* const wrapper = g_mime_part_get_content(GMIME_PART(object)))
      g_mime_data_wrapper_write_to_stream(wrapper, content.get());
    GByteArray* const bytes = g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(content.get()));
    const char* const name = g_mime_part_get_filename(GMIME_PART(object));
    static_cast<std::vector<Leaf>*>(leaves)->emplace_back(
        name ? name : "", std::string(reinterpret_cast<const char*>(bytes->data), bytes->len));
  };
  g_mime_message_foreach(message.get(), take, &found);
  return found;
}

TEST_F(ComposeTest, OthersAndTheDecoderReadWhatWasSent) {
  YINET_REQUIRE_PROGRAM("python3");
  g_mime_init();
  const TempDir sent_mails;
  for (const auto& [subject, content, files] : mails()) {
    SCOPED_TRACE(subject);
    start_record();
    store("EMPF\xC4NGER=max@example.org\x01ute@example.org|BETREFF=" + subject);
    mail_.StoreText("NACHRICHT", replaced(content, "\r\n", "\n"));
    for (const auto& [name, bytes] : files) {
      const bool in_record = name.ends_with("bin");
      if (in_record) mail_.Store<YBuffer>(name, YBuffer(bytes));
      attach_file("files/" + name, in_record ? "not taken" : bytes);
    }
    const std::string sent = (folder_ / "sent").string();
    ASSERT_EQ(run_program({"mail", "compose", "-", "-o", sent}, YJSON::Write(mail_)).exit_code, 0);
    // As it arrives: SMTP takes back the doubled dots.
    const std::string mail = replaced(read_file(sent), "\r\n..", "\r\n.");
    sent_mails.write(std::to_string(mail.size()) + ".eml", mail);

    ASSERT_TRUE(decode(mail));
    EXPECT_EQ(text("BETREFF"), subject.empty() ? "(Kein Betreff)" : subject);
    EXPECT_EQ(text("ABSENDER") + text("EMPF\xC4NGER"), "eva@example.orgmax@example.org\x01ute@example.org");
    std::vector<Leaf> found = {{"", text("NACHRICHT")}}, expected = {{"", content}};
    for (const auto& name : attachments()) found.emplace_back(name, text(name));
    for (const Leaf& file : files)
      if (!file.second.empty()) expected.push_back(file);  // it writes no empty file
    EXPECT_TRUE(found == expected);

    found = read_by_gmime(mail);
    expected = files;
    expected.emplace_back("", content);
    // It visits the parts of the inner container after those of the outer one, and guesses what bytes in a name mean.
    for (auto* leaves : {&found, &expected}) {
      for (auto& [name, bytes] : *leaves)
        if (name == "Nachricht.htm" || bytes == "Umlaute") name.clear();
      std::ranges::sort(*leaves);
    }
    EXPECT_TRUE(found == expected);
  }
  const auto python = run_command({"python3", YINET_COMPARE_MAILS, YINET_PROGRAM, sent_mails.path().string()});
  EXPECT_EQ(python.exit_code, 0) << python.output << python.errors;
}

}  // namespace
}  // namespace yinet::test
