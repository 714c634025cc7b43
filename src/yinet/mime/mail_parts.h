#pragma once

// The parts of a decoded mail as a list for people: one entry per part, containers before what they hold.

#include <cstdint>
#include <string>
#include <vector>

#include "yinet/host/export.h"
#include "yinet/host/ystring.h"

namespace yinet {

struct MailPartEntry {
  int depth = 0;         // 0 for the mail itself
  std::string type;      // "text/html"; empty when the part names none
  std::string name;      // of the attachment; empty for texts and containers
  std::string encoding;  // transfer encoding as the part names it
  std::string charset;
  std::int64_t size = -1;  // bytes of the decoded content; -1 for containers and parts that hold none
};

// Decodes a mail file and lists its parts, those of embedded mails included. Empty when there is no such mail.
YINET_API std::vector<MailPartEntry> list_mail_parts(const YString& file);

}  // namespace yinet
