// Lists of recipients: every item is bounded by what stood in the list, and no recipient is without an address.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "yinet/host/yobject.h"
#include "yinet/mime/mail_parser.h"
#include "yinet/mime/recipient_list.h"

namespace {

void check(const std::string& list) {
  std::size_t total = 0;
  for (const auto& [address, name] : yinet::parse_recipients(list)) {
    if (address.empty() || (!name.empty() && address.front() != '<')) std::abort();
    total += address.size() + name.size();
  }
  if (total > list.size()) std::abort();

  if (MailParser.ExtractDisplayName(list).Length() > static_cast<int>(list.size())) std::abort();
  if (MailParser.ExtractMailAddress(list, ",").Length() > static_cast<int>(list.size())) std::abort();
  const YObject fields = MailParser.ParseMailHeader(list);
  for (int i = 0; i < fields.GetStringKeyCount(); ++i)
    if (fields.GetStringKey(i).IsEmpty() || !fields.FindAt<YString>(i)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  check(input);

  std::string mapped;
  constexpr std::string_view kLikely[] = {"eva@x.de", "<",      ">",   ";", ", ", "\"",   "=?utf-8?B?", "w4Q=",
                                          "?=",       "=?a?Q?", "=2C", "_", " ",  "\r\n", ": ",         "X-A"};
  for (const char c : input) mapped += kLikely[static_cast<unsigned char>(c) % std::size(kLikely)];
  check(mapped);
  return 0;
}
