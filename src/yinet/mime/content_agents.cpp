#include "yinet/mime/content_agents.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <memory>
#include <string>
#include <string_view>

#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/host/yfile.h"
#include "yinet/mime/base64_lines.h"
#include "yinet/mime/fold_lines.h"
#include "yinet/mime/header_encoding.h"
#include "yinet/mime/mail_messages.h"
#include "yinet/mime/quoted_printable.h"

namespace {

constexpr std::size_t kReadBytes = 4096 * yinet::kBase64LineBytes;  // of an attachment at a time

// What usually follows an attachment, a boundary line: without room for it a large text would move once more.
constexpr std::size_t kRoomBehindFile = 256;

// Positions in a text are ints, so no setting allows more.
std::int64_t body_limit() {
  return std::min<std::int64_t>(yinet::setting_number(yinet::settings::kMailComposeLimit),
                                std::numeric_limits<int>::max());
}

bool fits(const YString& out, std::int64_t more) {
  return static_cast<std::int64_t>(out.str().size()) + more <= body_limit();
}

YString text_header(YMIMEContentAgent& agent, const YString& parameters, std::string_view encoding) {
  return yinet::formatted("Content-Type: $1$$2$\r\nContent-Transfer-Encoding: $3$\r\n\r\n", agent.GetTypeName(),
                          parameters, encoding);
}

// Name and extension of a path as they may stand between quotes in a header; replacements are reported.
std::string header_file_name(const YString& path) {
  const YString name = YFile::ExtractNameAndExtension(path);
  std::string quotable = yinet::quotable_file_name(name);
  if (quotable != name.str()) yinet::report_replaced_line_break("ANLAGEN", name);
  return quotable;
}

std::string octet_stream_header(const YString& type_name, const YString& path, bool is_file) {
  const std::string name = header_file_name(path);
  const std::string file = is_file ? yinet::formatted("; file=\"$1$\"", name) : std::string();
  return yinet::formatted(
      "Content-Type: $1$$2$\r\n"
      "Content-Transfer-Encoding: base64\r\n"
      "Content-Disposition: attachment; filename=\"$3$\"\r\n"
      "\r\n",
      type_name, file, name);
}

// Each line with CRLF behind it, whatever ended it in the file.
void append_lines(std::string_view text, std::string& out) {
  out.append(yinet::with_crlf_line_ends(text));
  if (!text.empty() && !out.ends_with("\r\n")) out.append("\r\n");
}

// Appends the header block and the file, as much of it as is there when it is read. When it cannot be read to its end, or
// the body would grow over its limit, the header block alone is left.
bool write_file_part(const std::string& header, const YString& path, YString& out) {
  out.str() += header;
  const auto fail = [&](int cause) {
    yinet::report_unsendable_attachment(path, cause);
    return false;
  };
  YFile file(path);
  if (!file.Open(yinet::kOpenExisting, yinet::kAccessRead)) return fail(file.LastError());
  const std::int64_t size = std::max<std::int64_t>(file.GetFileSize(), 0);
  const std::int64_t encoded = yinet::base64_lines_size(size) + 2;
  if (!fits(out, encoded)) return fail(EFBIG);

  std::string& text = out.str();
  const std::size_t start = text.size();
  text.reserve(start + static_cast<std::size_t>(encoded) + kRoomBehindFile);
  const auto buffer = std::make_unique_for_overwrite<char[]>(kReadBytes);
  const auto cut = [&](int cause) {
    text.resize(start);
    return fail(cause);
  };
  for (;;) {
    const long count = file.Read(buffer.get(), static_cast<long>(kReadBytes));
    if (count < 0) return cut(file.LastError());
    if (count == 0) break;
    if (!fits(out, yinet::base64_lines_size(count) + 2)) return cut(EFBIG);
    yinet::append_base64_lines({buffer.get(), static_cast<std::size_t>(count)}, text);
  }
  text.append("\r\n");
  return true;
}

}  // namespace

bool TextPlain::WritePart(YString content, YString parameters, eMIMEEncodingCode encoding, bool isFile, YString& out) {
  out += MakePartHeader(content, parameters, encoding, isFile);
  out.str() += yinet::fold_lines(content);
  return true;
}

YString TextPlain::GetTypeName() { return "text/plain"; }

YString TextPlain::MakePartHeader(YString, YString parameters, eMIMEEncodingCode, bool) {
  return text_header(*this, parameters, "8Bit");
}

bool TextHTML::WritePart(YString content, YString parameters, eMIMEEncodingCode encoding, bool isFile, YString& out) {
  out += MakePartHeader(content, parameters, encoding, isFile);
  out.str() += yinet::fold_lines(yinet::quoted_printable_encoded(content));
  return true;
}

YString TextHTML::GetTypeName() { return "text/html"; }

YString TextHTML::MakePartHeader(YString, YString parameters, eMIMEEncodingCode, bool) {
  return text_header(*this, parameters, "quoted-printable");
}

bool TextCalendar::WritePart(YString content, YString parameters, eMIMEEncodingCode encoding, bool isFile,
                             YString& out) {
  if (content.IsEmpty()) return false;
  out += MakePartHeader(content, parameters, encoding, isFile);
  YFile file(content);
  std::string text;
  int cause = 0;
  if (!file.Open(yinet::kOpenExisting, yinet::kAccessRead)) cause = file.LastError();
  else if (!fits(out, 2 * std::max<std::int64_t>(file.GetFileSize(), 0))) cause = EFBIG;
  else if (!file.ReadAll(text)) cause = file.LastError();
  if (cause != 0) {
    yinet::report_unsendable_attachment(content, cause);
    return false;
  }
  append_lines(text, out.str());
  return true;
}

YString TextCalendar::GetTypeName() { return "text/calendar"; }

YString TextCalendar::MakePartHeader(YString content, YString parameters, eMIMEEncodingCode encoding, bool) {
  return yinet::formatted(
      "Content-Type: $1$$2$\r\n"
      "Content-Transfer-Encoding: $3$\r\n"
      "Content-Disposition: attachment; filename=\"$4$\"\r\n"
      "\r\n",
      GetTypeName(), parameters, encoding == kMimeEncoding7Bit ? std::string_view("7bit") : std::string_view(),
      header_file_name(content));
}

bool YAppOctetStream::WritePart(YString content, YString parameters, eMIMEEncodingCode encoding, bool isFile,
                                YString& out) {
  if (content.IsEmpty()) return false;
  return write_file_part(MakePartHeader(content, parameters, encoding, isFile).str(), content, out);
}

bool YAppOctetStream::WriteFileAs(const YString& name, const YString& path, YString& out) {
  return write_file_part(octet_stream_header(GetTypeName(), name, true), path, out);
}

YString YAppOctetStream::GetTypeName() { return "application/octet-stream"; }

YString YAppOctetStream::MakePartHeader(YString content, YString, eMIMEEncodingCode, bool isFile) {
  return octet_stream_header(GetTypeName(), content, isFile);
}
