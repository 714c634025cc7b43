// What decoding makes of single mails; how ordinary ones look as a whole is held against the collection of mails.

#include <new>

#include "mime/mail_fixture.h"

namespace yinet::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kEmbedded = "\r\n\r\nEingebettete Mail:\r\n\r\n";
const std::string kHtml = "Content-Type: text/html\r\n\r\n";
const std::string kCoding = "Content-Transfer-Encoding: ";

// A multipart/mixed mail of these parts, each with its header.
std::string mixed(const std::vector<std::string>& parts, std::string_view header = "Subject: x\r\n") {
  std::string mail = std::string(header) + "Content-Type: multipart/mixed; boundary=\"=_b\"\r\n\r\n";
  for (const auto& part : parts) mail += "--=_b\r\n" + part + "\r\n";
  return mail + "--=_b--\r\n";
}
std::string file_part(const std::string& name, const std::string& content, const std::string& fields = "") {
  return "Content-Type: a/b; name=\"" + name + "\"\r\n" + fields + "\r\n" + content;
}

TEST_F(MailTest, EnvelopeComesFromTheHeader) {
  ASSERT_TRUE(
      decode("From: =?utf-8?Q?M=C3=BCller?= <m@x.de>\r\nTo: \"A\" <a@x.de>, b@x.de\r\nCc: c@x.de\r\n"
             "Reply-To: R <r@x.de>\r\nEnvelope-To: <e@x.de>, e@x.de\r\nX-Original-To: f@x.de \"g@x.de =h@x.de i\r\n"
             "Subject: =?utf-8?B?R3LDvMOfZQ==?=\r\nDate: Sat, 21 Nov 2026 10:00:00 +0100\r\n"
             "X-PGDocID: 18\r\nX-MAILVALT-MailArchiv-ID: 17\r\n\r\nHallo"));
  EXPECT_EQ(mail_.Find<YDateAndTime>("GESENDET")->EpochMilliseconds(), 1795251600000);
  mail_.Delete("GESENDET");
  EXPECT_EQ(
      told(mail_),
      "{'ORIGEMPF\303\204NGER':'e@x.de\\u0001f@x.de','EMPF\303\204NGER':'a@x.de\\u0001b@x.de','KOPIE':'c@x.de',"
      "'ABSENDER':'m@x.de','ABSENDERNAME':'M\303\274ller','BETREFF':'Gr\303\274\303\237e','AntwortAdresse':'r@x.de',"
      "'NACHRICHT':'Hallo','MAILARCHIVID':'18'}");
  mail_.Store("GESENDET", YDateAndTime());  // a second mail in the same record; what it breaks is told to nobody
  const YString second(folder_.write("mail.eml", "From: a@b\r\nTo: =?x?Q?=0Aa?=;b\r\n\r\n").string());
  ASSERT_TRUE(OpenMessage().Decode(second, &mail_, 0));
  for (const char* key : {"AntwortAdresse", "GESENDET"}) EXPECT_FALSE(mail_.Exist(key)) << key;
  EXPECT_EQ(text("EMPF\xC4NGER"),
            " a\x01"
            "b");
  EXPECT_THAT(log_.numbers(), IsEmpty());
  ASSERT_TRUE(decode("From: N <a@b>\r\nReply-To: r@x.de\r\nDate: 99999999999\r\n\r\nText", 4));  // a short record
  EXPECT_EQ(
      told(mail_),
      "{'ORIGEMPF\303\204NGER':'','EMPF\303\204NGER':'','KOPIE':'','ABSENDER':'a@b','BETREFF':'','MAILARCHIVID':''}");
}

