#include "support/dns_message.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <stdexcept>

namespace yinet::test {
namespace {

constexpr std::size_t kHeaderSize = 12;
constexpr std::uint16_t kReply = 0x8000;
constexpr std::uint16_t kTruncated = 0x0200;
constexpr std::uint16_t kRecursionDesired = 0x0100;
constexpr std::uint16_t kRecursionAvailable = 0x0080;
constexpr std::uint16_t kCodeMask = 0x000F;
constexpr std::uint16_t kClassInternet = 1;
constexpr unsigned kSecondsToLive = 60;

std::string two_bytes(unsigned number) {
  return {static_cast<char>(number >> 8 & 0xFF), static_cast<char>(number & 0xFF)};
}

std::uint16_t number_at(std::string_view bytes, std::size_t at) {
  if (at + 2 > bytes.size()) throw std::invalid_argument("the DNS message ends too early");
  return static_cast<std::uint16_t>(static_cast<unsigned char>(bytes[at]) << 8 |
                                    static_cast<unsigned char>(bytes[at + 1]));
}

}  // namespace

DnsQuery parse_dns_query(std::string_view bytes, bool over_tcp) {
  DnsQuery query{std::string(bytes), number_at(bytes, 0), {}, 0, over_tcp};
  if (number_at(bytes, 4) != 1) throw std::invalid_argument("not one question");
  std::size_t at = kHeaderSize;
  for (;;) {
    const std::size_t length = at < bytes.size() ? static_cast<unsigned char>(bytes[at]) : 0;
    if (at + 1 + length > bytes.size() || length > 63) throw std::invalid_argument("the name can't be read");
    ++at;
    if (length == 0) break;
    if (!query.name.empty()) query.name += '.';
    query.name += bytes.substr(at, length);
    at += length;
  }
  query.type = number_at(bytes, at);
  return query;
}

std::string dns_name(std::string_view dotted) {
  std::string labels;
  while (!dotted.empty()) {
    const std::string_view label = dotted.substr(0, dotted.find('.'));
    labels += static_cast<char>(label.size());
    labels += label;
    dotted.remove_prefix(std::min(dotted.size(), label.size() + 1));
  }
  return labels + '\0';
}

DnsMessage DnsMessage::query(std::uint16_t id, std::string_view name, std::uint16_t type) {
  DnsMessage message;
  message.id_ = id;
  message.flags_ = kRecursionDesired;
  message.question_ = dns_name(name) + two_bytes(type) + two_bytes(kClassInternet);
  return message;
}

DnsMessage DnsMessage::reply_to(const DnsQuery& query) {
  DnsMessage message = DnsMessage::query(query.id, query.name, query.type);
  message.flags_ = kReply | kRecursionDesired | kRecursionAvailable;
  return message;
}

DnsMessage& DnsMessage::id(std::uint16_t id) {
  id_ = id;
  return *this;
}

DnsMessage& DnsMessage::code(unsigned response_code) {
  flags_ = static_cast<std::uint16_t>((flags_ & ~kCodeMask) | (response_code & kCodeMask));
  return *this;
}

DnsMessage& DnsMessage::truncated() {
  flags_ |= kTruncated;
  return *this;
}

DnsMessage& DnsMessage::a(std::string_view name, std::string_view address) {
  std::array<char, 4> data{};
  if (::inet_pton(AF_INET, std::string(address).c_str(), data.data()) != 1)
    throw std::invalid_argument("not an IPv4 address: " + std::string(address));
  return record(name, kDnsA, {data.data(), data.size()});
}

DnsMessage& DnsMessage::cname(std::string_view name, std::string_view target) {
  return record(name, kDnsCname, dns_name(target));
}

DnsMessage& DnsMessage::mx(std::string_view name, std::uint16_t preference, std::string_view exchange) {
  return record(name, kDnsMx, two_bytes(preference) + dns_name(exchange));
}

DnsMessage& DnsMessage::record(std::string_view name, std::uint16_t type, std::string_view data) {
  answers_ += dns_name(name) + two_bytes(type) + two_bytes(kClassInternet);
  answers_ += two_bytes(0) + two_bytes(kSecondsToLive);
  answers_ += two_bytes(static_cast<unsigned>(data.size()));
  answers_ += data;
  ++answer_count_;
  return *this;
}

std::string DnsMessage::bytes() const {
  return two_bytes(id_) + two_bytes(flags_) + two_bytes(1) + two_bytes(answer_count_) + two_bytes(0) + two_bytes(0) +
         question_ + answers_;
}

unsigned DnsMessage::code_of(std::string_view bytes) { return number_at(bytes, 2) & kCodeMask; }

}  // namespace yinet::test
