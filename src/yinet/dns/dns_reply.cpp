#include "yinet/dns/dns_reply.h"

#include <ares.h>
#include <netdb.h>

#include <array>
#include <cstring>
#include <limits>
#include <memory>
#include <utility>

namespace yinet {
namespace {

constexpr auto kStatuses = std::to_array<std::pair<int, LookupStatus>>({
    {ARES_SUCCESS, LookupStatus::found},
    {ARES_ENODATA, LookupStatus::no_records},
    {ARES_ENOTFOUND, LookupStatus::no_such_name},
    {ARES_EREFUSED, LookupStatus::refused},
    {ARES_ETIMEOUT, LookupStatus::timed_out},
    {ARES_ECANCELLED, LookupStatus::timed_out},  // by us, when the time was up
    {ARES_EBADNAME, LookupStatus::bad_name},
});

struct FreeHost {
  void operator()(hostent* host) const { ares_free_hostent(host); }
};
struct FreeData {
  void operator()(void* data) const { ares_free_data(data); }
};

LookupStatus read_addresses(const unsigned char* bytes, int size, DnsRecords& records) {
  hostent* parsed = nullptr;
  const int status = ares_parse_a_reply(bytes, size, &parsed, nullptr, nullptr);
  const std::unique_ptr<hostent, FreeHost> host(parsed);
  if (status != ARES_SUCCESS) return status_from_ares(status);
  for (char** entry = host->h_addr_list; *entry; ++entry) {
    std::uint32_t address = 0;
    std::memcpy(&address, *entry, sizeof address);
    records.addresses.push_back(address);
  }
  return records.addresses.empty() ? LookupStatus::no_records : LookupStatus::found;
}

LookupStatus read_mail_servers(const unsigned char* bytes, int size, DnsRecords& records) {
  ares_mx_reply* parsed = nullptr;
  const int status = ares_parse_mx_reply(bytes, size, &parsed);
  const std::unique_ptr<ares_mx_reply, FreeData> list(parsed);
  if (status != ARES_SUCCESS) return status_from_ares(status);
  for (const ares_mx_reply* entry = list.get(); entry; entry = entry->next)
    records.mail_servers.push_back({entry->host, entry->priority});
  return records.mail_servers.empty() ? LookupStatus::no_records : LookupStatus::found;
}

}  // namespace

LookupStatus status_from_ares(int ares_status) {
  for (const auto& [code, status] : kStatuses)
    if (code == ares_status) return status;
  return LookupStatus::server_failure;
}

LookupStatus read_reply(RecordType type, std::string_view reply, DnsRecords& records) {
  records = {};
  if (reply.size() > std::numeric_limits<std::uint16_t>::max()) return LookupStatus::server_failure;
  const auto* bytes = reinterpret_cast<const unsigned char*>(reply.data());
  const int size = static_cast<int>(reply.size());
  LookupStatus status = LookupStatus::server_failure;
  switch (type) {
    case RecordType::a: status = read_addresses(bytes, size, records); break;
    case RecordType::mx: status = read_mail_servers(bytes, size, records); break;
  }
  // A name inside the answer that is none says nothing about the name we asked for.
  return status == LookupStatus::bad_name ? LookupStatus::server_failure : status;
}

}  // namespace yinet
