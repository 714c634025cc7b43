#include "support/dns_message.h"

#include <arpa/inet.h>

#include <algorithm>
#include <stdexcept>

namespace yinet::test {
namespace {

constexpr unsigned kClassInternet = 1;

std::string two_bytes(unsigned number) {
  return {static_cast<char>(number >> 8 & 0xFF), static_cast<char>(number & 0xFF)};
}

unsigned byte_at(std::string_view bytes, std::size_t at) { return static_cast<unsigned char>(bytes.at(at)); }

std::uint16_t number_at(std::string_view bytes, std::size_t at) {
  return static_cast<std::uint16_t>(byte_at(bytes, at) << 8 | byte_at(bytes, at + 1));
}

}  // namespace

DnsQuery parse_dns_query(std::string_view bytes) {
  constexpr std::size_t kHeaderSize = 12;
  DnsQuery query{.id = number_at(bytes, 0), .name = {}, .type = 0};
  std::size_t at = kHeaderSize;
  while (const std::size_t length = byte_at(bytes, at)) {
    if (at > kHeaderSize) query.name += '.';
    query.name += bytes.substr(at + 1, length);
    at += 1 + length;
  }
  query.type = number_at(bytes, at + 1);
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

DnsMessage::DnsMessage(const DnsQuery& query, std::uint16_t flags)
    : id_(query.id), flags_(flags), question_(dns_name(query.name) + two_bytes(query.type) + two_bytes(kClassInternet)) {}

DnsMessage& DnsMessage::id(std::uint16_t id) {
  id_ = id;
  return *this;
}

DnsMessage& DnsMessage::code(unsigned response_code) {
  flags_ = static_cast<std::uint16_t>(flags_ | response_code);
  return *this;
}

DnsMessage& DnsMessage::truncated() {
  flags_ |= 0x0200;
  return *this;
}

DnsMessage& DnsMessage::a(std::string_view name, const std::string& address) {
  std::string data(4, '\0');
  if (::inet_pton(AF_INET, address.c_str(), data.data()) != 1) throw std::invalid_argument("no address: " + address);
  return record(name, kDnsA, data);
}

DnsMessage& DnsMessage::cname(std::string_view name, std::string_view target) {
  return record(name, kDnsCname, dns_name(target));
}

DnsMessage& DnsMessage::mx(std::string_view name, std::uint16_t preference, std::string_view exchange) {
  return record(name, kDnsMx, two_bytes(preference) + dns_name(exchange));
}

DnsMessage& DnsMessage::record(std::string_view name, std::uint16_t type, const std::string& data) {
  constexpr unsigned kSecondsToLive = 60;
  answers_ += dns_name(name) + two_bytes(type) + two_bytes(kClassInternet) + two_bytes(0) + two_bytes(kSecondsToLive) +
              two_bytes(static_cast<unsigned>(data.size())) + data;
  ++answer_count_;
  return *this;
}

std::string DnsMessage::bytes() const {
  return two_bytes(id_) + two_bytes(flags_) + two_bytes(1) + two_bytes(answer_count_) + std::string(4, '\0') +
         question_ + answers_;
}

}  // namespace yinet::test
