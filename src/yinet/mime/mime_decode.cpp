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
#include "yinet/mime/mail_text.h"
#include "yinet/mime/mail_keys.h"
#include "yinet/mime/part_record.h"
#include "yinet/mime/ymime_message.h"

namespace {

using yinet::find_bytes;

constexpr std::size_t kNone = std::string_view::npos;
constexpr std::string_view kTerminator = "\r\n.\r\n";
constexpr std::size_t kMaxPathBytes = 4096;
// Headers of sound mails do not overlap, so little is added to what the size of the mail allows.
constexpr std::int64_t kHeaderExtra = 1024 * 1024;

// A source that can be the name of a file at all: a whole mail is not worth asking the disk.
bool may_be_file_name(std::string_view source) {
  return !source.empty() && source.size() <= kMaxPathBytes && !yinet::breaks_protocol_line(source);
}

// Searches that are charged to the budget of the decode, so that boundaries that never come cannot cost more than a few
// walks over the mail; once it is used up, the next part is made the last. The end of a part is also the start of the next
// one: the last hit is remembered.
class BoundarySearch {
 public:
  BoundarySearch(std::string_view text, std::string_view boundary, yinet::MailDecodeState& state)
      : text_(text), boundary_(boundary), last_(state.last_boundary), budget_(*state.budget) {}

  // The boundary at or after `from`: anywhere in the text or, in a readable decode, as a delimiter line.
  [[nodiscard]] std::size_t next(std::size_t from) const {
    const bool is_known = last_.boundary == boundary_ && from <= last_.at;
    if (is_known && from >= last_.from) return last_.at;
    std::size_t at = search(from, is_known ? last_.from + boundary_.size() - 1 : kNone);
    if (is_known && at == kNone) at = last_.at;
    last_ = {std::string(boundary_), from, at};
    return at;
  }

  // Position of the dashes before the closing delimiter at or after `from`.
  [[nodiscard]] std::size_t close(std::size_t from) const {
    const std::string wanted = "--" + std::string(boundary_) + "--";
    for (std::size_t at = from;; at += 2) {
      at = find(wanted, at);
      if (at == kNone || !budget_.readable || at_line_start(at)) return at;
    }
  }

  // Without a closing delimiter the part ends at its last delimiter behind the first.
  [[nodiscard]] std::size_t last_delimiter(std::size_t first) const {
    const std::string wanted = "--" + std::string(boundary_);
    std::size_t last = kNone;
    for (std::size_t at = find(wanted, first + boundary_.size() + 2); at != kNone;
         at = find(wanted, at + 4 + boundary_.size())) {
      last = at;
    }
    return last;
  }

  // First position of the part whose delimiter has its boundary at `at`.
  [[nodiscard]] std::size_t part_start(std::size_t at) const {
    std::size_t start = at + boundary_.size() + 2;
    if (budget_.readable) {  // blanks may follow the boundary on its line
      const std::size_t line_end = find("\r\n", at + boundary_.size());
      start = line_end == kNone ? text_.size() : line_end + 2;
    }
    return std::min(start, text_.size());
  }

 private:
  // Hits that begin at or after `from` and end at or before `limit`.
  [[nodiscard]] std::size_t search(std::size_t from, std::size_t limit) const {
    for (std::size_t at = from;; ++at) {
      at = find(boundary_, at, limit);
      if (at == kNone || !budget_.readable || is_delimiter(at)) return at;
    }
  }
  [[nodiscard]] std::size_t find(std::string_view what, std::size_t from, std::size_t limit = kNone) const {
    const std::string_view text = text_.substr(0, limit);
    const std::size_t at = find_bytes(text, what, from);
    const std::size_t walked = std::min(at, text.size()) - std::min(from, text.size());
    budget_.search_left -= static_cast<std::int64_t>(walked + 16 + (at == kNone ? 0 : what.size()));
    return at;
  }
  [[nodiscard]] bool at_line_start(std::size_t at) const { return at == 0 || text_[at - 1] == '\n'; }
  [[nodiscard]] bool is_delimiter(std::size_t at) const {
    if (at < 2 || text_.substr(at - 2, 2) != "--" || !at_line_start(at - 2)) return false;
    const std::string_view behind = text_.substr(at + boundary_.size(), 2);
    return behind.empty() || yinet::is_blank(behind.front()) || behind == "--";
  }

