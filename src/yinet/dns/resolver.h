#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "yinet/dns/dns_reply.h"

struct ares_addr_port_node;
struct ares_channeldata;

namespace yinet {

struct LookupOutcome {
  LookupStatus status = LookupStatus::server_failure;
  DnsRecords records;
};

// Asks DNS servers: those of the setting, otherwise the system's. One object serves one lookup on one thread; making it
// reads the system's configuration and starts no traffic.
//
// Servers are asked in turn. One that answers is not asked again, whatever it answers, and the first that knows the name,
// or knows that there is none, ends the lookup; silent ones are repeated as the settings allow. The time limit covers
// servers, repeats and search list together and is shared out evenly.
class Resolver {
 public:
  Resolver();
  // 0, or the resolver library's code when it could not be set up; then nothing else may be called.
  [[nodiscard]] int setup_error() const { return setup_error_; }

  // First IPv4 address of the name in the hosts file.
  [[nodiscard]] std::optional<std::uint32_t> address_in_hosts_file(const std::string& name) const;
  // `name` has passed is_askable_name.
  [[nodiscard]] LookupOutcome look_up(std::string_view name, RecordType type);

 private:
  using Clock = std::chrono::steady_clock;
  struct DestroyChannel {
    void operator()(ares_channeldata* channel) const;
  };

  int set_up();
  LookupOutcome ask_in_turn(const std::vector<ares_addr_port_node>& servers, const std::string& name, RecordType type,
                            Clock::time_point deadline);
  LookupOutcome ask(const ares_addr_port_node& server, const std::string& name, RecordType type,
                    Clock::time_point deadline);

  std::unique_ptr<ares_channeldata, DestroyChannel> channel_;
  int setup_error_;
};

}  // namespace yinet
