#include "yinet/net/host_address.h"

#include <gtest/gtest.h>

namespace yinet {
namespace {

TEST(HostAddress, IsWrittenAsEachPlaceWantsIt) {
  const struct {
    std::string_view host, in_target, in_certificate;
    int family;
  } kCases[] = {
      {"example.com.", "example.com.", "example.com", 0},
      {"10.0.0.1", "10.0.0.1", "10.0.0.1", 4},
      {"127.1", "127.1", "127.1", 0},
      {"::1", "[::1]", "::1", 6},
      {"[::1]", "[::1]", "::1", 6},
      {"fe80::1%eth0", "[fe80::1%eth0]", "fe80::1", 6},
      {"::ffff:10.0.0.1", "[::ffff:10.0.0.1]", "::ffff:10.0.0.1", 6},
      {"a:b", "a:b", "a:b", 0},  // no address: left for the resolver to refuse
      {".", ".", ".", 0},
      {std::string_view("127.0.0.1\0", 10), std::string_view("127.0.0.1\0", 10), std::string_view("127.0.0.1\0", 10),
       0},
  };
  for (const auto& one : kCases) {
    EXPECT_EQ(host_in_target(one.host), one.in_target) << one.host;
    EXPECT_EQ(host_in_certificate(one.host), one.in_certificate) << one.host;
    EXPECT_EQ(is_ipv4_address(one.host), one.family == 4) << one.host;
    EXPECT_EQ(is_ipv6_address(one.host), one.family == 6) << one.host;
  }
}

}  // namespace
}  // namespace yinet
