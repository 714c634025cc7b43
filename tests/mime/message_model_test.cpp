// The message as an object: constructors, copies, recipients, and the registry of content agents.

#include <gmock/gmock.h>

#include <memory>
#include <thread>
#include <vector>

#include "mime/compose_fixture.h"
#include "support/bytes.h"

namespace yinet::test {
namespace {

class MarkAgent final : public YMIMEContentAgent {
 public:
  explicit MarkAgent(int code, int* destroyed = nullptr)
      : YMIMEContentAgent(static_cast<eMIMETypeCode>(code)), destroyed_(destroyed) {}
  ~MarkAgent() {
    if (destroyed_) ++*destroyed_;
  }
  bool WritePart(YString content, YString, eMIMEEncodingCode, bool, YString& out) override {
    out += "mark(" + content + ")";
    return true;
  }
  YString GetTypeName() override { return "x-mark"; }
  YString MakePartHeader(YString, YString, eMIMEEncodingCode, bool) override { return {}; }

 private:
  int* destroyed_;
};

using Registry = YMIMEMessage::CMIMETypeManager;

std::string type_name(const Registry& registry, int code) {
  YMIMEContentAgent* const agent = registry.GetHandler(code);
  return agent ? agent->GetTypeName().str() : "none";
}

TEST(Registry, FirstMatchWinsAndTheUnknownGoToTheLast) {
  Registry registry;
  EXPECT_EQ(registry.GetHandler(0), nullptr);
  registry.RegisterMIMEType(nullptr);
  EXPECT_EQ(registry.GetHandler(7), nullptr);
  registry.RegisterStandardAgents();
  const char* const names[] = {"text/plain", "text/html", "text/calendar", "application/octet-stream"};
  for (int code = 0; code < 4; ++code) EXPECT_EQ(type_name(registry, code), names[code]);
  for (const int code : {4, 7, -1}) EXPECT_EQ(type_name(registry, code), "application/octet-stream");
}

TEST(Registry, CustomAgentIsLastUntilTheNextMessageIsBuilt) {
  Registry registry;
  registry.RegisterStandardAgents();
  registry.RegisterMIMEType(new MarkAgent(0));
  EXPECT_EQ(type_name(registry, 0), "text/plain") << "the first one stays the handler of its code";
  EXPECT_EQ(type_name(registry, 7), "x-mark");
  registry.RegisterStandardAgents();
  EXPECT_EQ(type_name(registry, 7), "application/octet-stream");
  registry.RegisterMIMEType(new MarkAgent(9));
  registry.RegisterStandardAgents();
  EXPECT_EQ(type_name(registry, 9), "x-mark");
  EXPECT_EQ(registry.Count(), 6);
}

TEST(Registry, AgentRegisteredBeforeTheFirstMessageComesFirst) {
  Registry registry;
  registry.RegisterMIMEType(new MarkAgent(1));
  registry.RegisterStandardAgents();
  EXPECT_EQ(type_name(registry, 1), "x-mark");
  EXPECT_EQ(type_name(registry, 0), "text/plain");
}

TEST(Registry, OwnsItsAgentsTogetherWithItsCopies) {
  int destroyed = 0;
  auto registry = std::make_unique<Registry>();
  registry->RegisterMIMEType(new MarkAgent(5, &destroyed));
  YMIMEContentAgent* const plain = new MarkAgent(6, &destroyed);
  registry->RegisterMIMEType(plain);
  const auto copy = std::make_unique<Registry>(*registry);
  Registry assigned;
  assigned = *copy;
  registry.reset();
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(type_name(*copy, 5), "x-mark");
  EXPECT_EQ(type_name(assigned, 6), "x-mark");
  assigned = Registry();
}

TEST(Registry, GlobalOneServesAllMessagesAndDoesNotGrow) {
  Registry& registry = YMIMEMessage::m_MIMETypeManager;
  const int before = registry.Count();
  const YMIMEMessage bare;
  EXPECT_EQ(registry.Count(), before) << "the default constructor registers nothing";
  for (int i = 0; i < 1000; ++i) const OpenMessage message;
  EXPECT_EQ(registry.Count(), 4);

  registry.RegisterMIMEType(new MarkAgent(42));
  OpenMessage message;
  EXPECT_EQ(type_name(registry, 77), "application/octet-stream");
  registry.RegisterMIMEType(new MarkAgent(43));
  message.m_Parts.push_back(std::make_shared<YMIMEMessage::CMIMEPart>(
      YString(" content "), static_cast<eMIMETypeCode>(77), YString(), kMimeEncoding8Bit, false));
  message.append_mime_parts();
  EXPECT_EQ(message.m_Body, YString("\r\n--" + kOuter + "\r\nmark(content)"));
}

TEST(MessageModel, ConstructorsSetWhatTheySay) {
  class Fields : public YMIMEMessage {
   public:
    using YMIMEMessage::YMIMEMessage;
    [[nodiscard]] std::vector<std::string> texts() const {
      return {m_Mailer.str(), m_Boundary.str(), m_AlternativeBoundary.str(), m_ContentType.str(),
              m_EnvelopeHeaders.str()};
    }
    [[nodiscard]] std::vector<int> numbers() const {
      return {m_MaxLineLength, m_DecodeOptions, m_MaxMailSize, m_MaxBodySize, m_IsHTML};
    }
    [[nodiscard]] bool has_date() const { return m_Date.IsSet(); }
  };
  const Fields bare;
  EXPECT_THAT(bare.texts(), testing::Each(""));
  EXPECT_THAT(bare.numbers(), testing::ElementsAre(0, 0, 0, 10240, 0));
  EXPECT_FALSE(bare.has_date());

  const Fields usual(YString(), 1, 2, 3);
  EXPECT_THAT(usual.texts(), testing::ElementsAre("KV Mail", kOuter, kInner, "multipart/mixed",
                                                  "Envelope-To\x01X-Envelope-To\x01X-Original-To"));
  EXPECT_THAT(usual.numbers(), testing::ElementsAre(76, 3, 1, 2, 0));
  EXPECT_EQ(Fields("X-Mine", 0, 0, 0).texts().back(), "X-Mine");
}

TEST(MessageModel, BuildingAMessageRestoresTheDelimiterOfTheNames) {
  YMIMEMessage::m_weekdays.ItemDelimiter(",");
  YMIMEMessage::m_months.ItemDelimiter(",");
  const OpenMessage message;
  EXPECT_EQ(YMIMEMessage::m_weekdays.GetItem(0), "Mon");
  EXPECT_EQ(YMIMEMessage::m_weekdays.GetItem(6), "Sun");
  EXPECT_EQ(YMIMEMessage::m_months.GetItem(11), "Dec");
  EXPECT_EQ(YMIMEMessage::m_months.GetItemCount(), 12);
}

TEST(MessageModel, PartsGoToTheFrontWhenTheyAreTexts) {
  YMIMEMessage::CMIMEPart container(YString(), kMimeAlternative, YString(), kMimeEncodingContainer, false);
  for (const auto& [text, type] : {std::pair{"file", kMimeOctetStream}, std::pair{"html", kMimeTextHtml},
                                   std::pair{"calendar", kMimeTextCalendar}, std::pair{"\t plain\r\n", kMimeTextPlain}}) {
    YString content = text;
    container.m_AddMIMEPart(content, type, YString("; p"), kMimeEncoding8Bit, true);
  }
  std::string order;
  for (const auto& part : container.parts) order += part->content.str() + ";";
  EXPECT_EQ(order, "plain;html;file;calendar;");
  EXPECT_EQ(container.parts[0]->parameters, "; p");
  EXPECT_TRUE(container.parts[0]->isFile);
}

TEST_F(ComposeTest, CopiesShareTheirPartsAndOutliveEachOther) {
  folder_.write("Nachricht.htm", "<p>html</p>");
  attach((folder_ / "Nachricht.htm").string());
  for (const bool source_first : {true, false}) {
    auto source = std::make_unique<OpenMessage>();
    source->CreateMessage(&mail_);
    auto copy = std::make_unique<OpenMessage>(*source);
    EXPECT_EQ(copy->m_Parts.at(0), source->m_Parts.at(0));
    EXPECT_EQ(copy->GetBody(), source->GetBody());
    source->m_Subject = "changed";
    EXPECT_NE(copy->m_Subject, "changed") << "fields are copies";
    (source_first ? source : copy).reset();
    OpenMessage& left = source_first ? *copy : *source;
    const YString body = left.GetBody();
    left.m_FormatMessage(false);
    EXPECT_THAT(left.GetBody().str(), testing::HasSubstr("<p>html</p>"));
  }
}

}  // namespace
}  // namespace yinet::test