TEST_F(MailTest, RepeatedFieldsAreCountedAndParametersBecomeFields) {
  ASSERT_TRUE(
      decode("Received: 1\r\nreceived: 2\r\nReceived.2: 3\r\nCC: =?x?Q?a?=\r\n"
             "Content-Type: a/b; Name=\"n\"; name*0*=utf-8''%C3%A4; name*1=.c; CharSet=\"=?x?Q?a?=\"; x==?x?Q?c?=;\r\n"
             " y=\"=?x?Q?c?=\"; boundary=b\r\nboundary: overruled\r\n"
             "Content-Disposition: inline;\tfilename*=utf-8''%C3%A4; charset==?x?Q?c?=; bad=1=2\r\n"
             "To: =?x?Q?c?=\r\n\r\n",
             2));
  YObject header = *mail_.Find<YObject>("Header");
  for (const char* whole : {"Content-Type", "Content-Disposition"}) header.Delete(whole);
  // The last line of a header is decoded even when it is an address.
  EXPECT_EQ(told(header),
            "{'Received':'1','received.2':'2','Received.2.2':'3','CC':'=?x?Q?a?=','boundary':'b','To':'c',"
            "'Content-Type_Media':'a','Content-Type_Subtype':'b','Name':'\303\244.c','CharSet':'=?x?Q?a?=','y':'c',"
            "'filename':'\303\244'}");
}

