#pragma once

#include <string_view>

#include "yinet/host/ydatetime.h"

namespace yinet {

// The instant of a "Date" header (RFC 5322, 3.3, and the older forms that mails still carry). Not set for a text that is
// no date. Safe to call from several threads.
YDateAndTime parse_mail_date(std::string_view text);

}  // namespace yinet
