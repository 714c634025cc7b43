#include "yinet/filetransfer/transfer_formats.h"

#include <algorithm>

#include "yinet/host/text.h"

namespace yinet {
namespace {

constexpr std::string_view kHexDigits = "0123456789ABCDEF";

bool is_control_or_blank(char c) { return static_cast<unsigned char>(c) <= ' ' || c == '\x7F'; }

void append_escape(char c, std::string& text) {
  text.append({'%', kHexDigits[static_cast<unsigned char>(c) >> 4], kHexDigits[static_cast<unsigned char>(c) & 15]});
}

// Whether `text` begins with "%" and two hexadecimal digits.
bool is_escape(std::string_view text) {
  return text.size() >= 3 && text[0] == '%' && hex_value(text[1]) >= 0 && hex_value(text[2]) >= 0;
}

bool must_be_encoded(std::string_view rest, PathForm form) {
  const char c = rest.front();
  if (is_control_or_blank(c) || static_cast<unsigned char>(c) > '\x7F') return true;
  if (c == '%') return form == PathForm::literal || !is_escape(rest);
  return form != PathForm::http && (c == '#' || c == '?' || c == ';');
}

}  // namespace

std::optional<std::string_view> port_text(std::string_view address) {
  const std::size_t bracket = address.starts_with('[') ? address.find(']') : std::string_view::npos;
  const std::size_t colon = address.find(':', bracket == std::string_view::npos ? 0 : bracket);
  if (colon == std::string_view::npos) return std::nullopt;
  return address.substr(colon + 1);
}

bool is_port_text(std::string_view text) {
  return text.empty() || (std::ranges::all_of(text, is_digit) && text.find_first_not_of('0') != std::string_view::npos);
}

bool leaves_host_part(std::string_view address) {
  return std::ranges::any_of(address, is_control_or_blank) || address.find_first_of("/@?#\\") != std::string_view::npos;
}

std::string without_login(std::string_view address) {
  const std::size_t at = address.rfind('@');
  return at == std::string_view::npos ? std::string(address) : "***" + std::string(address.substr(at));
}

std::string encoded_path(std::string_view path, PathForm form) {
  std::string encoded;
  encoded.reserve(path.size());
  for (; !path.empty(); path.remove_prefix(1)) {
    const char c = path.front();
    if (must_be_encoded(path, form)) append_escape(c, encoded);
    else encoded.push_back(c);
  }
  return encoded;
}

std::string without_escapes(std::string_view name) { return replaced(name, "%", "%25"); }

std::string encoded_query(std::string_view text) {
  constexpr std::string_view kPlain = "-._~";
  std::string encoded;
  for (const char c : text) {
    const bool letter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    if (letter || is_digit(c) || kPlain.find(c) != std::string_view::npos) encoded += c;
    else append_escape(c, encoded);
  }
  return encoded;
}

std::string quoted_for_sftp(std::string_view path) {
  std::string quoted = "\"";
  for (const char c : path) {
    if (c == '"' || c == '\\') quoted.push_back('\\');
    quoted.push_back(c);
  }
  return quoted + '"';
}

std::string_view current_folder_in(std::string_view dialogue) {
  const std::size_t begin = dialogue.find('"');
  const std::size_t end = begin == std::string_view::npos ? begin : dialogue.find('"', begin + 1);
  if (end == std::string_view::npos) return {};
  const std::string_view behind = dialogue.substr(end + 1);
  if (!behind.starts_with(" is current directory") && !behind.starts_with(" is the current directory")) return {};
  return dialogue.substr(begin + 1, end - begin - 1);
}

}  // namespace yinet
