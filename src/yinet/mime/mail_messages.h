#pragma once

// The messages of composing mails. Safe to call from several threads; they never throw.

#include <string_view>

namespace yinet {

// An attachment stays out of the mail; `cause` is an errno.
void report_unsendable_attachment(std::string_view path, int cause) noexcept;

// Something was taken out of a value that would have broken its header line. `what` names the value.
void report_replaced_line_break(std::string_view what, std::string_view value) noexcept;

}  // namespace yinet
