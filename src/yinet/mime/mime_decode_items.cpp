// YMIMEMessage: decoding the content of one part into text or a file, or describing it.

#include <cerrno>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "yinet/charset/charset.h"
#include "yinet/charset/charset_label.h"
#include "yinet/host/codepage.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/text.h"
#include "yinet/host/yfile.h"
#include "yinet/host/ylog.h"
#include "yinet/mime/attachment_names.h"
#include "yinet/mime/mail_decode_state.h"
#include "yinet/mime/mail_text.h"
#include "yinet/mime/part_record.h"
#include "yinet/mime/ymime_message.h"

namespace {

using yinet::equal_ignoring_case;

YString part_name(const YObject& part) {
  for (const std::string_view key : {yinet::part::kName, yinet::part::kFile, yinet::part::kFilename}) {
    if (YString name = part.GetString(key); !name.IsEmpty()) return name;
  }
  return {};
}

yinet::TransferEncoding encoding_of(const YObject& part) {
  return yinet::transfer_encoding_named(part.GetString(yinet::part::kTransferEncoding));
}

// Text in the charset that the part names, as Windows-1252. Unknown charsets leave the text as it is.
void convert_body(YString& text, const YString& charset_label) {
  if (text.IsEmpty() || charset_label.IsEmpty()) return;
  const std::string converter = yinet::converter_for_label(charset_label);
  if (equal_ignoring_case(converter, yinet::kAnsiConverter)) return;
  const bool utf8 = equal_ignoring_case(charset_label, "UTF-8");
  // Most bodies are UTF-8 with nothing that Windows-1252 lacks: the same result without a converter.
  if (utf8 && text.Find(std::string_view("\0", 1)) < 0) {
    if (auto ansi = yinet::ansi_from_utf8(text)) {
      text = YString(*std::move(ansi));
      return;
    }
  }
  const YString converted = charset.ConvertToANSI(text, YString(converter), 0);
  if (!converted.IsEmpty()) text = converted;
  else if (utf8) text.ConvertCharset(YString::kCharsetUtf8, YString::kCharsetSystem);
}

// Quoted-printable in a readable decode: a soft line break at the very end joins the last line with nothing.
std::string_view without_last_soft_break(std::string_view content) {
  std::string_view text = content;
  while (text.ends_with("\r\n")) text.remove_suffix(2);
  return text.ends_with('=') ? text.substr(0, text.size() - 1) : content;
}

// The entries that describe a part in "PARTINFORMATION".
YObject describe(const YObject& part, std::string_view content_type) {
  YObject description;
  description.StoreText("CONTENTTYPE", content_type);
  description.StoreText("CHARSET", part.GetString(yinet::part::kCharset));
  description.StoreText("TRANSFERENCODING", part.GetString(yinet::part::kTransferEncoding));
  return description;
}

// 0, or the error number of what failed; nothing is left behind then.
int write_new_file(const YString& path, std::string_view bytes) {
  YFile file(path);
  if (!file.Open(yinet::kCreateNew, yinet::kAccessRead | yinet::kAccessWrite, yinet::kShareRead | yinet::kShareWrite)) {
    return file.LastError() == 0 ? EIO : file.LastError();
  }
  if (file.Write(bytes) && file.Close()) return 0;
  const int error = file.LastError() == 0 ? EIO : file.LastError();
  file.Close();
  YFile::Delete(path);
  return error;
}

// A repeated name loses its extension and gains "23$" each time; after many times a plain number keeps keys short.
std::string next_information_key(const std::string& name, const YObject& known, yinet::MailDecodeBudget& budget) {
  constexpr std::size_t kLongest = 1000;
  std::string& last = budget.information_keys[yinet::to_lower(name)];
  std::string key = last.empty() ? name : last;
  for (int counter = known.GetStringKeyCount() + 1; known.Exist(key); ++counter) {
    const std::string base = YFile::ExtractName(YString(key)).str();
    key = key.size() < kLongest ? yinet::formatted("$1$$2$3$", base, "2") : name + "_" + std::to_string(counter);
  }
  last = key;
  return key;
}

}  // namespace

