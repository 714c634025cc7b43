#include <thread>

#include "mime/compose_fixture.h"

namespace yinet::test {
namespace {

constexpr int kThreads = 8;
constexpr int kMailsPerThread = 30;

// Each thread builds, composes and decodes mails of its own while agents are registered, and decodes a file of all, whose
// attachments are written into one folder under one name.
TEST_F(ComposeTest, MailsAreComposedAndDecodedSideBySide) {
  for (int i = 0; i < 20; ++i) attach_file("a.bin", "Inhalt");
  const YString sent = OpenMessage(mail_).GetHeader() + OpenMessage(mail_).GetBody();
  const YString file(folder_.write("mail.eml", sent.str()).string());
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([t, file, mail = mail_]() mutable {
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
      YObject decoded;
      EXPECT_TRUE(OpenMessage().Decode(file, &decoded, 0));
      const YString list = decoded.GetString("ANLAGEN");
      EXPECT_EQ(list.GetItemCount(), 20);
      for (const auto name : list.Items()) EXPECT_EQ(decoded.GetString(name), "Inhalt");
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(files_left(), std::vector<std::string>{"a.bin"});
  EXPECT_EQ(YMIMEMessage::m_MIMETypeManager.Count(), 4 + kMailsPerThread);
}

}  // namespace
}  // namespace yinet::test