TEST_F(MailTest, TextAndAttachmentsComeFromTheStructure) {
  const std::string notice = "Diese Mail (12 KB) ist gr\366\337er als die maximal erlaubte Mailgr\366\337e (10 KB)";
  const std::string inner = replaced(mixed({kText + "innen", file_part("f.bin", "x")}), "=_b", "=_i");
  const std::string utf8 = "Content-Type: text/plain; charset=utf-8\r\n";
  const std::string seven_bit = file_part("f", "a=41", kCoding + "7bit\r\n");
  const std::string unix_lines = replaced(mixed({kText + "eins", file_part("f.bin", "x\ny")}), "\r\n", "\n");
  const std::string kept(10240, 'a');
  const std::string cut =
      "...\r\n\r\n------- System-Hinweis:\r\nDiese Nachricht ist gr\366\337er als die zugelassenen 10 KB und wurde "
      "daher abgeschnitten! Die vollst\344ndige Nachricht befindet sich in der Datei \"Nachricht.txt\".";
  const struct {
    std::string mail, literal, readable = "not compared";  // "text[name=bytes][name=bytes]"
  } kRows[] = {
      {"", "not decoded", "not decoded"},
      {"+OK 120 octets\r\nSubject: x\r\n\r\nText\r\n.\r\n", "Text"},
      {mixed({kText + "weg"}) + notice, notice, notice},
      {kHtml + "<p>Gr&uuml;n</p>", "Gr\xFCn[Nachricht.htm=<p>Gr&uuml;n</p>]"},
      {mixed({kText + "Text", kHtml + "<b>Text</b>", kHtml + "2"}),
       "Text[Nachricht.htm=<b>Text</b>][Nachricht_2.htm=2]"},
      {mixed({kText + "eins", "", kMail + inner, "\r\nzwei",
              "Content-Type: message/delivery-status\r\n\r\nStatus: 5\r\n",
              "Content-Type: message/partial\r\n\r\nweg"}),
       "eins" + kEmbedded + "zwei" + kEmbedded + "innen[Embedded.rfc822=" + inner.substr(0, inner.size() - 2) +
           "\r\n][delivery-status.txt=Status: 5\r\n][f.bin=x]"},
      {"Subject: x\r\n\r\n" + kept, kept},
      {"Subject: x\r\n\r\n" + kept + "b", kept + cut + "[Nachricht.txt=" + kept + "b]"},
      // Transfer encodings; the terminator of a mail goes.
      {"Content-Type: \r\n" + kCoding + "\r\n\r\na=C3=A4=\r\nb", "a\303\244b"},
      {utf8 + "\r\n\xC3\xA4 =41\r\n..b", "\xE4 =41\r\n.b"},
      {utf8 + kCoding + "base64\r\n\r\n###",
       "Folgender Inhalt wurde in einer ung\374ltigen Kodierung \374bermittelt: \r\n\r\n###"},
      {mixed({file_part("f", "a=41\r\n..b", kCoding + "\r\n")}), "[f.xxx=a=41\r\n..b]"},
      {file_part("f", "QU!JD*RA=\r\n=\r\nQg==", kCoding + "base64\r\n") + "\r\n.\r\n", "[f.xxx=ABCDB]"},
      {seven_bit + "\r\n.\r\n", "[f.xxx=aA]", "[f.xxx=a=41]"},
      {mixed({"Content-Type: text/calendar\r\n" + kCoding + "7bit\r\n\r\na=41"}), "[Termin.ics=a=41]"},
      // Readable decoding minds line starts only, the end of the text closes, and lines end as their mail's do.
      {replaced(mixed({kText + "eins", kText + "zwei"}), "--=_b--\r\n", ""), "eins", "eins" + kEmbedded + "zwei"},
      {"Content-Type: multipart/mixed; boundary=b\r\n\r\nabout b\r\n--b \r\n\r\nno b here, --b\r\n--bb\r\n--b\r\n"
       "Content-Type: a/x; name==f.bin\r\n\r\na\r\n--b--",
       "not compared", "no b here, --b\r\n--bb[=f.bin=a]"},
      {"Content-Type: multipart/mixed; boundary=b\r\n\r\nnur Text", "", "[Embedded.mixed=nur Text]"},
      {"Content-Type: multipart/mixed; boundary=b\r\n\r\nText\r\n--b-- \r\n", "", "[Embedded.mixed=Text\r\n--b-- ]"},
      // An inner multipart ends with its part, and its boundary may begin like the outer one.
      {mixed({replaced(replaced(mixed({kText + "eins", file_part("f.bin", "1")}), "\r\n--=_b--\r\n", ""), "=_b", "=_i"),
              file_part("g.bin", "2")}),
       "not compared", "eins[f.bin=1][g.bin=2]"},
      {mixed({kText + "eins", replaced(mixed({kText + "zwei"}), "=_b", "=_b--i"), kText + "drei"}), "not compared",
       "eins" + kEmbedded + "zwei" + kEmbedded + "drei"},
      {replaced(mixed({}), "--=_b--\r\n", unix_lines.substr(unix_lines.find("--"))), "not compared",
       "eins[f.bin=x\r\ny]"},
      {mixed({kCoding + "base64\r\n" + kMail + "U3ViamVjdDogeAoKaW5uZW4="}), "[Embedded.rfc822=Subject: x\n\ninnen]",
       kEmbedded + "innen[Embedded.rfc822=Subject: x\n\ninnen]"},
      {"Content-Type: text/plain; x=\"a\\\\\"; charset=utf-8\r\n" + kCoding + "quoted-printable\r\n\r\n=C3=A4=\r\n",
       "\xE4=", "\xE4"},
      {"Subject: x\n\nErste\nZweite\n", "Erste\r\nZweite", "Erste\r\nZweite"},
      {"Subject: x\r\rErste\rZweite\r", "", "Erste\r\nZweite"},
      {"Subject: x\r\n\r\na\rb", "a\rb", "a\rb"}};
  for (const auto& row : kRows)
    for (const bool readable : {false, true}) {
      const std::string& expected = readable ? row.readable : row.literal;
      if (expected == "not compared") continue;
      set_setting("Mail", "Lesefreundlich", readable ? "1" : "0");
      std::string found = decode(row.mail) ? text("NACHRICHT") : "not decoded";
      for (const auto& name : attachments()) found += "[" + name + "=" + text(name) + "]";
      EXPECT_EQ(printable(found), printable(expected)) << printable(row.mail);
      EXPECT_THAT(files_left(), IsEmpty());
    }
  EXPECT_FALSE(OpenMessage().Decode(YString("Subject: x\r\n\r\n"), &mail_, 0));  // no file
  EXPECT_FALSE(OpenMessage().Decode(YString("Subject: x\r\n\r\n"), nullptr, 8));
  EXPECT_THAT(log_.numbers(), ElementsAre(21071, 21071));
}

