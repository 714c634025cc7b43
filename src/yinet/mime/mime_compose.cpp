// Composing a mail: from the record to header and body.

#include <algorithm>
#include <exception>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/host/yfile.h"
#include "yinet/host/ylog.h"
#include "yinet/mime/attachment_file.h"
#include "yinet/mime/header_encoding.h"
#include "yinet/mime/mail_keys.h"
#include "yinet/mime/mail_messages.h"
#include "yinet/mime/recipient_list.h"
#include "yinet/mime/ymime_message.h"

namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kPreamble = "This is a multi-part message in MIME format.\r\n\r\n";
constexpr const char* kTextCharset = "; charset=\"iso-8859-1\"";
constexpr const char* kReplyParameters = " ;method=REPLY; charset=UTF-8";  // the blank is expected by readers of old
constexpr std::string_view kContinuation = ",\r\n\t\t";                    // between the recipients of a header line

// The value as it may stand in a header line; what had to be replaced is reported.
YString header_value(const YString& value, std::string_view what) {
  if (!yinet::breaks_protocol_line(value)) return value;
  yinet::report_replaced_line_break(what, value);
  return yinet::one_header_line(value);
}

// Files that host programs write as a mail's HTML body. The second spelling comes from programs that lost a letter.
bool is_html_body(std::string_view path) {
  const std::string native = yinet::replaced(path, "/", "\\");
  for (const std::string_view name : {"\\Nachricht.htm", "\\Nachrich.htm"})
    if (const auto at = yinet::find_ignoring_case(native, name); at != std::string::npos && at > 0) return true;
  return false;
}

bool is_calendar_reply(std::string_view path) {
  for (const std::string_view name : {"Zusage.ics", "Abgelehnt.ics"})
    if (const auto at = path.find(name); at != std::string_view::npos && at > 0) return true;
  return false;
}

bool read_file(const YString& path, YString& target) {
  YFile file(path);
  std::string content;
  if (!file.Open(yinet::kOpenExisting, yinet::kAccessRead) || !file.ReadAll(content)) {
    yinet::report_unsendable_attachment(path, file.LastError());
    return false;
  }
  target = std::move(content);
  return true;
}

void unify_line_ends(YString& text) { text = yinet::with_crlf_line_ends(text); }

void end_line(YString& text) {
  if (!text.EndsWith(kLineEnd)) text += kLineEnd;
}

// "To:" and its recipients, each but the first on a line of its own. A comma inside a name breaks the line as well.
YString recipient_line(std::string_view label, const YObjectArray& recipients) {
  std::string line;
  for (int i = 0; i < recipients.Count(); ++i) {
    if (i > 0) line += ',';
    const YObject& recipient = *recipients.ItemPtr(i);
    line += header_value(recipient.GetString(yinet::mail_key::kFriendlyName), label).str();
    line += '<';
    line += header_value(recipient.GetString(yinet::mail_key::kEmailAddress), label).str();
    line += '>';
  }
  return std::string(label) + yinet::replaced(line, ",", kContinuation) + std::string(kLineEnd);
}

// Back to the Sunday before, unless the date is one.
void to_last_sunday(YDate& date) {
  constexpr int kSunday = 6;
  if (date.Weekday() != kSunday) date.AddDays(-1 - date.Weekday());
}

}  // namespace

