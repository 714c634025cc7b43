#include "yinet/dns/ynet_dns.h"

#include <arpa/inet.h>

#include <exception>
#include <string>
#include <utility>

#include "yinet/dns/dns_names.h"
#include "yinet/dns/resolver.h"
#include "yinet/host/codepage.h"
#include "yinet/host/messages.h"
#include "yinet/host/text.h"
#include "yinet/host/yerror.h"

YnetDNS_Class YInetDNS;

namespace {

using yinet::DnsRecords;
using yinet::LookupOutcome;
using yinet::LookupStatus;
using yinet::RecordType;
using yinet::Resolver;

constexpr std::string_view kServerKey = "SERVER";
constexpr std::string_view kPreferenceKey = "PRIO";

bool is_localhost(std::string_view name) {
  return yinet::equal_ignoring_case(name, "localhost") || yinet::equal_ignoring_case(name, "localhost.");
}

// The hosts file knows addresses only.
LookupOutcome find_records(Resolver& resolver, const std::string& name, RecordType type) {
  if (type == RecordType::a)
    if (const auto address = resolver.address_in_hosts_file(name)) return {LookupStatus::found, {{*address}, {}}};
  return resolver.look_up(name, type);
}

std::unique_ptr<DnsRecords> report_failed_query(const YString& domain, LookupStatus status) {
  yinet::raise_message(yinet::message::kErrorLevel, yinet::message::kDnsQueryFailed, domain,
                       std::to_string(static_cast<int>(status)));
  return nullptr;
}

// Out of memory is all that can be thrown below.
template <typename Result, typename Body>
Result guarded(const YString& domain, Body body) noexcept {
  try {
    return body();
  } catch (const std::exception&) {
    report_failed_query(domain, LookupStatus::server_failure);
    return Result();
  }
}

}  // namespace

std::unique_ptr<DnsRecords> YnetDNS_Class::GetServerForDomain(const YString& domain, RecordType type) {
  const std::string name = yinet::name_to_utf8(domain);
  if (!yinet::is_askable_name(name)) return report_failed_query(domain, LookupStatus::bad_name);
  Resolver resolver;
  if (const int error = resolver.setup_error()) {
    yinet::raise_message(yinet::message::kErrorLevel, yinet::message::kDnsLibraryFailed, std::to_string(error));
    return nullptr;
  }
  LookupOutcome outcome = find_records(resolver, name, type);
  if (outcome.status != LookupStatus::found) return report_failed_query(domain, outcome.status);
  return std::make_unique<DnsRecords>(std::move(outcome.records));
}

std::uint32_t YnetDNS_Class::GetIPAdressForDomain(const YString& domain) const noexcept {
  return guarded<std::uint32_t>(domain, [&]() -> std::uint32_t {
    if (const auto address = yinet::parse_dotted_address(domain)) return *address;
    if (is_localhost(domain)) return htonl(INADDR_LOOPBACK);
    const auto records = GetServerForDomain(domain, RecordType::a);
    return records ? records->addresses.back() : 0;
  });
}

YObjectArray YnetDNS_Class::GetMailServerForDomain(const YString& domain) const noexcept {
  return guarded<YObjectArray>(domain, [&] {
    YObjectArray servers;
    const auto records = GetServerForDomain(domain, RecordType::mx);
    if (!records) return servers;
    for (const auto& [name, preference] : records->mail_servers) {
      YObject* server = servers.New();
      server->StoreText(kServerKey, yinet::name_from_utf8(name));
      server->Store<std::int32_t>(kPreferenceKey, preference);
    }
    servers.Sort(kPreferenceKey, true);
    return servers;
  });
}
