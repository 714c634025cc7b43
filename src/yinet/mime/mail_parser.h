#pragma once

#include <string_view>

#include "yinet/host/export.h"
#include "yinet/host/yobject.h"
#include "yinet/host/ystring.h"

// Takes mail addresses and header blocks apart, letter by letter as they stand: no decoding, no check. Has no fields;
// any number of threads may use one object. Never throws; when memory runs out the result is empty.
class YINET_API MailParser_class {
 public:
  // The name before the first "<", without blanks around it and without one pair of double quotes. Empty for a bare
  // address.
  YString ExtractDisplayName(const YString& address) const noexcept;

  // The addresses of a list separated by ",", joined with `separator`: of each item the text in angle brackets, or the
  // whole item, blanks included, where there are none. A comma inside a display name splits as well.
  YString ExtractMailAddress(const YString& list, YString separator) const noexcept;

  // One text entry per header field, under the field's name. A line starts a field when it holds ": " and does not begin
  // with a blank or a tab; any other line is appended to the field before it as it stands. Repeated fields share one
  // entry, their values separated by CRLF.
  YObject ParseMailHeader(const YString& header) const noexcept;
};
YINET_API extern MailParser_class MailParser;
