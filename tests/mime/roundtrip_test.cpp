// Composed mails, read by others: Python's email package, GMime, and this library's decoder.

#include <gmime/gmime.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "mime/compose_fixture.h"
#include "support/bytes.h"
#include "support/child_process.h"
#include "support/requirements.h"
#include "yinet/host/codepage.h"
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
  const char* what;
  std::string subject;
  std::string text;
  std::string html;  // empty: a plain mail
  std::vector<Attachment> attachments;
};

std::string repeated_text(std::string_view text, int count) {
  std::string out;
  for (int i = 0; i < count; ++i) out += text;
  return std::string(trimmed(out));
}

std::vector<Attachment> many_attachments(int count) {
  std::vector<Attachment> attachments;
  for (int i = 0; i < count; ++i)
    attachments.push_back({"anlage" + std::to_string(i) + ".bin",
                           pattern_bytes(static_cast<std::size_t>(i) * 7, static_cast<unsigned>(i))});
  return attachments;
}

std::vector<Sent> mails() {
  const std::string german = "Sch\xF6ne Gr\xFC\xDF" "e aus K\xF6ln,\r\n\r\n  \x84" "bis bald\x93 \x96 5 \x80.\r\n.Punkt\r\n.\r\nEnde";
  std::string every_byte;
  for (int byte = 0; byte < 256; ++byte) every_byte.push_back(static_cast<char>(byte));
  return {
      {"plain", "Hallo", "Nur Text.", "", {}},
      {"empty", "", "", "", {}},
      {"umlauts", "\xC4rger \xFC" "ber \x80" "uro", german, "", {}},
      {"long subject", repeated_text("Sehr langer Betreff mit \xE4\xF6\xFC ", 20), german, "", {}},
      {"html", "HTML", german, "<html><body class=\"x\">\r\n<p>Gr\xFC\xDF" "e &amp; a=b</p>\r\n=E4=\r\n</body></html>", {}},
      {"attachments", "Anlagen", german, "",
       {{"leer.txt", ""},
        {"ein Byte.bin", "x"},
        {"jedes.bin", every_byte},
        {"zeile53.bin", pattern_bytes(53)},
        {"zeile54.bin", pattern_bytes(54)},
        {"zeile55.bin", pattern_bytes(55)},
        {"gro\xDF.bin", pattern_bytes(1'000'000)},
        {"ohne endung", "x\r\n.\r\n"},
        {"\xC4\xD6\xDC\xE4\xF6\xFC\xDF \x80.txt", "Umlaute"}}},
      {"html and attachments", "Alles", german, "<p>alles</p>", {{"a.pdf", pattern_bytes(5000)}, {"b.pdf", "b"}}},
      {"200 attachments", "Viele", "Text", "", many_attachments(200)},
  };
}

class RoundtripTest : public ComposeTest {
 protected:
  // As it arrives: SMTP takes back the doubled dots.
  std::string compose(const Sent& sent) {
    mail_.StoreText("ABSENDER", "eva@example.org");
    mail_.StoreText("EMPF\xC4NGER", "max@example.org;ute@example.org");
    mail_.StoreText("BETREFF", sent.subject);
    mail_.StoreText("NACHRICHT", sent.text);
    mail_.StoreText("ANLAGEN", "");
    if (!sent.html.empty()) attach(folder_.write("Nachricht.htm", sent.html).string());
    for (const auto& [name, bytes] : sent.attachments)
      attach(name_from_utf8(folder_.write("files/" + name_to_utf8(name), bytes).string()));
    OpenMessage message;
    message.CreateMessage(&mail_);
    return message.GetHeader().str() + replaced(message.GetBody(), "\r\n..", "\r\n.");
  }
};

// One reading per mail; empty when the program failed.
nlohmann::json read_by_python(const TempDir& folder, const std::vector<std::string>& mails) {
  std::vector<std::string> command = {"python3", YINET_PARSE_MAIL};
  for (const std::string& mail : mails)
    command.push_back(folder.write("python" + std::to_string(command.size()) + ".eml", mail).string());
  const auto result = run_command(command);
  EXPECT_EQ(result.exit_code, 0) << result.errors;
  return result.exit_code == 0 ? nlohmann::json::parse(result.output) : nlohmann::json();
}

std::string bytes_of(const nlohmann::json& value) { return from_hex(value.get<std::string>()); }

