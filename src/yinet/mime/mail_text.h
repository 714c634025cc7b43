#pragma once

// What decoding does to the text of a mail and of its parts: pure functions, linear, safe to call from several threads.

#include <string>
#include <string_view>

#include "yinet/host/ybuffer.h"

namespace yinet {

// A text whose first line ends with LF alone comes from a Unix mail box: every lone LF becomes CRLF. Any other text, or
// one without a line end, is left alone and gives false.
bool make_unix_lines_crlf(std::string& text);

// A text that ends its lines with CR alone, as Macintosh systems before 2001 left mails: every CR becomes CRLF. False, and
// nothing changed, where there is any LF.
bool make_mac_lines_crlf(std::string& text);

// The body, from `start` on, of a multipart mail whose header ends its lines with CRLF: where a delimiter stands between
// line ends of which one is a lone LF, every lone LF becomes CRLF. False, and nothing changed, where none does or a part
// may be binary.
bool make_body_lines_crlf(std::string& text, std::size_t start, std::string_view boundary);

// Position of the notice that a fetching program left in place of a mail over its size limit, npos when there is none.
std::size_t find_size_notice(std::string_view text);

// Transfer encodings are told apart by how their name begins, without regard to case.
enum class TransferEncoding { none, binary, base64, eight_bit, quoted_printable, seven_bit, other };
TransferEncoding transfer_encoding_named(std::string_view name);

// The text of a body that stays inline. Trailing line ends go, one ".\r\n" terminator too, and the dot-stuffing of POP3
// is undone where the encoding leaves lines readable. Base64 that cannot be decoded stays, behind a notice in German and
// UTF-8.
std::string decode_inline_text(std::string_view content, TransferEncoding encoding);
// The text of a body without a content type, which is taken for quoted-printable; one trailing line end goes.
std::string decode_untyped_text(std::string_view content);

// The bytes of a part that becomes a file. `keep_seven_bit` writes "7bit" content as it stands; otherwise it counts as
// quoted-printable. Base64 is read with whatever line length, and characters outside its alphabet are passed over.
YBuffer decode_file_content(std::string_view content, TransferEncoding encoding, bool keep_seven_bit);

// Base64 with anything in between: characters outside the alphabet are passed over, padding ends a run, and what
// follows it is decoded too.
void decode_base64_leniently(std::string_view text, std::string& out);

}  // namespace yinet