void YMIMEMessage::CreateMessage(YObject* mail) try {
  namespace key = yinet::mail_key;
  if (!mail) return;
  const YString attachments = m_CheckAttachments(mail);
  m_From = YString("<$1$>").Format(header_value(mail->GetString(key::kSender), key::kSender));
  m_FromName = mail->GetString(key::kSenderName);
  m_Subject = mail->GetString(key::kSubject);
  m_Body = mail->GetString(key::kText);
  const std::pair<std::string_view, int> lists[] = {
      {key::kTo, yinet::kRecipientTo}, {key::kCc, yinet::kRecipientCc}, {key::kBcc, yinet::kRecipientBcc}};
  for (const auto& [name, kind] : lists) {
    YString list = mail->GetString(name);
    m_AddMultipleRecipients(list, kind);
  }
  m_MailID = header_value(mail->GetString(key::kMailId), key::kMailId);
  m_Date.Set(YDateAndTime::kNow);

  bool is_html = false;
  YString plain_text = m_Body;
  m_AddAttachments(attachments, plain_text, is_html);
  if (yinet::setting_flag(yinet::settings::kMailUnifyLineEnds)) {
    unify_line_ends(m_Body);
    unify_line_ends(m_PlainBody);
  }
  m_FormatMessage(is_html);
  yinet::stuff_dots(m_Body.str());
  if (m_Body.str().size() > static_cast<std::size_t>(std::numeric_limits<int>::max()))
    throw std::length_error("too large");
} catch (const std::exception& failure) {
  // Half a mail must not be sent.
  m_Header.Clear();
  m_Body.Clear();
  YLog.Event(yinet::message::kErrorLevel, yinet::message::kMailComposeFailed, failure.what());
}

void YMIMEMessage::m_AddAttachments(const YString& paths, YString& plainText, bool& isHTML) {
  auto files = std::exchange(attachment_files_, {});
  auto file = files.begin();
  for (const std::string_view item : paths.Items()) {
    YString path(item);
    const bool is_temporary = file != files.end() && (*file)->path() == path;
    if (is_html_body(path)) {
      if (read_file(path, m_Body)) {
        m_PlainBody = plainText;
        isHTML = true;
      }
    } else if (is_calendar_reply(path)) {
      m_AddMIMEPart(path, kMimeTextCalendar, kReplyParameters, kMimeEncoding7Bit, true);
    } else {
      CMIMEPart* const part = m_AddMIMEPart(path, kMimeOctetStream, YString(), kMimeEncodingBase64, true);
      if (is_temporary) part->file = *file;
    }
    if (is_temporary) ++file;
  }
}

void YMIMEMessage::m_FormatMessage(bool isHTML) {
  m_Header.Clear();
  prepare_header();
  m_Header += kLineEnd;
  prepare_body(isHTML);
}

void YMIMEMessage::prepare_header() {
  m_Header += YString("From: $1$\r\n").Format(header_value(m_From, "From"));
  if (m_To.Count() > 0) m_Header += recipient_line("To:", m_To);
  if (m_Cc.Count() > 0) m_Header += recipient_line("Cc:", m_Cc);

  YDate date = m_Date.Date();
  m_Header += YString("Date: $1$, $2:02$ $3$ $4$ $5$ +0$6$00\r\n")
                  .Format(m_weekdays.GetItem(date.Weekday()), date.Day(), m_months.GetItem(date.Month() - 1),
                          date.Year(), m_Date.Time().toString(2), m_IsDateInDST(date) ? 2 : 1);
  m_Subject = m_EncodeHeaderLine(m_Subject);
  m_Header += YString("Subject: $1$\r\n").Format(m_Subject);
  m_Header += YString("X-Mailer: $1$\r\n").Format(header_value(m_Mailer, "X-Mailer"));
  if (!m_MailID.IsEmpty()) m_Header += YString("X-KV-MailID: $1$\r\n").Format(header_value(m_MailID, "X-KV-MailID"));
  m_Header += "MIME-Version: 1.0\r\n";
  m_Header += YString("Content-Type: $1$; boundary=$2$\r\n").Format(m_ContentType, m_Boundary);
}

void YMIMEMessage::prepare_body(bool isHTML) {
  if (isHTML && !m_PlainBody.IsEmpty()) {
    YString none;
    CMIMEPart* const container = m_AddMIMEPart(none, kMimeAlternative, YString(), kMimeEncodingContainer, false);
    container->m_AddMIMEPart(m_Body, kMimeTextHtml, kTextCharset, kMimeEncodingQuotedPrintable, false);
    container->m_AddMIMEPart(m_PlainBody, kMimeTextPlain, kTextCharset, kMimeEncoding8Bit, false);
    // It was added behind the attachments; what a reader shall see first comes first.
    std::rotate(m_Parts.begin(), m_Parts.end() - 1, m_Parts.end());
  } else if (isHTML) {
    m_AddMIMEPart(m_Body, kMimeTextHtml, kTextCharset, kMimeEncodingQuotedPrintable, false);
  } else {
    m_AddMIMEPart(m_Body, kMimeTextPlain, kTextCharset, kMimeEncoding8Bit, false);
  }
  m_Body = kPreamble;  // the parts have copies of their own
  m_PlainBody.Clear();
  append_mime_parts();
  insert_message_end(m_Body);
  end_line(m_Body);
}

