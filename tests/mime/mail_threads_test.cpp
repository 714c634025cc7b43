#include <thread>

#include "mime/compose_fixture.h"

namespace yinet::test {
namespace {

constexpr int kThreads = 8;
constexpr int kMailsPerThread = 30;

// Each thread builds, composes and decodes mails of its own while agents are registered.
TEST_F(ComposeTest, MailsAreComposedAndDecodedSideBySide) {
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([t, mail = mail_]() mutable {
      const std::string text = "Gr\xFC\xDF" "e aus Faden " + std::to_string(t);
      for (const char* key : {"NACHRICHT", "anlage.txt"}) mail.StoreText(key, text);
      mail.StoreText("ANLAGEN", "anlage.txt");
      for (int i = 0; i < kMailsPerThread; ++i) {
        const OpenMessage message(mail);
        const OpenMessage copy = message;
        if (t == 0) YMIMEMessage::m_MIMETypeManager.RegisterMIMEType(new TextPlain(static_cast<eMIMETypeCode>(99)));
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
