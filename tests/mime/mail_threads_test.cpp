#include <thread>

#include "mime/mail_fixture.h"

namespace yinet::test {
namespace {

constexpr int kThreads = 8, kMailsPerThread = 30;

// Each thread builds, composes and decodes mails of its own while agents are registered, and decodes a file of all, whose
// attachments are written into one folder under one name.
TEST_F(MailTest, MailsAreComposedAndDecodedSideBySide) {
  start_record();
  for (int i = 0; i < 20; ++i) attach_file("a.bin", "Inhalt");
  const OpenMessage sent(mail_);
  const YString file(folder_.write("mail.eml", sent.GetHeader().str() + sent.GetBody().str()).string());
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([t, file, mail = mail_]() mutable {
      const std::string text = "Gr\xFC\xDFt aus Faden " + std::to_string(t);
      for (const char* key : {"NACHRICHT", "anlage.txt"}) mail.StoreText(key, text);
      mail.StoreText("ANLAGEN", "anlage.txt");
      YObject decoded;
      for (int i = 0; i < kMailsPerThread; ++i) {
        const OpenMessage message(mail);
        const OpenMessage copy = message;
        if (t == 0) YMIMEMessage::m_MIMETypeManager.RegisterMIMEType(new TextPlain(static_cast<eMIMETypeCode>(99)));
        EXPECT_TRUE(OpenMessage().Decode(copy.GetHeader() + copy.GetBody(), &decoded, 8));
        EXPECT_EQ(decoded.GetString("BETREFF"), "Hallo");
        EXPECT_NE(message.GetBody().str().find(text), std::string::npos);
      }
      decoded.Clear();
      EXPECT_TRUE(OpenMessage().Decode(file, &decoded, 0));
      const YString list = decoded.GetString("ANLAGEN");
      EXPECT_EQ(list.GetItemCount(), 20);
      for (const auto name : list.Items()) EXPECT_EQ(decoded.GetString(name), "Inhalt");
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(files_left(), testing::ElementsAre("a.bin"));
  EXPECT_EQ(YMIMEMessage::m_MIMETypeManager.Count(), 4 + kMailsPerThread);
}

}  // namespace
}  // namespace yinet::test
