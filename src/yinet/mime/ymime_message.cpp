#include "yinet/mime/ymime_message.h"

#include <string_view>
#include <utility>

#include "yinet/host/text.h"
#include "yinet/mime/header_encoding.h"
#include "yinet/mime/mail_keys.h"

namespace {

constexpr std::string_view kNameDelimiter = "#";

YString names(std::string_view list) {
  YString text(list);
  text.ItemDelimiter(kNameDelimiter);
  return text;
}

// Only looked at, as a rule: messages are built on many threads.
void restore_delimiter(YString& list) {
  if (list.ItemDelimiter() != kNameDelimiter) list.ItemDelimiter(kNameDelimiter);
}

YString usual_envelope_headers() {
  YString list;
  for (const char* const name : {"Envelope-To", "X-Envelope-To", "X-Original-To"}) list.AddItem(name);
  return list;
}

const YObjectArray& recipients_of(int kind, const YObjectArray& to, const YObjectArray& cc, const YObjectArray& bcc) {
  return kind == yinet::kRecipientTo ? to : kind == yinet::kRecipientCc ? cc : bcc;
}

using Part = YMIMEMessage::CMIMEPart;

// Texts come before everything else.
Part* insert_part(std::vector<std::shared_ptr<Part>>& parts, std::shared_ptr<Part> part) {
  const bool is_text = part->type == kMimeTextPlain || part->type == kMimeTextHtml;
  return parts.insert(is_text ? parts.begin() : parts.end(), std::move(part))->get();
}

}  // namespace

YString YMIMEMessage::m_weekdays = names("Mon#Tue#Wed#Thu#Fri#Sat#Sun");
YString YMIMEMessage::m_months = names("Jan#Feb#Mar#Apr#May#Jun#Jul#Aug#Sep#Oct#Nov#Dec");
YMIMEMessage::CMIMETypeManager YMIMEMessage::m_MIMETypeManager;

YMIMEMessage::CMIMEPart::CMIMEPart(const YString& content_text, eMIMETypeCode type_code, const YString& parameter_text,
                                   eMIMEEncodingCode encoding_code, bool is_file)
    : encoding(encoding_code),
      type(type_code),
      parameters(parameter_text),
      isFile(is_file),
      content(yinet::trimmed(content_text)) {}

void YMIMEMessage::CMIMEPart::m_AddMIMEPart(YString& subContent, eMIMETypeCode subType, YString subParameters,
                                            eMIMEEncodingCode subEncoding, bool subIsFile) {
  insert_part(parts, std::make_shared<CMIMEPart>(subContent, subType, subParameters, subEncoding, subIsFile));
}

YMIMEMessage::YMIMEMessage() : m_MaxBodySize(yinet::kUsualBodySize) {}

YMIMEMessage::YMIMEMessage(const YString& envelopeHeaders, int maxMailSize, int maxBodySize, int decodeOptions)
    : m_Mailer("KV Mail"),
      m_Boundary("KV_MAIL_PaRt_BoUnDaRy_28052007_XJ"),
      m_AlternativeBoundary("KV_MAIL_PaRt_BoUnDaRy_30032012_WN"),
      m_ContentType("multipart/mixed"),
      m_EnvelopeHeaders(envelopeHeaders.IsEmpty() ? usual_envelope_headers() : envelopeHeaders),
      m_MaxLineLength(yinet::kUsualLineLength),
      m_DecodeOptions(decodeOptions),
      m_MaxMailSize(maxMailSize),
      m_MaxBodySize(maxBodySize) {
  restore_delimiter(m_weekdays);
  restore_delimiter(m_months);
  m_MIMETypeManager.RegisterStandardAgents();
}

YMIMEMessage::YMIMEMessage(const YMIMEMessage& other) = default;
YMIMEMessage& YMIMEMessage::operator=(const YMIMEMessage& other) = default;
YMIMEMessage::~YMIMEMessage() = default;

YString YMIMEMessage::GetFrom() const { return m_From; }
YString YMIMEMessage::GetHeader() const { return m_Header; }
YString YMIMEMessage::GetBody() const { return m_Body; }

int YMIMEMessage::GetNumRecipients(int kind) const { return recipients_of(kind, m_To, m_Cc, m_Bcc).Count(); }

bool YMIMEMessage::GetRecipient(YString& address, YString& name, int index, int kind) const {
  const YObject* const recipient = recipients_of(kind, m_To, m_Cc, m_Bcc).ItemPtr(index);
  if (!recipient) return false;
  address = recipient->GetString(yinet::mail_key::kEmailAddress);
  name = recipient->GetString(yinet::mail_key::kFriendlyName);
  return true;
}

YMIMEMessage::CMIMEPart* YMIMEMessage::m_AddMIMEPart(YString& content, eMIMETypeCode type, YString parameters,
                                                     eMIMEEncodingCode encoding, bool isFile) {
  return insert_part(m_Parts, std::make_shared<CMIMEPart>(content, type, parameters, encoding, isFile));
}
