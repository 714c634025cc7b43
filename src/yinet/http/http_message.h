#pragma once

// HTTP messages taken apart and field blocks written, without I/O: what HttpHelper and the reader of forms share. Pure
// functions, linear in their input; views point into it.

#include <functional>
#include <optional>
#include <string>
#include <string_view>

class YObject;

namespace yinet {

struct MessageHalves {
  std::string_view header;  // with the line end of its last line
  std::string_view body;
};
// Cuts a message at its first empty line, LF LF or CR LF CR LF. A message that begins with a line end has no header.
// Nothing when there is no empty line.
std::optional<MessageHalves> split_message(std::string_view message);

// The lines of a field block as entries of `fields`: trimmed name and trimmed text, or a key without a value for a line
// without colon. A value that comes again is joined to the earlier one by 0x01, as an item list. CR LF, CR and LF each
// end a line, empty lines are passed over. False at the first line without a name; what came before it is stored.
bool parse_field_lines(std::string_view block, YObject& fields);

// The way back: "name:value" lines with CR LF. Nothing when a name or a value holds CR, LF or NUL.
std::optional<std::string> field_lines(const YObject& fields);

// Calls `on_pair` for every "name=value" between "&", as bytes with escapes decoded and "+" as a blank; without "=" the
// value is empty. Nothing between two "&" is no pair. Ends early when `on_pair` gives false, and then gives false.
bool for_each_query_pair(std::string_view query,
                         const std::function<bool(std::string name, std::string value)>& on_pair);

}  // namespace yinet
