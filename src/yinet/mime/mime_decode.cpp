// YMIMEMessage: decoding a mail, from its text to the tree of part records.

#include <algorithm>
#include <exception>
#include <limits>
#include <string>
#include <string_view>

#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/host/yfile.h"
#include "yinet/host/ylog.h"
#include "yinet/mime/byte_search.h"
#include "yinet/mime/mail_decode_state.h"
#include "yinet/mime/mail_keys.h"
#include "yinet/mime/mail_text.h"
#include "yinet/mime/part_layout.h"
#include "yinet/mime/part_record.h"
#include "yinet/mime/ymime_message.h"

namespace {

constexpr std::size_t kNone = std::string_view::npos;
constexpr std::string_view kTerminator = "\r\n.\r\n";
constexpr std::size_t kMaxPathBytes = 4096;

// A source that can be the name of a file at all: a whole mail is not worth asking the disk.
bool may_be_file_name(std::string_view source) {
  return !source.empty() && source.size() <= kMaxPathBytes && !yinet::breaks_protocol_line(source);
}

bool is_media(const YObject& part, std::string_view media, std::string_view subtype) {
  return part.GetString(yinet::part::kMedia).EqualsIC(media) && part.GetString(yinet::part::kSubtype).EqualsIC(subtype);
}

// Reads a mail file whole. False, and logged where a log entry is due, when it is empty or cannot be read.
bool read_mail_file(const YString& name, std::string& text) {
  YFile file(name);
  if (!file.Open(yinet::kOpenExisting, yinet::kAccessRead)) return false;
  const std::int64_t size = file.GetFileSize();
  if (size < 1) {
    YLog.Event(yinet::message::kErrorLevel, yinet::message::kMailFileEmpty, name);
    return false;
  }
  if (size > std::numeric_limits<int>::max()) {
    YLog.Event(yinet::message::kErrorLevel, yinet::message::kMailFileTooLarge, name);
    return false;
  }
  return file.ReadAll(text);
}

void drop_terminator(std::string& text) {
  if (text.ends_with(kTerminator) && yinet::find_bytes(text, kTerminator) == text.size() - kTerminator.size()) {
    text.resize(text.size() - kTerminator.size());
  }
}

}  // namespace

bool YMIMEMessage::Decode(const YString& mail, YObject* record, unsigned long flags) try {
  decode_state_.reset();
  m_MailText.Clear();
  m_MailDir.Clear();
  m_Mail.Clear();
  m_EmbeddedMessages.clear();
  m_Recipients.Clear();
  m_To.Clear();
  m_Cc.Clear();
  m_Bcc.Clear();
  if (record == nullptr) return false;

  const bool information = (flags & yinet::kDecodeInformation) != 0;
  std::string& text = m_MailText.str();
  const bool is_file = (!information || may_be_file_name(mail)) && YFile::Exist(mail);
  if (is_file) {
    if (!read_mail_file(mail, text)) {
      m_MailText.Clear();
      return false;
    }
    m_MailDir = YFile::ExtractPath(mail);
  } else if (information && !mail.IsEmpty()) {
    text = mail.str();
    m_MailDir = YString("Temp:");
  } else {
    return false;
  }
  if (yinet::setting_flag(yinet::settings::kMailUnixLines)) yinet::make_unix_lines_crlf(text);
  if (yinet::setting_flag(yinet::settings::kMailReadable)) yinet::make_mac_lines_crlf(text);
  if (is_file) drop_terminator(text);
  if (text.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    YLog.Event(yinet::message::kErrorLevel, yinet::message::kMailFileTooLarge, mail.Copy(0, 255));
    m_MailText.Clear();
    return false;
  }

  decode_state_ = std::make_shared<yinet::MailDecodeState>();
  decode_state_->budget = yinet::make_mail_decode_budget(static_cast<std::int64_t>(text.size()));
  decode_state_->budget->result = record;
  YObject* part_information = nullptr;
  if (information) part_information = &record->Store<YObject>(yinet::mail_key::kPartInformation, YObject());
  m_DecodePart(&m_Mail, 0, YString(), flags, part_information);
  const bool done = m_GetMail(record, false, flags);
  decode_state_->budget->result = nullptr;
  return done;
} catch (const std::exception& failure) {
  m_MailText.Clear();
  if (decode_state_) decode_state_->discards_files = true;
  decode_state_.reset();
  YLog.Event(yinet::message::kErrorLevel, yinet::message::kScriptFunctionFailed, "YMIMEMessage::Decode",
             failure.what());
  return false;
}

