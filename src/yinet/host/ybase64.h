#pragma once

#include <string>
#include <string_view>

#include "yinet/host/export.h"
#include "yinet/host/ybuffer.h"
#include "yinet/host/ystring.h"

// Base64 of RFC 4648, section 4, with padding and without line breaks. Stateless; safe from several threads.
class YINET_API YBase64 {
 public:
  static YString Encode(const YString& text);
  static YString Encode(const void* bytes, long count);
  // False, and an empty target, when the text is no base64: a character outside the alphabet, padding in the middle,
  // more padding than the last group needs, or a last group of one character. Blanks (space, tab, CR, LF) are passed
  // over; missing padding at the end is accepted.
  static bool Decode(const YString& text, YString& out);
  static bool Decode(const YString& text, YBuffer& out);
};

namespace yinet {

YINET_API std::string base64_encoded(std::string_view bytes);
// As YBase64::Decode; appends to `out`, which is left as it was on failure.
YINET_API bool base64_decode(std::string_view text, std::string& out);
// The same for large texts: needs no memory beside that of `out`.
YINET_API bool base64_decode(std::string_view text, YBuffer& out);

}  // namespace yinet
