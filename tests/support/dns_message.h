// DNS messages as bytes (RFC 1035), written by hand where tests need expected bytes or replies that no
// server would send. Pure functions; names go out uncompressed.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace yinet::test {

inline constexpr std::uint16_t kDnsA = 1;
inline constexpr std::uint16_t kDnsCname = 5;
inline constexpr std::uint16_t kDnsSoa = 6;
inline constexpr std::uint16_t kDnsMx = 15;

// A query as a server sees it.
struct DnsQuery {
  std::uint16_t id = 0;
  std::string name;  // of the first question, with dots between the labels and none at the end
  std::uint16_t type = 0;
};

// Throws std::out_of_range when the bytes are no query with a readable question.
DnsQuery parse_dns_query(std::string_view bytes);

// "mail.x.test" or "mail.x.test." as labels with their lengths. Nothing is checked.
std::string dns_name(std::string_view dotted);

// A message under construction; every function changes it and returns it.
class DnsMessage {
 public:
  static DnsMessage query(const DnsQuery& query) { return {query, 0x0100}; }
  // Same id and question, marked as an answer without errors.
  static DnsMessage reply_to(const DnsQuery& query) { return {query, 0x8180}; }

  DnsMessage& id(std::uint16_t id);
  DnsMessage& code(unsigned response_code);  // 2 server failure, 3 no such name, 5 refused ...
  DnsMessage& truncated();                   // the flag TC, nothing is cut

  DnsMessage& a(std::string_view name, const std::string& address);
  DnsMessage& cname(std::string_view name, std::string_view target);
  DnsMessage& mx(std::string_view name, std::uint16_t preference, std::string_view exchange);

  [[nodiscard]] std::string bytes() const;

 private:
  DnsMessage(const DnsQuery& query, std::uint16_t flags);
  DnsMessage& record(std::string_view name, std::uint16_t type, const std::string& data);
  std::uint16_t id_;
  std::uint16_t flags_;
  std::string question_;
  std::string answers_;
  std::uint16_t answer_count_ = 0;
};

}  // namespace yinet::test