  std::string_view text_;
  std::string_view boundary_;
  yinet::BoundaryHit& last_;
  yinet::MailDecodeBudget& budget_;
};

// Where the header of a part ends and its body begins.
struct PartLayout {
  std::size_t header_start = 0;
  std::size_t header_end = 0;  // behind the line end of the last header line
  std::size_t body_start = 0;
  bool has_header = true;
};

std::size_t find_blank_line(std::string_view text, std::size_t start, yinet::MailDecodeState& state) {
  if (start >= state.blank_line_from && start <= state.blank_line_at) return state.blank_line_at;
  const std::size_t found = std::min(find_bytes(text, "\r\n\r\n", start), text.size());
  state.budget->search_left -= static_cast<std::int64_t>(found - start);
  state.blank_line_from = start;
  state.blank_line_at = found;
  return found;
}

PartLayout lay_out(std::string_view text, std::size_t start, std::string_view parent_boundary,
                   yinet::MailDecodeState& state) {
  PartLayout layout;
  if (!state.last_line_end) state.last_line_end = text.rfind("\r\n");
  const bool has_line = *state.last_line_end != kNone && start <= *state.last_line_end;
  const bool is_bare = !has_line || text.substr(start).starts_with("\r\n");
  if (start != 0 && (is_bare || state.budget->headers_left <= 0)) {
    layout.has_header = false;
    layout.body_start = is_bare ? std::min(start + 2, text.size()) : start;
    return layout;
  }
  const std::size_t blank_line = find_blank_line(text, start, state);
  layout.header_start = start;
  // Without a blank line the part is all header.
  const bool found = blank_line < text.size();
  layout.header_end = found ? blank_line + 2 : text.size();
  layout.body_start = found ? blank_line + 4 : text.size();
  if (!parent_boundary.empty()) {
    // A header ends at the latest where the next part begins, which may be at once.
    const std::string delimiter = "\r\n--" + std::string(parent_boundary);
    const std::string_view header = text.substr(0, layout.header_end);
    if (const std::size_t at = find_bytes(header, delimiter, start - std::min<std::size_t>(start, 2)); at != kNone) {
      layout.header_end = layout.body_start = at + 2;
    }
  }
  if (start == 0 && text.starts_with('+')) {  // a status line of the server left in front
    const std::size_t line_end = find_bytes(text, "\r\n", 0);
    layout.header_start = line_end == kNone ? 0 : std::min(line_end + 2, layout.header_end);
  }
  return layout;
}

bool is_media(const YObject& part, std::string_view media, std::string_view subtype) {
  return part.GetString(yinet::part::kMedia).EqualsIC(media) && part.GetString(yinet::part::kSubtype).EqualsIC(subtype);
}

std::shared_ptr<yinet::MailDecodeBudget> make_budget(std::int64_t size) {
  namespace settings = yinet::settings;
  auto budget = std::make_shared<yinet::MailDecodeBudget>();
  // Beyond these no mail reaches a limit, and the numbers still can be multiplied.
  constexpr std::int64_t kMostFactor = 1'000'000;
  constexpr std::int64_t kMostExtra = std::int64_t{1} << 50;
  const std::int64_t extra = std::min(yinet::setting_number(settings::kMailContentExtra), kMostExtra);
  const std::int64_t content = size * std::min(yinet::setting_number(settings::kMailContentFactor), kMostFactor) + extra;
  budget->depth_limit = static_cast<int>(std::min<std::int64_t>(yinet::setting_number(settings::kMailDepthLimit), 500));
  budget->parts_left = yinet::setting_number(settings::kMailPartLimit);
  budget->content_left = content;
  budget->embedded_left = content;
  budget->headers_left = size * yinet::setting_number(settings::kMailContentFactor) + kHeaderExtra;
  budget->search_left = 16 * size + 8 * extra;
  budget->readable = yinet::setting_flag(settings::kMailReadable);
  return budget;
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
  if (text.ends_with(kTerminator) && find_bytes(text, kTerminator, 0) == text.size() - kTerminator.size()) {
    text.resize(text.size() - kTerminator.size());
  }
}

}  // namespace

