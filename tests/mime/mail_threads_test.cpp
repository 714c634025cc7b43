#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "mime/compose_fixture.h"

namespace yinet::test {
namespace {

constexpr int kThreads = 8;
constexpr int kMailsPerThread = 30;

class SilentAgent final : public YMIMEContentAgent {
 public:
  SilentAgent() : YMIMEContentAgent(static_cast<eMIMETypeCode>(99)) {}
  bool WritePart(YString, YString, eMIMEEncodingCode, bool, YString&) override { return true; }
  YString GetTypeName() override { return {}; }
  YString MakePartHeader(YString, YString, eMIMEEncodingCode, bool) override { return {}; }
};

// Each thread builds, composes and decodes mails of its own while agents are registered.
TEST_F(ComposeTest, MailsAreComposedAndDecodedSideBySide) {
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([t, mail = mail_]() mutable {
      const std::string text = "Gr\xFC\xDF" "e aus Faden " + std::to_string(t);
      mail.StoreText("NACHRICHT", text);
      mail.StoreText("anlage.txt", text);
      mail.StoreText("ANLAGEN", "anlage.txt");
      for (int i = 0; i < kMailsPerThread; ++i) {
        OpenMessage message;
        message.CreateMessage(&mail);
        const OpenMessage copy = message;
        if (t == 0) YMIMEMessage::m_MIMETypeManager.RegisterMIMEType(new SilentAgent);
        YObject decoded;
        EXPECT_TRUE(OpenMessage().Decode(copy.GetHeader() + copy.GetBody(), &decoded, 8));
        EXPECT_EQ(decoded.GetString("BETREFF"), "Hallo");
        EXPECT_NE(message.GetBody().str().find(text), std::string::npos);
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(temporary_files().empty());
  EXPECT_EQ(YMIMEMessage::m_MIMETypeManager.Count(), 4 + kMailsPerThread);
}

}  // namespace
}  // namespace yinet::test
