// Answers of DNS servers, byte for byte. The first byte of the input chooses the kind of question.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "yinet/dns/dns_names.h"
#include "yinet/dns/dns_reply.h"

namespace {

void check(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  const bool mail = data[0] % 2 != 0;
  yinet::DnsRecords records;
  const auto status = yinet::read_reply(mail ? yinet::RecordType::mx : yinet::RecordType::a, bytes, records);
  const std::size_t wanted = mail ? records.mail_servers.size() : records.addresses.size();
  check((status == yinet::LookupStatus::found) == (wanted > 0));
  check((mail ? records.addresses.size() : records.mail_servers.size()) == 0);
  check(records.addresses.size() * 4 <= bytes.size());  // an address takes room in the answer

  if (yinet::is_askable_name(bytes)) check(bytes.size() <= 254 && bytes.find('\0') == bytes.npos);
  return 0;
}