namespace yinet {

bool MailDecodeBudget::is_in_folder(const YString& folder, const std::string& name) {
  const auto [entry, is_new] = folders_.try_emplace(folder.str());
  if (is_new) {
    const auto limit = static_cast<int>(setting_number(settings::kMailFolderNames));
    for (const YString& known : YFileManager.ListFolder(folder.IsEmpty() ? YString(".") : folder, limit)) entry->second.insert(to_lower(known));
  }
  return entry->second.contains(to_lower(name));
}

MailDecodeState::~MailDecodeState() {
  if (!discards_files) return;
  for (const auto& [file, content] : files) YFile::Delete(YString(file));
}

}  // namespace yinet

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
  decode_state_->budget = make_budget(static_cast<std::int64_t>(text.size()));
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
  YLog.Event(yinet::message::kErrorLevel, yinet::message::kScriptFunctionFailed, "YMIMEMessage::Decode", failure.what());
  return false;
}

void YMIMEMessage::m_DecodePart(YObject* part, int start, const YString& parentBoundary, unsigned long flags,
                                YObject* partInformation) {
  using namespace yinet;
  const std::string_view text = m_MailText;
  MailDecodeState& state = *decode_state_;
  MailDecodeBudget& budget = *state.budget;
  const bool short_record = (flags & kDecodeShort) != 0;
  const bool information = (flags & kDecodeInformation) != 0;
  const bool top_level = start == 0;

  const PartLayout layout = lay_out(text, static_cast<std::size_t>(start), parentBoundary, state);
  if (layout.has_header &&
      charge(budget.headers_left, static_cast<std::int64_t>(layout.header_end - layout.header_start))) {
    YString header(text.substr(layout.header_start, layout.header_end - layout.header_start));
    m_DecodeHeader(part, header);
    if ((flags & kDecodeKeepHeader) != 0) part->Store<YObject>(part::kHeader, YObject(*part));
  }

  if (!state.notice) state.notice = find_size_notice(text);
  const bool cut_by_fetcher = !short_record && *state.notice != kNone;
  if (cut_by_fetcher) {
    part->StoreText(part::kBody, text.substr(*state.notice));
  } else if (!m_DecodeMultipart(part, static_cast<int>(layout.body_start), flags, partInformation)) {
    int end = -1;
    if (!parentBoundary.IsEmpty() && !state.last_part) {
      const std::size_t next = BoundarySearch(text, parentBoundary, state).next(layout.body_start);
      if (next != kNone) end = static_cast<int>(std::max(next, layout.body_start + 2) - 2);
    }
    m_DecodeLeaf(part, static_cast<int>(layout.body_start), end, top_level, !parentBoundary.IsEmpty(), information,
                 partInformation);
  }
  if (top_level) m_TakeEnvelope();
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
  if (first == kNone && budget.readable) return false;  // a multipart in name only: its content is kept
  std::size_t end = first == kNone ? kNone : search.close(body_start);
  if (end == kNone && first != kNone) end = budget.readable ? text.size() : search.last_delimiter(first);

  YObjectArray& parts = part->Store<YObjectArray>(part::kParts, YObjectArray(),
                                                  is_media(*part, "Multipart", "Alternative") ? 1 : 0);
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
    m_DecodeEmbedded(start, end);
    m_DecodeItem(part, start, end, false);
  } else if (subtype.EqualsIC("delivery-status")) {
    part->StoreText(part::kFilename, "delivery-status.txt");
    m_DecodeItem(part, start, end, false);
  }
  // Partial and external bodies, and message types that nobody knows, hold nothing to decode.
}

void YMIMEMessage::m_DecodeEmbedded(int start, int end) {
  using namespace yinet;
  MailDecodeState& state = *decode_state_;
  const std::string_view content = m_Content(start, end);
  if (state.depth >= state.budget->depth_limit || state.last_part ||
      !charge(state.budget->embedded_left, static_cast<std::int64_t>(content.size()))) {
    return;
  }
  auto message = std::make_shared<YMIMEMessage>(m_EnvelopeHeaders, m_MaxMailSize, m_MaxBodySize, m_DecodeOptions);
  m_EmbeddedMessages.push_back(message);
  message->m_MailText = YString(content);
  message->m_MailDir = m_MailDir;
  message->decode_state_ = std::make_shared<MailDecodeState>();
  message->decode_state_->budget = state.budget;
  message->decode_state_->depth = state.depth + 1;
  message->decode_state_->discards_files = true;
  message->m_DecodePart(&message->m_Mail, 0, YString(), 0, nullptr);
  std::string().swap(message->m_MailText.str());  // its records hold all that is still needed
}

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