void YMIMEMessage::m_DecodeItem(YObject* part, int start, int end, bool topLevel) {
  std::string_view content = m_Content(start, end);
  if (!yinet::charge(decode_state_->budget->content_left, static_cast<std::int64_t>(content.size()))) return;
  if (decode_state_->budget->readable && encoding_of(*part) == yinet::TransferEncoding::quoted_printable)
    content = without_last_soft_break(content);
  const YString name = part_name(*part);
  if (name.IsEmpty() && m_DecodeInlineText(part, content, topLevel)) return;
  m_DecodeToFile(part, content, name);
}

// False when the part is no text that stays inline.
bool YMIMEMessage::m_DecodeInlineText(YObject* part, std::string_view content, bool topLevel) {
  const YString media = part->GetString(yinet::part::kMedia);
  const YString subtype = part->GetString(yinet::part::kSubtype);
  const bool html = subtype.EqualsIC("html");
  const bool untyped = media.IsEmpty();
  if (!untyped && !(media.EqualsIC("Text") && (subtype.EqualsIC("Plain") || html))) return false;
  YString& body = part->Ensure<YString>(yinet::part::kBody);
  if (untyped && !decode_state_->budget->readable) body = YString(yinet::decode_untyped_text(content));
  else body = YString(yinet::decode_inline_text(content, encoding_of(*part)));
  convert_body(body, part->GetString(yinet::part::kCharset));
  if (topLevel && html) part->SetFlags(yinet::part::kBody, 1);
  return true;
}

void YMIMEMessage::m_DecodeToFile(YObject* part, std::string_view content, const YString& name) {
  if (content.ends_with("\r\n") ? content.size() == 2 : content.empty()) return;
  const YString subtype = part->GetString(yinet::part::kSubtype);
  const bool keep_seven_bit = decode_state_->budget->readable || subtype.Equals("calendar");
  const YString path =
      m_WriteNewFile(name.IsEmpty() ? yinet::attachment_name_for_subtype(subtype) : yinet::attachment_name_from(name),
                     yinet::decode_file_content(content, encoding_of(*part), keep_seven_bit));
  if (!path.IsEmpty()) part->StoreText(yinet::part::kFileEntry, path);
}

// Writes under a free name into the mail's folder or, when that cannot be written to, into the temporary one. Gives the
// path, empty when neither took it. The bytes are kept for the result, which then need not read the file again.
YString YMIMEMessage::m_WriteNewFile(const yinet::AttachmentName& name, YBuffer bytes) {
  yinet::MailDecodeBudget& budget = *decode_state_->budget;
  const auto is_key = [&](const std::string& candidate) {
    return budget.result != nullptr && budget.result->Exist(candidate);
  };
  const YString folders[] = {m_MailDir, YString("TEMP:")};
  int error = 0;
  for (bool taken = true; taken;) {
    const std::string candidate = budget.names.next_free(name, is_key);
    taken = false;
    for (const YString& folder : folders) {
      taken = budget.is_in_folder(folder, candidate);
      if (taken) break;
      const YString path = folder + YString(candidate);
      error = write_new_file(path, bytes.view());
      if (error == 0) {
        decode_state_->files.emplace(path.str(), std::move(bytes));
        return path;
      }
      taken = error == EEXIST;
      if (taken) break;
    }
  }
  YLog.Event(yinet::message::kErrorLevel, yinet::message::kMailAttachmentNotWritten,
             yinet::printable(name.base + name.extension), std::generic_category().message(error));
  return {};
}

void YMIMEMessage::m_DecodeItemHeader(YObject* part, int /*start*/, int /*end*/, bool /*topLevel*/,
                                      YObject* partInformation) {
  if (partInformation == nullptr) return;
  const YString media = part->GetString(yinet::part::kMedia);
  const YString subtype = part->GetString(yinet::part::kSubtype);
  const YString name = part_name(*part);
  const std::string type = media.IsEmpty() ? "text/plain" : yinet::formatted("$1$/$2$", media, subtype);
  const bool text = name.IsEmpty() && media.EqualsIC("Text");
  if ((name.IsEmpty() && media.IsEmpty()) || (text && subtype.EqualsIC("Plain"))) {
    partInformation->Store<YObject>("PLAINBODY", describe(*part, type));
  } else if (text && subtype.EqualsIC("html")) {
    partInformation->Store<YObject>("HTMLBODY", describe(*part, type));
  } else {
    auto& attachments = partInformation->Ensure<YObject>("ANLAGENINFO");
    const std::string key = next_information_key(m_MakeAttachFileName(name).str(), attachments, *decode_state_->budget);
    attachments.Store<YObject>(key, describe(*part, type));
  }
}
