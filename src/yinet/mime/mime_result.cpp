// YMIMEMessage: from the tree of part records to the result that scripts read.

#include <string>
#include <string_view>
#include <unordered_set>

#include "yinet/host/text.h"
#include "yinet/host/yfile.h"
#include "yinet/mime/mail_date.h"
#include "yinet/mime/mail_decode_state.h"
#include "yinet/mime/mail_keys.h"
#include "yinet/mime/part_record.h"
#include "yinet/mime/ymime_message.h"

namespace {

namespace mail_key = yinet::mail_key;
namespace part = yinet::part;

constexpr std::string_view kCutNotice =
    "...\r\n\r\n------- System-Hinweis:\r\nDiese Nachricht ist gr\xF6\xDF"
    "er als die zugelassenen $1$ KB und wurde daher abgeschnitten! Die vollst\xE4ndige Nachricht befindet sich in der "
    "Datei \"$2$\".";

std::string_view without_brackets(std::string_view address) {
  if (address.starts_with('<')) address.remove_prefix(1);
  if (address.ends_with('>')) address.remove_suffix(1);
  return address;
}

// What follows the first "<", less the last character, or the whole text.
std::string_view address_of(std::string_view text) {
  const std::size_t bracket = text.find('<');
  if (bracket == std::string_view::npos) return text;
  text.remove_prefix(bracket + 1);
  if (!text.empty()) text.remove_suffix(1);
  return text;
}

// What stands before the first "<", less the blank between.
std::string_view sender_name_of(std::string_view text) {
  const std::size_t bracket = text.find('<');
  if (bracket == std::string_view::npos) return {};
  text = text.substr(0, bracket);
  if (text.ends_with(' ')) text.remove_suffix(1);
  return text;
}

// The addresses in the envelope headers, each once, in order.
YString original_recipients(std::string_view text) {
  YString list;
  std::unordered_set<std::string_view> seen;
  for (std::string_view item : yinet::split(text, ";, ")) {
    item = yinet::trimmed(item);
    if (item.find('@') == std::string_view::npos || item.starts_with('"') || item.starts_with('=')) continue;
    if (const std::size_t bracket = item.find('<'); bracket != std::string_view::npos) item.remove_prefix(bracket);
    item = without_brackets(item);
    if (seen.insert(item).second) list.AddItem(item);
  }
  return list;
}

bool read_file(const YString& path, YBuffer& bytes) {
  YFile file(path);
  std::string content;
  if (!file.Open(yinet::kOpenExisting, yinet::kAccessRead) || !file.ReadAll(content)) return false;
  bytes.Add(content);
  return true;
}

// What not every mail brings must not stay from the mail that was decoded into the record before.
void delete_earlier_envelope(YObject& result, bool short_record, bool information) {
  for (const std::string_view key : {mail_key::kReplyAddress, mail_key::kSent, mail_key::kHeader}) result.Delete(key);
  if (short_record) result.Delete(mail_key::kSenderName);
  if (short_record || information) result.Delete(mail_key::kText);
  if (!information) result.Delete(mail_key::kPartInformation);
}

}  // namespace

bool YMIMEMessage::m_GetMail(YObject* result, bool nested, unsigned long flags) {
  if (result == nullptr) return false;
  const bool information = (flags & yinet::kDecodeInformation) != 0;
  if (nested) {
    m_StoreNestedText(result);
  } else {
    const bool short_record = (flags & yinet::kDecodeShort) != 0;
    delete_earlier_envelope(*result, short_record, information);
    m_StoreEnvelope(result, flags);
    if (!information && !short_record) m_StoreText(result);
    if (const YDateAndTime sent = yinet::parse_mail_date(m_Mail.GetString("Date")); sent.IsSet()) {
      result->Store<YDateAndTime>(mail_key::kSent, sent);
    }
    YString archive_id = m_Mail.GetString("X-PGDocID");
    if (archive_id.IsEmpty()) archive_id = m_Mail.GetString("X-MAILVALT-MailArchiv-ID");
    result->StoreText(mail_key::kArchiveId, archive_id);
    if (const auto* header = m_Mail.Find<YObject>(part::kHeader)) result->Store<YObject>(mail_key::kHeader, *header);
  }

  if (auto* parts = m_Mail.Find<YObjectArray>(part::kParts)) {
    m_GetAttachments(parts, result, m_Mail.GetFlags(part::kParts) != 0, nested);
  } else if (const YString* file = m_Mail.Find<YString>(part::kFileEntry)) {
    m_TakeFile(*file, result);
  }
  if (information) return true;
  for (const auto& message : m_EmbeddedMessages) message->m_GetMail(result, true, 0);
  return true;
}