void YMIMEMessage::append_mime_parts() {
  for (const auto& part : m_Parts) {
    if (part->type == kMimeAlternative) {
      insert_boundary(m_Body);
      m_Body += YString("Content-Type: multipart/alternative; boundary=$1$\r\n\r\n").Format(m_AlternativeBoundary);
      for (const auto& alternative : part->parts) {
        YMIMEContentAgent* const agent = m_MIMETypeManager.GetHandler(alternative->type);
        if (!agent) continue;
        insert_Alternativeboundary(m_Body);
        agent->WritePart(alternative->content, alternative->parameters, alternative->encoding, alternative->isFile,
                         m_Body);
      }
      m_Body += YString("\r\n--$1$--\r\n").Format(m_AlternativeBoundary);
      continue;
    }
    YMIMEContentAgent* const agent = m_MIMETypeManager.GetHandler(part->type);
    if (!agent) continue;
    insert_boundary(m_Body);
    // Only the library's own agent can give a file another name; others see the file as it is.
    auto* const octet_stream = dynamic_cast<YAppOctetStream*>(agent);
    if (octet_stream && part->file && !part->file->name().IsEmpty())
      octet_stream->WriteFileAs(part->file->name(), part->content, m_Body);
    else agent->WritePart(part->content, part->parameters, part->encoding, part->isFile, m_Body);
  }
}

void YMIMEMessage::insert_boundary(YString& text) {
  end_line(text);
  text += YString("--$1$\r\n").Format(m_Boundary);
}

void YMIMEMessage::insert_Alternativeboundary(YString& text) {
  end_line(text);
  text += YString("--$1$\r\n").Format(m_AlternativeBoundary);
}

void YMIMEMessage::insert_message_end(YString& text) {
  end_line(text);
  text += YString("--$1$--\r\n").Format(m_Boundary);
}

void YMIMEMessage::m_AddMultipleRecipients(YString& list, int kind) {
  const std::size_t limit =
      m_IsDecoding() ? static_cast<std::size_t>(std::max(yinet::setting_int(yinet::settings::kMailRecipientLimit), 1))
                     : std::numeric_limits<std::size_t>::max();
  for (yinet::Recipient& recipient : yinet::parse_recipients(list, limit)) {
    YString address(std::move(recipient.address));
    YString name(std::move(recipient.name));
    m_AddRecipient(address, name, kind);
  }
}

// Whoever reads the recipients puts them into a protocol line sooner or later. Only those of a record are worth a report:
// a mail that was received may hold any number of bad ones.
void YMIMEMessage::m_AddRecipient(YString& address, YString& name, int kind) {
  namespace key = yinet::mail_key;
  YObjectArray& recipients = kind == yinet::kRecipientTo ? m_To : kind == yinet::kRecipientCc ? m_Cc : m_Bcc;
  YObject& recipient = *recipients.New();
  const bool decoding = m_IsDecoding();
  for (const auto& [entry, value] : {std::pair(key::kEmailAddress, &address), std::pair(key::kFriendlyName, &name)})
    recipient.StoreText(entry, decoding ? yinet::one_header_line(*value) : header_value(*value, entry).str());
}

YString YMIMEMessage::m_EncodeHeaderLine(const YString& text) {
  return yinet::encoded_header_line(text, m_MaxLineLength);
}

// The days on which the clocks change count whole, and the last day is the Saturday before they go back.
bool YMIMEMessage::m_IsDateInDST(YDate& date) {
  YDate start(date.Year(), 3, 31);
  to_last_sunday(start);
  YDate end(date.Year(), 10, 31);
  to_last_sunday(end);
  end.AddDays(-1);
  return date >= start && date <= end;
}