void YMIMEMessage::m_DecodePart(YObject* part, int start, const YString& parentBoundary, unsigned long flags,
                                YObject* partInformation) {
  using namespace yinet;
  MailDecodeState& state = *decode_state_;
  MailDecodeBudget& budget = *state.budget;
  const bool short_record = (flags & kDecodeShort) != 0;
  const bool information = (flags & kDecodeInformation) != 0;
  const bool top_level = start == 0;

  const PartLayout layout = lay_out(m_MailText, static_cast<std::size_t>(start), parentBoundary, state);
  if (layout.has_header &&
      charge(budget.headers_left, static_cast<std::int64_t>(layout.header_end - layout.header_start))) {
    YString header(std::string_view(m_MailText).substr(layout.header_start, layout.header_end - layout.header_start));
    m_DecodeHeader(part, header);
    if ((flags & kDecodeKeepHeader) != 0) part->Store<YObject>(part::kHeader, YObject(*part));
  }
  if (top_level && budget.readable) m_UnifyLineEnds(layout.body_start, part->GetString(part::kBoundary));

  const std::string_view text = m_MailText;
  const auto part_end = [&] {
    if (parentBoundary.IsEmpty() || state.last_part) return kNone;
    return BoundarySearch(text, parentBoundary, state).part_end(layout.body_start);
  };
  const std::size_t end_around = state.end;
  if (budget.readable) state.end = state.last_part ? kNone : std::min(part_end(), end_around);
  if (!state.notice) state.notice = find_size_notice(text);
  const bool cut_by_fetcher = !short_record && *state.notice != kNone;
  if (cut_by_fetcher) {
    part->StoreText(part::kBody, text.substr(*state.notice));
  } else if (!m_DecodeMultipart(part, static_cast<int>(layout.body_start), flags, partInformation)) {
    const std::size_t end = budget.readable ? state.end : part_end();
    m_DecodeLeaf(part, static_cast<int>(layout.body_start), end == kNone ? -1 : static_cast<int>(end), top_level,
                 !parentBoundary.IsEmpty(), information, partInformation);
  }
  state.end = end_around;
  if (top_level) m_TakeEnvelope();
}

// Programs that pass mails on have been seen to rewrite the line ends of the header alone.
void YMIMEMessage::m_UnifyLineEnds(std::size_t bodyStart, const YString& boundary) {
  std::string& text = m_MailText.str();
  if (text.size() > std::size_t{std::numeric_limits<int>::max()} / 2) return;  // positions stay ints
  if (yinet::make_body_lines_crlf(text, bodyStart, boundary)) decode_state_->forget_positions();
}

bool YMIMEMessage::m_DecodeMultipart(YObject* part, int bodyStart, unsigned long flags, YObject* partInformation) {
  using namespace yinet;
  MailDecodeState& state = *decode_state_;
  MailDecodeBudget& budget = *state.budget;
  const YString boundary = part->GetString(part::kBoundary);
  if (boundary.IsEmpty() || state.last_part || state.depth >= budget.depth_limit || budget.search_left <= 0) {
    return false;
  }
  const std::string_view text = m_MailText;
  const BoundarySearch search(text, boundary, state);
  const auto body_start = static_cast<std::size_t>(bodyStart);
  const std::size_t first = search.next(body_start);
  // A multipart in name only: its content is kept.
  if (budget.readable && (first == kNone || search.closes(first))) return false;
  std::size_t end = first == kNone ? kNone : search.close(body_start);
  if (end == kNone && first != kNone) end = budget.readable ? text.size() : search.last_delimiter(first);

  YObjectArray& parts =
      part->Store<YObjectArray>(part::kParts, YObjectArray(), is_media(*part, "Multipart", "Alternative") ? 1 : 0);
  if (end == kNone) return true;
  ++state.depth;
  for (std::size_t at = first; at != kNone && at > 0 && at < end; at = search.next(at)) {
    // The last part that fits keeps whatever follows it.
    if (--budget.parts_left <= 0 || budget.search_left <= 0) state.last_part = true;
    const std::size_t start = search.part_start(at);
    at += boundary.str().size();
    m_DecodePart(parts.New(), static_cast<int>(start), boundary, flags, partInformation);
    if (state.last_part) break;
  }
  --state.depth;
  return true;
}

