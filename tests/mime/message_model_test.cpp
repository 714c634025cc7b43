// The message as an object: constructors, copies, and the registry of content agents. Who frees what, and how often, is seen
// by AddressSanitizer.

#include <gmock/gmock.h>

#include <memory>

#include "mime/compose_fixture.h"

namespace yinet::test {
namespace {

using Registry = YMIMEMessage::CMIMETypeManager;

constexpr auto code_of(int code) { return static_cast<eMIMETypeCode>(code); }

// The types of these codes, "-" for none.
std::string types(const Registry& registry, const std::vector<int>& codes) {
  std::string types;
  for (const int code : codes) {
    YMIMEContentAgent* const agent = registry.GetHandler(code);
    types += (agent ? agent->GetTypeName().str() : "-") + " ";
  }
  return types;
}

TEST(Registry, FirstMatchWinsAndTheUnknownGoToTheLastUntilAMessageIsBuilt) {
  auto registry = std::make_unique<Registry>();
  registry->RegisterMIMEType(nullptr);
  EXPECT_EQ(types(*registry, {0, 7}), "- - ");
  registry->RegisterMIMEType(new TextCalendar);
  registry->RegisterMIMEType(new TextHTML(code_of(3)));
  registry->RegisterStandardAgents();
  EXPECT_EQ(types(*registry, {0, 1, 2, 3, 4, -1}),
            "text/plain text/html text/calendar text/html application/octet-stream application/octet-stream ");
  YMIMEContentAgent* const html = new TextHTML(code_of(0));  // freed as plain memory
  registry->RegisterMIMEType(html);
  EXPECT_EQ(types(*registry, {0, 7}), "text/plain text/html ");
  registry->RegisterMIMEType(new TextHTML(code_of(9)));
  registry->RegisterStandardAgents();
  EXPECT_EQ(types(*registry, {9, 7}), "text/html application/octet-stream ");
  EXPECT_EQ(registry->Count(), 8);
  Registry assigned;
  assigned = *std::make_unique<Registry>(*registry);
  registry.reset();
  EXPECT_EQ(types(assigned, {3, 9, 7}), "text/html text/html application/octet-stream ");
}

TEST(Registry, GlobalOneServesAllMessagesAndDoesNotGrow) {
  Registry& registry = YMIMEMessage::m_MIMETypeManager;
  const int before = registry.Count();
  const YMIMEMessage bare;
  EXPECT_EQ(registry.Count(), before) << "the default constructor registers nothing";
  for (int i = 0; i < 1000; ++i) const OpenMessage message;
  EXPECT_EQ(registry.Count(), 4);
  OpenMessage message;
  registry.RegisterMIMEType(new TextHTML(code_of(43)));
  message.m_Parts.push_back(
      std::make_shared<YMIMEMessage::CMIMEPart>(YString(" content "), code_of(77), YString(), kMimeEncoding8Bit, false));
  message.append_mime_parts();
  EXPECT_THAT(message.m_Body.str(), testing::HasSubstr("text/html\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\ncontent"));
}

TEST(MessageModel, ConstructorsSetWhatTheySay) {
  class Fields : public YMIMEMessage {
   public:
    using YMIMEMessage::YMIMEMessage;
    [[nodiscard]] std::string shown() const {
      std::string text = (m_Mailer + "|" + m_Boundary + "|" + m_AlternativeBoundary + "|" + m_ContentType + "|" + m_EnvelopeHeaders).str();
      for (const int number : {m_MaxLineLength, m_DecodeOptions, m_MaxMailSize, m_MaxBodySize, m_IsHTML + m_Date.IsSet()})
        text += " " + std::to_string(number);
      return text;
    }
  };
  YMIMEMessage::m_weekdays.ItemDelimiter(",");
  EXPECT_EQ(Fields().shown(), "|||| 0 0 0 10240 0");
  const std::string boundaries = "KV Mail|" + kOuter + "|" + kInner + "|multipart/mixed|";
  EXPECT_EQ(Fields(YString(), 1, 2, 3).shown(), boundaries + "Envelope-To\x01X-Envelope-To\x01X-Original-To 76 3 1 2 0");
  EXPECT_EQ(Fields("X-Mine", 0, 0, 0).shown(), boundaries + "X-Mine 76 0 0 0 0");
  EXPECT_EQ(YMIMEMessage::m_weekdays.GetItem(6), "Sun") << "the delimiter is restored";
}

TEST_F(ComposeTest, CopiesShareTheirPartsAndOutliveEachOther) {
  attach_file("Nachricht.htm", "<p>html</p>");
  for (const bool source_first : {true, false}) {
    auto source = std::make_unique<OpenMessage>(mail_);
    auto copy = std::make_unique<OpenMessage>(*source);
    EXPECT_EQ(copy->m_Parts.at(0), source->m_Parts.at(0));
    source->m_Subject = "changed";
    EXPECT_NE(copy->m_Subject, "changed") << "fields are copies";
    (source_first ? source : copy).reset();
    OpenMessage& left = source_first ? *copy : *source;
    left.m_FormatMessage(false);
    EXPECT_THAT(left.GetBody().str(), testing::HasSubstr("<p>html</p>"));
  }
}

}  // namespace
}  // namespace yinet::test
