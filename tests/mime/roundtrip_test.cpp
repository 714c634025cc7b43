// Composed mails, read by others: Python's email package, GMime, and this library's decoder.

#include <gmime/gmime.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>

#include "mime/compose_fixture.h"
#include "support/bytes.h"
#include "support/child_process.h"
#include "support/requirements.h"
#include "yinet/host/text.h"
#include "yinet/host/ybase64.h"

namespace yinet::test {
namespace {

struct Attachment {
  std::string name;
  std::string bytes;
  auto operator<=>(const Attachment&) const = default;
};

struct Sent {
  std::string subject;
  std::string text;
  std::string html;  // empty: a plain mail
  std::vector<Attachment> attachments;
};

std::vector<Sent> mails() {
  const std::string german = "Sch\xF6ne Gr\xFC\xDF" "e,\r\n\r\n  \x84" "bis bald\x93 \x96 5 \x80.\r\n.Punkt\r\n.\r\nEnde";
  std::string every_byte;
  for (int byte = 0; byte < 256; ++byte) every_byte.push_back(static_cast<char>(byte));
  std::string long_subject = "\xC4rger \x80";
  for (int i = 0; i < 20; ++i) long_subject += " Sehr langer Betreff mit \xE4\xF6\xFC";
  std::vector<Attachment> many;
  for (unsigned i = 0; i < 200; ++i) many.push_back({"anlage" + std::to_string(i) + ".bin", pattern_bytes(i * 7, i)});
  return {
      {"", "", "", {}},
      {long_subject, german, "", {}},
      {"HTML", german, "<html><body class=\"x\">\r\n<p>Gr\xFC\xDF" "e &amp; a=b</p>\r\n=E4=\r\n</body></html>", {}},
      {"Anlagen", german, "",
       {{"leer.txt", ""}, {"ein Byte.bin", "x"}, {"jedes.bin", every_byte}, {"gross.bin", pattern_bytes(1'000'000)},
        {"punkt.txt", "x\r\n.\r\n"}, {"\xC4\xD6\xDC\xE4\xF6\xFC\xDF \x80.txt", "Umlaute"}}},
      {"Alles", german, "<p>alles</p>", {{"a.pdf", pattern_bytes(5000)}, {"b.pdf", "b"}}},
      {"Viele", "Text", "", many},
      {"Re: Termin", "Ich komme.", "", {{"Zusage.ics", "BEGIN:VCALENDAR\r\nMETHOD:REPLY\r\nEND:VCALENDAR"}}},
  };
}

// What a reader shall find, in order.
std::vector<Attachment> leaves_of(const Sent& sent) {
  std::vector<Attachment> leaves = {{"", sent.text}};
  if (!sent.html.empty()) leaves.push_back({"", sent.html});
  leaves.insert(leaves.end(), sent.attachments.begin(), sent.attachments.end());
  return leaves;
}

struct GObjectUnref {
  void operator()(void* object) const { g_object_unref(object); }
};
template <typename Type>
using Owned = std::unique_ptr<Type, GObjectUnref>;

// The leaves that GMime finds; a warning of it is one more, without name and bytes.
std::vector<Attachment> read_by_gmime(const std::string& mail) {
  std::vector<Attachment> found;
  const Owned<GMimeStream> stream(g_mime_stream_mem_new_with_buffer(mail.data(), mail.size()));
  const Owned<GMimeParser> parser(g_mime_parser_new_with_stream(stream.get()));
  GMimeParserOptions* const options = g_mime_parser_options_new();
  const auto warn = [](gint64, GMimeParserWarning, const gchar*, gpointer leaves) {
    static_cast<std::vector<Attachment>*>(leaves)->emplace_back();
  };
  // File names stand in the header as their bytes, of which GMime warns.
  if (mail.find("\xC4\xD6\xDC") == std::string::npos) g_mime_parser_options_set_warning_callback(options, warn, &found);
  const Owned<GMimeMessage> message(g_mime_parser_construct_message(parser.get(), options));
  g_mime_parser_options_free(options);
  g_mime_message_foreach(
      message.get(),
      [](GMimeObject*, GMimeObject* object, gpointer leaves) {
        if (!GMIME_IS_PART(object)) return;
        const Owned<GMimeStream> content(g_mime_stream_mem_new());
        if (GMimeDataWrapper* const wrapper = g_mime_part_get_content(GMIME_PART(object)))
          g_mime_data_wrapper_write_to_stream(wrapper, content.get());
        GByteArray* const bytes = g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(content.get()));
        const char* const name = g_mime_part_get_filename(GMIME_PART(object));
        static_cast<std::vector<Attachment>*>(leaves)->push_back(
            {name ? name : "", std::string(reinterpret_cast<const char*>(bytes->data), bytes->len)});
      },
      &found);
  return found;
}

// As it arrives: SMTP takes back the doubled dots.
class RoundtripTest : public ComposeTest {
 protected:
  std::string compose(const Sent& sent) {
    mail_ = YObject();
    mail_.StoreText("ABSENDER", "eva@example.org");
    mail_.StoreText("EMPF\xC4NGER", "max@example.org;ute@example.org");
    mail_.StoreText("BETREFF", sent.subject);
    mail_.StoreText("NACHRICHT", sent.text);
    if (!sent.html.empty()) attach_file("Nachricht.htm", sent.html);
    for (const auto& [name, bytes] : sent.attachments) attach_file("files/" + name, bytes);
    const OpenMessage message(mail_);
    return message.GetHeader().str() + replaced(message.GetBody(), "\r\n..", "\r\n.");
  }
};

TEST_F(RoundtripTest, PythonReadsWhatWasSent) {
  YINET_REQUIRE_PROGRAM("python3");
  using nlohmann::json;
  std::vector<std::string> command = {"python3", YINET_PARSE_MAIL};
  json expected = json::array();
  for (const Sent& sent : mails()) {
    command.push_back(folder_.write("python" + std::to_string(command.size()) + ".eml", compose(sent)).string());
    json parts = json::array();
    for (const auto& [name, bytes] : leaves_of(sent)) {
      const bool is_reply = name == "Zusage.ics";
      const char* const text_type = parts.empty() ? "text/plain" : "text/html";
      parts.push_back(json::array({is_reply ? "text/calendar" : name.empty() ? text_type : "application/octet-stream",
                                   is_reply ? "utf-8" : name.empty() ? "iso-8859-1" : "", is_reply ? "REPLY" : "",
                                   base64_encoded(name), base64_encoded(bytes)}));
    }
    expected.push_back(json::array({base64_encoded(sent.subject),
                                    json::array({"eva@example.org", "max@example.org", "ute@example.org"}),
                                    sent.html.empty() ? 1 : 2, parts}));
  }
  const auto output = run_command(command);
  ASSERT_EQ(output.exit_code, 0) << output.errors;
  const json differences = json::diff(expected, json::parse(output.output));
  EXPECT_TRUE(differences.empty()) << differences;
}

TEST_F(RoundtripTest, GMimeAndTheDecoderReadWhatWasSent) {
  g_mime_init();
  for (const Sent& sent : mails()) {
    SCOPED_TRACE(sent.subject);
    const std::string mail = compose(sent);
    std::vector<Attachment> expected = leaves_of(sent);
    ASSERT_TRUE(decode(mail));
    EXPECT_EQ(text("BETREFF"), sent.subject.empty() ? "(Kein Betreff)" : sent.subject);
    EXPECT_EQ(text("ABSENDER"), "eva@example.org");
    EXPECT_EQ(text("EMPF\xC4NGER"), "max@example.org\x01ute@example.org");
    std::vector<Attachment> found = {{"", text("NACHRICHT")}};
    for (const auto& name : attachments()) found.push_back({name == "Nachricht.htm" ? "" : name, text(name)});
    std::vector<Attachment> written = {expected[0]};  // the decoder writes no empty file
    for (std::size_t i = 1; i < expected.size(); ++i)
      if (!expected[i].bytes.empty()) written.push_back(expected[i]);
    EXPECT_TRUE(found == written);

    std::vector<Attachment> read = read_by_gmime(mail);
    ASSERT_EQ(read.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
      if (expected[i].bytes == "Umlaute") read[i].name = expected[i].name;  // GMime guesses what its bytes mean
    // It visits the parts of the inner container after those of the outer one.
    std::ranges::sort(read);
    std::ranges::sort(expected);
    EXPECT_TRUE(read == expected);
  }
}

}  // namespace
}  // namespace yinet::test