void YMIMEMessage::m_DecodeLeaf(YObject* part, int start, int end, bool topLevel, bool inMultipart, bool information,
                                YObject* partInformation) {
  using namespace yinet;
  const YString subtype = part->GetString(part::kSubtype);
  if (!inMultipart || !part->GetString(part::kMedia).EqualsIC("Message")) {
    if (!information) m_DecodeItem(part, start, end, topLevel);
    else if (partInformation != nullptr) m_DecodeItemHeader(part, start, end, topLevel, partInformation);
    return;
  }
  if (subtype.EqualsIC("RFC822")) {
    m_DecodeEmbedded(part, start, end);
    m_DecodeItem(part, start, end, false);
  } else if (subtype.EqualsIC("delivery-status")) {
    part->StoreText(part::kFilename, "delivery-status.txt");
    m_DecodeItem(part, start, end, false);
  }
  // Partial and external bodies, and message types that nobody knows, hold nothing to decode.
}

void YMIMEMessage::m_DecodeEmbedded(YObject* part, int start, int end) {
  using namespace yinet;
  MailDecodeState& state = *decode_state_;
  const std::string_view content = m_Content(start, end);
  if (state.depth >= state.budget->depth_limit || state.last_part ||
      !charge(state.budget->embedded_left, static_cast<std::int64_t>(content.size()))) {
    return;
  }
  auto message = std::make_shared<YMIMEMessage>(m_EnvelopeHeaders, m_MaxMailSize, m_MaxBodySize, m_DecodeOptions);
  part->Store<std::int32_t>(part::kEmbedded, static_cast<std::int32_t>(m_EmbeddedMessages.size()));
  m_EmbeddedMessages.push_back(message);
  const TransferEncoding encoding = transfer_encoding_named(part->GetString(part::kTransferEncoding));
  const bool encoded = encoding == TransferEncoding::base64 || encoding == TransferEncoding::quoted_printable;
  if (encoded && state.budget->readable) {  // forbidden, but seen
    message->m_MailText = decode_file_content(content, encoding, true).toString();
    if (setting_flag(settings::kMailUnixLines)) make_unix_lines_crlf(message->m_MailText.str());
  } else {
    message->m_MailText = YString(content);
  }
  message->m_MailDir = m_MailDir;
  message->decode_state_ = std::make_shared<MailDecodeState>();
  message->decode_state_->budget = state.budget;
  message->decode_state_->depth = state.depth + 1;
  message->decode_state_->discards_files = true;
  message->m_DecodePart(&message->m_Mail, 0, YString(), 0, nullptr);
  std::string().swap(message->m_MailText.str());  // its records hold all that is still needed
}

bool YMIMEMessage::m_IsDecoding() const { return decode_state_ && decode_state_->budget->result != nullptr; }

void YMIMEMessage::m_TakeEnvelope() {
  using namespace yinet;
  m_Date.Set(YDateAndTime::kNow);
  m_Subject = m_Mail.GetString("Subject");
  const YString* body = m_Mail.Find<YString>(part::kBody);
  if (m_Subject.IsEmpty() && (body == nullptr || body->IsEmpty())) m_Subject = YString("(Kein Betreff)");
  m_From = m_Mail.GetString("From");
  std::string recipients;
  for (const std::string_view name : m_EnvelopeHeaders.Items()) {
    const YString value = m_Mail.GetString(name);
    if (value.IsEmpty()) continue;
    if (!recipients.empty()) recipients += ' ';
    recipients += value;
  }
  m_Recipients = YString(std::move(recipients));
  YString to = m_Mail.GetString("To");
  m_AddMultipleRecipients(to, kRecipientTo);
  YString cc = m_Mail.GetString("Cc");
  m_AddMultipleRecipients(cc, kRecipientCc);
}

std::string_view YMIMEMessage::m_Content(int start, int end) const {
  const std::string_view text = m_MailText;
  const std::size_t first = std::min(static_cast<std::size_t>(std::max(start, 0)), text.size());
  const std::size_t last = end < 0 ? text.size() : std::min(static_cast<std::size_t>(end), text.size());
  return first < last ? text.substr(first, last - first) : std::string_view();
}
