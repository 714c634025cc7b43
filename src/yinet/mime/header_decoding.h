#pragma once

// Decoding of mail headers: pure functions over text, linear in its size. Safe to call from several threads.

#include <functional>
#include <string>
#include <string_view>

namespace yinet {

// What one word of a header value is. The numbers are those of YMIMEMessage::m_GetItemCode.
enum class EncodedWord { none = 0, q = 1, base64 = 2 };

// Looks at the whole word: "=?...?B?...?=" or "=?...?Q?...?=". B is tested first.
EncodedWord encoded_word_kind(std::string_view word);

// Undoes the encoded words (RFC 2047) and extended parameter values (RFC 2231) in one header value. Lenient: a piece that
// cannot be decoded stays as it is. The result is Windows-1252 where the value named UTF-8, otherwise the bytes as sent.
// Blanks between an encoded word and what follows it are lost; so are all blanks of a value that ends with an encoded
// word but does not begin with one.
std::string decode_header_value(std::string_view value);

// Calls `on_line(line, is_last)` with every logical line of a header block, continuations joined by one space. Text
// behind the last CRLF counts as no line. The view ends with the call.
void unfold_header(std::string_view header, const std::function<void(std::string_view line, bool is_last)>& on_line);

}  // namespace yinet