// As many attachments as names, none of them under another's name, through a link or out of the folder.
TEST_F(MailTest, AttachmentNamesStayInTheFolderAndApart) {
  // What stands in the mail and the name it gets; a "/" in front means a subtype of a part without a name.
  std::string rows =
      "bild.jpg > bild.jpg\nBild.JPG > Bild_2.JPG\n../../etc/passwd > .._.._etc_passwd\n.. > ..xxx\n. > .xxx\n"
      "///// > _____.xxx\n-rf > -rf.xxx\nC:\\x > C__x.xxx\nTEMP:x > TEMP_x.xxx\nNachricht.HTM > Nachricht_orig.htm\n"
      "\"a:b*c?.txt > a_b_c_.txt\nc\x01.txt > c_.txt\n| > |.xxx\nc\rd > c_d.xxx\n\"=?x?Q?d=0Ae?=\" > "
      "d_e.xxx\n\xE2\x80\xAEgpj > \xE2\x80\xAEgpj.xxx"
      "\nBETREFF > BETREFF.xxx\nmail.eml > mail_2.eml\nlink.bin > link_2.bin\n/calendar > Termin.ics\n"
      "/png > Embedded_2.png\n/../../x > Embedded...\n/ > Embedded.xxx\n/x\x01NACHRICHT > Embedded.x_NACHRICHT";
  for (const auto& [letter, kept] : {std::pair('n', 236), std::pair('\xE4', 118)})  // one is two bytes on disk
    rows += "\n" + std::string(300, letter) + ".pdf > " + std::string(kept, letter) + ".pdf";
  std::vector<std::string> parts, names;
  for (const std::string_view row : split(rows, "\n")) {
    const std::string given(row.substr(0, row.find(" > ")));
    names.emplace_back(row.substr(given.size() + 3));
    const bool is_subtype = given.starts_with('/') && given != "/////";
    parts.push_back((is_subtype ? "Content-Type: image" : "Content-Type: a/b\r\nContent-Disposition: x; filename=") +
                    given + "\r\n\r\n" + names.back());
  }
  folder_.write("EMBEDDED.png", "alt");
  std::filesystem::create_symlink(folder_.path() / "EMBEDDED.png", folder_ / "link.bin");
  ASSERT_TRUE(decode(mixed(parts)));
  EXPECT_EQ(attachments(), names);
  for (const auto& name : names) EXPECT_EQ(text(name), name);
  EXPECT_THAT(files_left(), testing::UnorderedElementsAre("EMBEDDED.png", "link.bin"));
  EXPECT_EQ(read_file(folder_ / "EMBEDDED.png"), "alt");
}

TEST_F(MailTest, PartInformationDescribesWithoutDecoding) {
  const std::string image = file_part("bild.jpg", "QUJD", kCoding + "base64\r\n");
  const YString mail(mixed({"Content-Type: text/plain; charset=utf-8\r\n\r\nText", image, image, image, kHtml + "x",
                            "Content-Disposition: x; filename=y.txt\r\n\r\nx", kMail + file_part("innen.bin", "x")}));
  ASSERT_TRUE(OpenMessage().Decode(mail, &mail_, 8));
  EXPECT_EQ(text("NACHRICHT") + text("BETREFF") + text("ANLAGEN"), "xEmbedded.rfc822");
  EXPECT_THAT(files_left(), IsEmpty());
  std::string information = told(*mail_.Find<YObject>("PARTINFORMATION"));
  for (const char* key : {"'CONTENTTYPE':", "'CHARSET':", "'TRANSFERENCODING':"})
    information = replaced(information, key, "");
  EXPECT_EQ(information,
            "{'PLAINBODY':{'text/plain','utf-8',''},'ANLAGENINFO':{'bild.jpg':{'a/b','','base64'},"
            "'bild23$':{'a/b','','base64'},'bild23$23$':{'a/b','','base64'},'y.txt':{'text/plain','',''}},"
            "'HTMLBODY':{'text/html','',''}}");
}

