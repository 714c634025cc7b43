#include "yinet/mime/mail_messages.h"

#include <system_error>

#include "yinet/host/message_numbers.h"
#include "yinet/host/text.h"
#include "yinet/host/ylog.h"

namespace yinet {

namespace {

constexpr std::size_t kShownCharacters = 200;  // of a value that may be of any length

}  // namespace

void report_unsendable_attachment(std::string_view path, int cause) noexcept try {
  YLog.Event(message::kErrorLevel, message::kMailAttachmentFailed, printable(path),
             std::generic_category().message(cause));
} catch (...) {  // without memory there is no message either
}

void report_replaced_line_break(std::string_view what, std::string_view value) noexcept try {
  YLog.Event(message::kErrorLevel, message::kMailLineBreakReplaced, what, printable(value.substr(0, kShownCharacters)));
} catch (...) {
}

}  // namespace yinet
