#include "yinet/mime/mail_parts.h"

#include <string_view>

#include "yinet/host/text.h"
#include "yinet/host/yfile.h"
#include "yinet/host/yobject.h"
#include "yinet/mime/part_record.h"
#include "yinet/mime/ymime_message.h"

namespace yinet {

// Sees the part records of messages, embedded ones included.
class MailPartLister {
 public:
  explicit MailPartLister(const YObject& result) : result_(result) {}

  void list(const YMIMEMessage& message, int depth) {
    std::size_t embedded = 0;
    list_part(message, message.m_Mail, depth, embedded);
  }

  std::vector<MailPartEntry> entries;

 private:
  void list_part(const YMIMEMessage& message, const YObject& record, int depth, std::size_t& embedded) {
    MailPartEntry entry;
    entry.depth = depth;
    const std::string media = record.GetString(part::kMedia).str();
    if (!media.empty()) entry.type = media + "/" + record.GetString(part::kSubtype).str();
    entry.encoding = record.GetString(part::kTransferEncoding).str();
    entry.charset = record.GetString(part::kCharset).str();
    if (const auto* body = record.Find<YString>(part::kBody)) entry.size = body->Length();
    if (const auto* file = record.Find<YString>(part::kFileEntry)) {
      const YString name = YFile::ExtractNameAndExtension(*file);
      entry.name = name.str();
      if (const auto* bytes = result_.Find<YBuffer>(name)) entry.size = bytes->Size();
    }
    const bool is_mail = equal_ignoring_case(entry.type, "message/rfc822");
    entries.push_back(std::move(entry));
    if (is_mail && depth > 0 && embedded < message.m_EmbeddedMessages.size()) {
      list(*message.m_EmbeddedMessages[embedded++], depth + 1);
    }
    if (const auto* parts = record.Find<YObjectArray>(part::kParts)) {
      for (int i = 0; i < parts->Count(); ++i) list_part(message, *parts->ItemPtr(i), depth + 1, embedded);
    }
  }

  const YObject& result_;
};

std::vector<MailPartEntry> list_mail_parts(const YString& file) {
  YMIMEMessage message(YString(), 0, kUsualBodySize, 0);
  YObject result;
  if (!message.Decode(file, &result, 0)) return {};
  MailPartLister lister(result);
  lister.list(message, 0);
  return std::move(lister.entries);
}

}  // namespace yinet