// Fails in the header of the part called f.bin, or moves the mail's folder to where nothing can be written.
struct Disturbed : OpenMessage {
  void m_DecodeHeader(YObject* record, YString& header) override {
    YMIMEMessage::m_DecodeHeader(record, header);
    if (record->GetString("name") != "f.bin") return;
    if (fails) throw std::bad_alloc();
    m_MailDir = YString("/proc/nowhere/");
  }
  bool fails = true;
};

TEST_F(MailTest, WhatGoesWrongOnTheWayLosesAndLeavesNothing) {
  const std::string mail = mixed({kMail, file_part("a.bin", "a"), file_part("f.bin", "xyz")}, "To: a@x.de\r\n");
  const YString file(folder_.write("mail.eml", mail).string());
  Disturbed message;
  EXPECT_FALSE(message.Decode(file, &mail_, 0));
  EXPECT_THAT(log_.numbers(), ElementsAre(21001));
  EXPECT_THAT(files_left(), IsEmpty());
  std::filesystem::create_symlink("/nowhere/at/all", temporary_ / "f.bin");
  message.fails = false;
  EXPECT_TRUE(message.Decode(file, &mail_, 0));
  EXPECT_EQ(text("f_2.bin"), "xyz") << "taken by the temporary folder";
  folder_.write("mail.eml", "Subject: y\r\n\r\nText");
  YObject second;  // a second decode with the same object starts clean
  EXPECT_TRUE(message.Decode(file, &second, 0));
  EXPECT_EQ(second.GetString("NACHRICHT") + second.GetString("EMPF\xC4NGER"), "Text");
}

TEST_F(MailTest, TheScriptFunctionKeepsTheFilesOfTheLastMail) {
  constexpr const char* kFolder = "TEMP:~EML\\";
  YFile(YString("TEMP:~EML")).Open(kCreateNew, kAccessWrite);  // in place of the folder
  const std::pair<std::string, std::string> kRows[] = {
      {mixed({kText + "Text", file_part("a.bin", "x")}), "false Text"},
      {mixed({kText + "Text", file_part("a.bin", "lang")}, "Subject: Re: Angebot 2024/05 (final)\r\n"),
       "[ReAngebot202405.mail.txt=Text][a.bin=lang]"},
      {mixed({kText + "T", file_part("a.bin", "x")}, "Subject: \xA7\xC4!\r\n"), "[a.bin=x][\xA7\xC4.mail.txt=T]"},
      {mixed({kText + "Text", file_part("x.mail.txt", "Anlage")}), "[x.mail.txt=Anlage]Text"},  // one name for both
      {"", "false "}};
  for (const auto& [mail, expected] : kRows) {
    YObject parameters;
    parameters.StoreText("pEMLDatei", folder_.write("mail.eml", mail).string());
    parameters.Store<std::int32_t>("pOptionen", 1);
    call_function("MIME_DEKODIERE", parameters);
    mail_ = *parameters.Find<YObject>("pMail");
    const bool has_folder = YFileManager.FolderExists(kFolder);
    std::vector<std::string> files;
    for (const YString& name : YFileManager.ListFolder(kFolder))
      files.push_back("[" + name.str() + "=" + read_file(YFileManager.ResolveSystemPath(kFolder + name)) + "]");
    std::ranges::sort(files);
    EXPECT_EQ((parameters.GetBool("_RETV") ? "" : "false ") + joined(files, "") + text("NACHRICHT"), expected);
    for (const auto& name : attachments()) EXPECT_NE(mail_.Exist(name), has_folder) << name;
    YFile::Delete("TEMP:~EML");
  }
  EXPECT_THAT(log_.numbers(), ElementsAre(21072, 21071));
}

}  // namespace
}  // namespace yinet::test