TEST_F(RoundtripTest, PythonReadsWhatWasSent) {
  YINET_REQUIRE_PROGRAM("python3");
  const std::vector<Sent> all = mails();
  std::vector<std::string> composed;
  for (const Sent& sent : all) composed.push_back(compose(sent));
  const auto readings = read_by_python(folder_, composed);
  ASSERT_EQ(readings.size(), all.size());
  for (std::size_t number = 0; number < all.size(); ++number) {
    const Sent& sent = all[number];
    const auto& read = readings[number];
    SCOPED_TRACE(sent.what);
    EXPECT_THAT(read["defects"], IsEmpty());
    EXPECT_EQ(bytes_of(read["subject"]), sent.subject);
    EXPECT_THAT(read["from"], ElementsAre("eva@example.org"));
    EXPECT_THAT(read["to"], ElementsAre("max@example.org", "ute@example.org"));
    EXPECT_THAT(read["fields"], ElementsAre("From", "To", "Date", "Subject", "X-Mailer", "MIME-Version", "Content-Type"));

    const bool alternative = !sent.html.empty();
    EXPECT_EQ(read["containers"].size(), alternative ? 2U : 1U);
    const auto& parts = read["parts"];
    const std::size_t texts = alternative && !sent.text.empty() ? 2 : 1;
    ASSERT_EQ(parts.size(), texts + sent.attachments.size());
    EXPECT_EQ(parts[0]["type"], "text/plain");
    EXPECT_EQ(parts[0]["charset"], "iso-8859-1");
    EXPECT_EQ(bytes_of(parts[0]["bytes"]), sent.text);
    if (alternative) {
      EXPECT_EQ(parts[1]["type"], "text/html");
      EXPECT_EQ(bytes_of(parts[1]["bytes"]), sent.html);
    }
    for (std::size_t i = 0; i < sent.attachments.size(); ++i) {
      const auto& part = parts[texts + i];
      EXPECT_EQ(part["type"], "application/octet-stream");
      EXPECT_EQ(bytes_of(part["name"]), sent.attachments[i].name);
      EXPECT_TRUE(bytes_of(part["bytes"]) == sent.attachments[i].bytes) << sent.attachments[i].name;
    }
  }
}

TEST_F(RoundtripTest, PythonReadsACalendarReply) {
  YINET_REQUIRE_PROGRAM("python3");
  const std::string calendar = "BEGIN:VCALENDAR\r\nMETHOD:REPLY\r\nEND:VCALENDAR\r\n";
  const auto readings =
      read_by_python(folder_, {compose({"", "Re: Termin", "Ich komme.", "", {{"Zusage.ics", calendar}}})});
  ASSERT_EQ(readings.size(), 1U);
  const auto& read = readings[0];
  EXPECT_THAT(read["defects"], IsEmpty());
  EXPECT_EQ(read["parts"][1]["type"], "text/calendar");
  EXPECT_EQ(read["parts"][1]["method"], "REPLY");
  EXPECT_EQ(read["parts"][1]["charset"], "utf-8");
  EXPECT_EQ(bytes_of(read["parts"][1]["bytes"]) + "\r\n", calendar) << "the last line end belongs to the boundary";
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
  static const bool initialised = (g_mime_init(), true);
  EXPECT_TRUE(initialised);
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
  for (const Sent& sent : mails()) {
    SCOPED_TRACE(sent.what);
    std::vector<Attachment> expected;
    expected.push_back({"", sent.text});
    if (!sent.html.empty()) expected.push_back({"", sent.html});
    bool has_8bit_name = false;
    for (const Attachment& attachment : sent.attachments) {
      expected.push_back(attachment);
      has_8bit_name |= std::ranges::any_of(attachment.name, [](char c) { return static_cast<unsigned char>(c) > 127; });
    }
    GMimeReading reading = read_by_gmime(compose(sent));
    ASSERT_EQ(reading.leaves.size(), expected.size());
    if (!sent.html.empty()) {  // GMime visits the parts of the inner container after those of the outer one
      std::ranges::sort(reading.leaves);
      std::ranges::sort(expected);
    }
    for (std::size_t i = 0; i < expected.size(); ++i) {
      // File names stand in the header as their bytes, and GMime has to guess what they mean.
      if (has_8bit_name) reading.leaves[i].name = expected[i].name;
      EXPECT_TRUE(reading.leaves[i] == expected[i]) << i << " " << expected[i].name;
    }
    EXPECT_TRUE(reading.warnings.empty() || has_8bit_name);
  }
}

TEST_F(RoundtripTest, DecoderGivesBackWhatWasSent) {
  for (const Sent& sent : mails()) {
    SCOPED_TRACE(sent.what);
    folder_.write("mail.eml", compose(sent));
    YObject read;
    ASSERT_TRUE(OpenMessage().Decode(name_from_utf8((folder_ / "mail.eml").string()), &read, 0));
    EXPECT_EQ(read.GetString("BETREFF"), sent.subject.empty() && sent.text.empty() ? "(Kein Betreff)"
                                                                                      : YString(sent.subject));
    EXPECT_EQ(read.GetString("ABSENDER"), "eva@example.org");
    EXPECT_EQ(read.GetString("EMPF\xC4NGER"), "max@example.org\x01ute@example.org");
    EXPECT_EQ(read.GetString("NACHRICHT").str(), sent.text);
    std::vector<Attachment> attachments;
    if (!sent.html.empty()) attachments.push_back({"Nachricht.htm", sent.html});
    attachments.insert(attachments.end(), sent.attachments.begin(), sent.attachments.end());
    const YString names = read.GetString("ANLAGEN");
    const auto items = names.Items();
    for (std::size_t i = 0; i < attachments.size(); ++i) {
      auto& [name, bytes] = attachments[i];
      if (name == "ohne endung") name += ".xxx";
      const auto* const content = read.Find<YBuffer>(name);
      // The decoder writes no file for an empty content.
      if (bytes.empty()) {
        EXPECT_EQ(content, nullptr);
        continue;
      }
      EXPECT_THAT(items, testing::Contains(name));
      EXPECT_TRUE(content && content->view() == bytes) << name;
    }
  }
}

}  // namespace
}  // namespace yinet::test
