#pragma once

// How servers and paths are written for libcurl, and what its answers say. Pure functions over bytes.

#include <optional>
#include <string>
#include <string_view>

namespace yinet {

// The text behind the colon of "host:port" or "[IPv6 address]:port"; absent without a colon, maybe empty with one.
std::optional<std::string_view> port_text(std::string_view address);
// Empty, or decimal digits that make at least 1.
bool is_port_text(std::string_view text);
// A character that would end the host's part of a URL or give it another meaning: "/", "@", "?", "#", "\", a blank or a
// control character.
bool leaves_host_part(std::string_view address);
// What stands before the last "@" may be a login.
std::string without_login(std::string_view address);

enum class PathForm {
  http,    // "?" and "#" have their meaning
  name,    // they belong to the name, and so does ";", which would choose a transfer type in FTP
  literal  // "%" belongs to it as well, even where it looks like an escape
};
// Percent-encodes what libcurl would refuse or read otherwise: control characters, blanks, bytes above 126, a "%" that
// begins no escape, and what `form` adds.
std::string encoded_path(std::string_view path, PathForm form);

// A name in which no "%" begins an escape.
std::string without_escapes(std::string_view name);

// Text as a value in the query of a URL: all but letters, digits and "-._~" percent-encoded (RFC 3986, 2.3).
std::string encoded_query(std::string_view text);

// A path as an argument of libcurl's SFTP commands: in quotes, with '"' and "\" escaped.
std::string quoted_for_sftp(std::string_view path);

// The folder that the first quoted text of a dialogue names, when the words behind it say that it is the current one (257
// reply, RFC 959 appendix II, or libcurl's own for SFTP); otherwise empty.
std::string_view current_folder_in(std::string_view dialogue);

}  // namespace yinet
