// Composed mails, read by others: Python's email package, GMime, and this library's decoder.

#include <gmime/gmime.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>

#include "mime/compose_fixture.h"
#include "support/bytes.h"
#include "support/child_process.h"
#include "support/requirements.h"
#include "yinet/host/text.h"

namespace yinet::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

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
  const std::string german = "Sch\xF6ne Gr\xFC\xDF" "e aus K\xF6ln,\r\n\r\n  \x84" "bis bald\x93 \x96 5 \x80.\r\n.Punkt\r\n.\r\nEnde";
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
       {{"leer.txt", ""}, {"ein Byte.bin", "x"}, {"jedes.bin", every_byte}, {"gro\xDF.bin", pattern_bytes(1'000'000)},
        {"ohne endung", "x\r\n.\r\n"}, {"\xC4\xD6\xDC\xE4\xF6\xFC\xDF \x80.txt", "Umlaute"}}},
      {"Alles", german, "<p>alles</p>", {{"a.pdf", pattern_bytes(5000)}, {"b.pdf", "b"}}},
      {"Viele", "Text", "", many},
  };
}

// What a reader shall find, in order.
std::vector<Attachment> leaves_of(const Sent& sent) {
  std::vector<Attachment> leaves = {{"", sent.text}};
  if (!sent.html.empty()) leaves.push_back({"", sent.html});
  leaves.insert(leaves.end(), sent.attachments.begin(), sent.attachments.end());
  return leaves;
}

class RoundtripTest : public ComposeTest {
 protected:
  // As it arrives: SMTP takes back the doubled dots.
  std::string compose(const Sent& sent) {
    mail_.StoreText("EMPF\xC4NGER", "max@example.org;ute@example.org");
    mail_.StoreText("BETREFF", sent.subject);
    mail_.StoreText("NACHRICHT", sent.text);
    mail_.StoreText("ANLAGEN", "");
    if (!sent.html.empty()) attach_file("Nachricht.htm", sent.html);
    for (const auto& [name, bytes] : sent.attachments) attach_file("files/" + name, bytes);
    const OpenMessage message(mail_);
    return message.GetHeader().str() + replaced(message.GetBody(), "\r\n..", "\r\n.");
  }
};

std::string bytes_of(const nlohmann::json& value) { return from_hex(value.get<std::string>()); }

TEST_F(RoundtripTest, PythonReadsWhatWasSent) {
  YINET_REQUIRE_PROGRAM("python3");
  std::vector<Sent> all = mails();
  const std::string reply = "BEGIN:VCALENDAR\r\nMETHOD:REPLY\r\nEND:VCALENDAR";
  all.push_back({"Re: Termin", "Ich komme.", "", {{"Zusage.ics", reply}}});
  std::vector<std::string> command = {"python3", YINET_PARSE_MAIL};
  for (const Sent& sent : all)
    command.push_back(folder_.write("python" + std::to_string(command.size()) + ".eml", compose(sent)).string());
  const auto output = run_command(command);
  ASSERT_EQ(output.exit_code, 0) << output.errors;
  const auto readings = nlohmann::json::parse(output.output);
  for (std::size_t number = 0; number < all.size(); ++number) {
    const auto& read = readings.at(number);
    const auto& parts = read["parts"];
    SCOPED_TRACE(all[number].subject);
    EXPECT_THAT(read["defects"], IsEmpty());
    EXPECT_EQ(bytes_of(read["subject"]), all[number].subject);
    EXPECT_THAT(read["from"], ElementsAre("eva@example.org"));
    EXPECT_THAT(read["to"], ElementsAre("max@example.org", "ute@example.org"));
    EXPECT_EQ(read["containers"].size(), all[number].html.empty() ? 1U : 2U);
    const auto leaves = leaves_of(all[number]);
    ASSERT_EQ(parts.size(), leaves.size());
    for (std::size_t i = 0; i < leaves.size(); ++i) {
      const bool is_reply = leaves[i].name == "Zusage.ics";
      const bool is_text = leaves[i].name.empty();
      EXPECT_EQ(parts[i]["type"], is_reply ? "text/calendar" : !is_text ? "application/octet-stream" : i == 0 ? "text/plain" : "text/html");
      EXPECT_EQ(parts[i]["charset"], is_reply ? "utf-8" : is_text ? "iso-8859-1" : "");
      EXPECT_EQ(parts[i]["method"], is_reply ? "REPLY" : "");
      EXPECT_EQ(bytes_of(parts[i]["name"]), leaves[i].name);
      EXPECT_TRUE(bytes_of(parts[i]["bytes"]) == leaves[i].bytes) << leaves[i].name;
    }
  }
}

