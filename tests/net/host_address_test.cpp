#include "yinet/net/host_address.h"

#include <gtest/gtest.h>

namespace yinet {
namespace {

using namespace std::string_view_literals;

TEST(HostAddress, IsWrittenAsEachPlaceWantsIt) {
  struct Case {
    std::string_view host, in_target, in_certificate;
  };
  const Case cases[] = {
      {"example.com", "example.com", "example.com"},
      {"example.com.", "example.com.", "example.com"},
      {"10.0.0.1", "10.0.0.1", "10.0.0.1"},
      {"::1", "[::1]", "::1"},
      {"[::1]", "[::1]", "::1"},
      {"fe80::1%eth0", "[fe80::1%eth0]", "fe80::1"},
      {"::ffff:10.0.0.1", "[::ffff:10.0.0.1]", "::ffff:10.0.0.1"},
      {"a:b", "a:b", "a:b"},  // no address: left for the resolver to refuse
      {".", ".", "."},
  };
  for (const Case& one : cases) {
    EXPECT_EQ(host_in_target(one.host), one.in_target) << one.host;
    EXPECT_EQ(host_in_certificate(one.host), one.in_certificate) << one.host;
  }
}

TEST(HostAddress, AnAddressIsToldFromAName) {
  EXPECT_TRUE(is_ipv4_address("127.0.0.1"));
  EXPECT_FALSE(is_ipv4_address("127.1"));
  EXPECT_FALSE(is_ipv4_address("127.0.0.1\0"sv));
  EXPECT_TRUE(is_ipv6_address("[2001:db8::1]"));
  EXPECT_FALSE(is_ipv6_address("2001:db8::1::2"));
  EXPECT_FALSE(is_ipv6_address(""));
}

}  // namespace
}  // namespace yinet
