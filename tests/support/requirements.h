// What a test needs from the machine. Each macro skips the running test with a reason, and so belongs into a test's or
// fixture's own body.
#pragma once

#include <gtest/gtest.h>

#include "support/child_process.h"

namespace yinet::test {

// Empty when the need is met, else the reason for the skip.
std::string missing_program(std::string_view name);
std::string missing_root();
std::string missing_network_namespaces();
std::string missing_ipv6();

// The command in a network (and mount) namespace of its own, for any user: no interface but an own loopback, and so all
// ports free, those below 1024 included. The file `resolver` takes the place of /etc/resolv.conf there.
Words in_network_namespace(Words command, const std::string& resolver = {});

}  // namespace yinet::test

#define YINET_SKIP_FOR(reason) \
  if (const std::string skip_reason = (reason); !skip_reason.empty()) GTEST_SKIP() << skip_reason

#define YINET_REQUIRE_PROGRAM(name) YINET_SKIP_FOR(::yinet::test::missing_program(name))
#define YINET_REQUIRE_NETWORK_NAMESPACES() YINET_SKIP_FOR(::yinet::test::missing_network_namespaces())
#define YINET_REQUIRE_IPV6() YINET_SKIP_FOR(::yinet::test::missing_ipv6())
