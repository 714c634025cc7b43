// The message as an object: copies, and the registry of content agents. Who frees what, and how often, is seen
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
  registry->RegisterMIMEType(new TextHTML(code_of(3)));
  registry->RegisterStandardAgents();
  EXPECT_EQ(types(*registry, {0, 1, 2, 3, 4, -1}),
            "text/plain text/html text/calendar text/html application/octet-stream application/octet-stream ");
  registry->RegisterMIMEType(new TextHTML(code_of(0)));
  EXPECT_EQ(types(*registry, {0, 7}), "text/plain text/html ");
  registry->RegisterStandardAgents();
  EXPECT_EQ(types(*registry, {7}), "application/octet-stream ");
  const int count = registry->Count();
  registry->RegisterStandardAgents();
  EXPECT_EQ(registry->Count(), count);
  Registry assigned;
  assigned = *std::make_unique<Registry>(*registry);
  registry.reset();
  EXPECT_EQ(types(assigned, {3, 7}), "text/html application/octet-stream ");
}

TEST_F(ComposeTest, TheGlobalRegistryServesAllMessages) {
  Registry& registry = YMIMEMessage::m_MIMETypeManager;
  const int before = registry.Count();
  const YMIMEMessage bare;
  EXPECT_EQ(registry.Count(), before) << "the default constructor registers nothing";
  OpenMessage message;
  registry.RegisterMIMEType(new TextHTML(code_of(43)));
  message.m_Parts.push_back(
      std::make_shared<YMIMEMessage::CMIMEPart>(YString(" content "), code_of(77), YString(), kMimeEncoding8Bit, false));
  message.append_mime_parts();
  EXPECT_THAT(message.m_Body.str(), testing::HasSubstr("text/html\r\n"));
}

TEST_F(ComposeTest, TemporaryFilesLiveAsLongAsAnyCopyOfTheMessage) {
  attach_file("Nachricht.htm", "<p>html</p>");
  attach_from_record("a.txt", "content");
  auto first = std::make_unique<OpenMessage>(mail_);
  auto second = std::make_unique<OpenMessage>(*first);
  EXPECT_EQ(first->m_Parts.at(0), second->m_Parts.at(0)) << "parts are shared";
  first->m_Subject = "changed";
  EXPECT_NE(second->m_Subject, "changed") << "fields are copies";
  OpenMessage third;
  third = *second;
  first.reset();
  second->m_Parts.clear();
  second.reset();
  EXPECT_THAT(temporary_files(), testing::ElementsAre("MAIL0001.TMP"));
  third.m_Body.Clear();
  third.m_FormatMessage(false);
  for (const char* content : {"<p>html</p>", "Y29udGVudA=="})
    EXPECT_THAT(third.GetBody().str(), testing::HasSubstr(content));
  third = OpenMessage();
  EXPECT_TRUE(temporary_files().empty());
}

}  // namespace
}  // namespace yinet::test
