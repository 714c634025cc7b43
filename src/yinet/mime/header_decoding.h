#pragma once

// Decoding of mail header values: pure functions over text. Safe to call from several threads.

#include <string>
#include <string_view>

namespace yinet {

// Undoes the encoded words (RFC 2047) and extended parameter values (RFC 2231) in one header value. Lenient: a piece that
// cannot be decoded stays as it is. The result is Windows-1252 where the value named UTF-8, otherwise the bytes as sent.
std::string decode_header_value(std::string_view value);

}  // namespace yinet
