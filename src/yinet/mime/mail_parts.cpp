#include "yinet/mime/mail_parts.h"

#include <string_view>

#include "yinet/host/yfile.h"
#include "yinet/host/yobject.h"
#include "yinet/mime/part_record.h"
#include "yinet/mime/ymime_message.h"

namespace yinet {

// Sees the part records of messages, embedded ones included.
class MailPartLister {
 public:
  explicit MailPartLister(const YObject& result) : result_(result) {}

  void list(const YMIMEMessage& message, int depth) { list_part(message, message.m_Mail, depth); }

  std::vector<MailPartEntry> entries;

 private:
  void list_part(const YMIMEMessage& message, const YObject& record, int depth) {
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
    entries.push_back(std::move(entry));
    if (const auto* embedded = record.Find<std::int32_t>(part::kEmbedded)) {
      list(*message.m_EmbeddedMessages[static_cast<std::size_t>(*embedded)], depth + 1);
    }
    if (const auto* parts = record.Find<YObjectArray>(part::kParts)) {
      for (int i = 0; i < parts->Count(); ++i) list_part(message, *parts->ItemPtr(i), depth + 1);
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
