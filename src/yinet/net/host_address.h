#pragma once

// How the host of a connection is written where: in a connect target, as a TLS server name, in a certificate. Pure
// functions; nothing is resolved.

#include <string>
#include <string_view>

namespace yinet {

inline constexpr unsigned int kHighestPort = 65535;

// A dotted IPv4 address with four decimal numbers.
bool is_ipv4_address(std::string_view host);
// An IPv6 address, with or without brackets and zone ("fe80::1%eth0").
bool is_ipv6_address(std::string_view host);

// For "host:port": a bare IPv6 address gets its brackets, anything else stays.
std::string host_in_target(std::string_view host);

// As certificates have it: without brackets, zone and the final dot of a fully qualified name.
std::string host_in_certificate(std::string_view host);

// Why OpenSSL must not get this target, in English; empty when it may. OpenSSL takes an empty host and "*" for this
// machine, cuts a host at a NUL and takes ports modulo 65536.
std::string_view reason_to_refuse(std::string_view host, unsigned int port);

}  // namespace yinet