struct GObjectUnref {
  void operator()(void* object) const { g_object_unref(object); }
};
template <typename Type>
using Owned = std::unique_ptr<Type, GObjectUnref>;

struct GMimeReading {
  std::vector<int> warnings;
  std::vector<Attachment> leaves;  // the texts among them
};

GMimeReading read_by_gmime(const std::string& mail) {
  GMimeReading reading;
  const Owned<GMimeStream> stream(g_mime_stream_mem_new_with_buffer(mail.data(), mail.size()));
  const Owned<GMimeParser> parser(g_mime_parser_new_with_stream(stream.get()));
  GMimeParserOptions* const options = g_mime_parser_options_new();
  g_mime_parser_options_set_warning_callback(
      options,
      [](gint64, GMimeParserWarning warning, const gchar*, gpointer warnings) {
        static_cast<std::vector<int>*>(warnings)->push_back(warning);
      },
      &reading.warnings);
  const Owned<GMimeMessage> message(g_mime_parser_construct_message(parser.get(), options));
  g_mime_parser_options_free(options);
  if (!message) return reading;
  g_mime_message_foreach(
      message.get(),
      [](GMimeObject*, GMimeObject* object, gpointer leaves) {
        if (!GMIME_IS_PART(object)) return;
        GMimePart* const part = GMIME_PART(object);
        const Owned<GMimeStream> content(g_mime_stream_mem_new());
        if (GMimeDataWrapper* const wrapper = g_mime_part_get_content(part))
          g_mime_data_wrapper_write_to_stream(wrapper, content.get());
        GByteArray* const bytes = g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(content.get()));
        const char* const name = g_mime_part_get_filename(part);
        static_cast<std::vector<Attachment>*>(leaves)->push_back(
            {name ? name : "", std::string(reinterpret_cast<const char*>(bytes->data), bytes->len)});
      },
      &reading.leaves);
  return reading;
}

TEST_F(RoundtripTest, GMimeReadsWhatWasSent) {
  g_mime_init();
  for (const Sent& sent : mails()) {
    SCOPED_TRACE(sent.subject);
    std::vector<Attachment> expected = leaves_of(sent);
    GMimeReading reading = read_by_gmime(compose(sent));
    ASSERT_EQ(reading.leaves.size(), expected.size());
    // File names stand in the header as their bytes, and GMime has to guess what they mean.
    const auto is_8bit = [](const Attachment& leaf) { return utf8_from_ansi(leaf.name) != leaf.name; };
    const bool has_8bit_name = std::ranges::any_of(expected, is_8bit);
    for (std::size_t i = 0; i < expected.size(); ++i)
      if (is_8bit(expected[i])) reading.leaves[i].name = expected[i].name;
    // It visits the parts of the inner container after those of the outer one.
    std::ranges::sort(reading.leaves);
    std::ranges::sort(expected);
    EXPECT_TRUE(reading.leaves == expected);
    EXPECT_TRUE(reading.warnings.empty() || has_8bit_name);
  }
}

TEST_F(RoundtripTest, DecoderGivesBackWhatWasSent) {
  for (const Sent& sent : mails()) {
    SCOPED_TRACE(sent.subject);
    const std::string mail = compose(sent);
    const YObject record = mail_;
    ASSERT_TRUE(decode(mail));
    EXPECT_EQ(text("BETREFF"), sent.text.empty() ? "(Kein Betreff)" : sent.subject);
    EXPECT_EQ(text("ABSENDER"), "eva@example.org");
    EXPECT_EQ(text("EMPF\xC4NGER"), "max@example.org\x01ute@example.org");
    EXPECT_EQ(text("NACHRICHT"), sent.text);
    std::vector<Attachment> expected = leaves_of(sent);
    expected.erase(expected.begin());
    std::erase_if(expected, [](const Attachment& leaf) { return leaf.bytes.empty(); });  // the decoder writes no empty file
    std::vector<Attachment> found;
    for (const auto& name : attachments()) found.push_back({name, text(name)});
    for (auto& [name, bytes] : expected) name = name.empty() ? "Nachricht.htm" : name == "ohne endung" ? name + ".xxx" : name;
    EXPECT_TRUE(found == expected);
    mail_ = record;
  }
}

}  // namespace
}  // namespace yinet::test