void YMIMEMessage::m_StoreEnvelope(YObject* result, unsigned long flags) {
  const bool short_record = (flags & yinet::kDecodeShort) != 0;
  const YString originals = original_recipients(m_Recipients);
  result->StoreText(mail_key::kOriginalRecipients, originals);

  const bool originals_replace_to = m_IsHTML && !originals.IsEmpty();
  if (originals_replace_to) result->StoreText(mail_key::kTo, originals);
  for (const int kind : {yinet::kRecipientTo, yinet::kRecipientCc}) {
    const bool is_to = kind == yinet::kRecipientTo;
    if (is_to && originals_replace_to) continue;
    YString list;
    YString address;
    YString name;
    for (int i = 0; GetRecipient(address, name, i, kind); ++i) list.AddItem(without_brackets(address));
    result->StoreText(is_to ? mail_key::kTo : mail_key::kCc, list);
  }

  result->StoreText(mail_key::kSender, address_of(m_From));
  if (!short_record) result->StoreText(mail_key::kSenderName, sender_name_of(m_From));
  result->StoreText(mail_key::kSubject, m_Subject);
  if (const YString reply_to = m_Mail.GetString("Reply-To"); !short_record && !reply_to.IsEmpty()) {
    result->StoreText(mail_key::kReplyAddress, address_of(reply_to));
  }
}

void YMIMEMessage::m_StoreText(YObject* result) {
  YString text = m_Mail.GetString(part::kBody);
  const std::uint8_t flag = m_Mail.GetFlags(part::kBody);
  if (flag == 1) {
    m_CreateAttachment(result, text, YString("htm"));
    m_ConvertHTM2TXT(text);
  }
  if (text.Length() > m_MaxBodySize) {
    const YString file = m_CreateAttachment(result, text, YString("txt"));
    text.Cut(m_MaxBodySize);
    const std::int64_t limit_kb = (std::int64_t{m_MaxBodySize} + 1023) / 1024;
    text += yinet::formatted(kCutNotice, std::to_string(limit_kb), file);
  }
  result->Store<YString>(mail_key::kText, std::move(text), flag);
}

void YMIMEMessage::m_StoreNestedText(YObject* result) {
  const YString text = m_Mail.GetString(part::kBody);
  if (text.IsEmpty()) return;
  YString& outer = result->Ensure<YString>(mail_key::kText);
  if (m_Mail.GetFlags(part::kBody) == 1) {
    m_CreateAttachment(result, text, YString("htm"));
  } else if (result->GetFlags(mail_key::kText) != 0) {
    m_CreateAttachment(result, text, YString("txt"));
  } else {
    outer += yinet::kEmbeddedMailHeading;
    outer += text;
  }
}

YString YMIMEMessage::m_CreateAttachment(YObject* result, const YString& text, const YString& extension) {
  const yinet::AttachmentName name{"Nachricht", "." + extension.str()};
  const auto is_key = [&](const std::string& candidate) { return result->Exist(candidate); };
  yinet::AttachmentNames unshared;
  yinet::AttachmentNames& names = decode_state_ == nullptr ? unshared : decode_state_->budget->names;
  YString key(names.next_free(name, is_key));
  result->Store<YBuffer>(key, YBuffer(text.str()), mail_key::kGeneratedFile);
  result->Ensure<YString>(mail_key::kAttachments).AddItem(key);
  return key;
}

// Moves a file into the result. One that this decode did not write and that cannot be read stays where it is, and the
// result gets nothing.
bool YMIMEMessage::m_TakeFile(const YString& path, YObject* result) {
  const YString name = YFile::ExtractNameAndExtension(path);
  YBuffer bytes;
  if (auto written = decode_state_ == nullptr ? decltype(decode_state_->files)::node_type()
                                              : decode_state_->files.extract(path.str())) {
    bytes = std::move(written.mapped());
  } else if (!read_file(path, bytes)) {
    return false;
  }
  result->Store<YBuffer>(name, std::move(bytes));
  result->Ensure<YString>(mail_key::kAttachments).AddItem(name);
  YFile::Delete(path);
  return true;
}

void YMIMEMessage::m_GetAttachments(YObjectArray* parts, YObject* result, bool /*alternative*/, const bool& nested) {
  if (parts == nullptr || result == nullptr) return;
  result->Ensure<YString>(mail_key::kText);
  result->Ensure<YString>(mail_key::kAttachments);
  for (int i = 0; i < parts->Count(); ++i) {
    YObject& record = *parts->ItemPtr(i);
    const YString* body = record.Find<YString>(part::kBody);
    if (body != nullptr && !body->IsEmpty()) {
      m_StorePartText(*body, record.GetString(part::kSubtype), result);
    } else if (const YString* file = record.Find<YString>(part::kFileEntry)) {
      m_TakeFile(*file, result);
    }
    if (auto* children = record.Find<YObjectArray>(part::kParts)) {
      m_GetAttachments(children, result, record.GetFlags(part::kParts) != 0, nested);
    }
  }
}

void YMIMEMessage::m_StorePartText(const YString& text, const YString& subtype, YObject* result) {
  if (subtype.EqualsIC("html")) {
    m_CreateAttachment(result, text, YString("htm"));
  } else if (!subtype.IsEmpty() && !subtype.EqualsIC("plain")) {
    return;
  } else if (result->GetFlags(mail_key::kText) != 0) {
    m_CreateAttachment(result, text, YString("txt"));
  } else {
    YString& outer = result->Ensure<YString>(mail_key::kText);
    if (!outer.IsEmpty()) outer += yinet::kEmbeddedMailHeading;
    outer += text;
  }
}
