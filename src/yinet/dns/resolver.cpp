#include "yinet/dns/resolver.h"

#include <ares.h>
#include <arpa/inet.h>
#include <arpa/nameser.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <mutex>
#include <utility>
#include <vector>

#include "yinet/dns/dns_names.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"

namespace yinet {

namespace {

using std::chrono::milliseconds;

// Own socket calls for one reason: the library writes to TCP connections with writev, and a server that resets one
// would end the host's process by SIGPIPE.
const ares_socket_functions kSocketCalls = {
    [](int family, int type, int protocol, void*) {
      return socket(family, type | SOCK_NONBLOCK | SOCK_CLOEXEC, protocol);
    },
    [](int descriptor, void*) { return close(descriptor); },
    [](int descriptor, const sockaddr* address, socklen_t size, void*) { return connect(descriptor, address, size); },
    [](int descriptor, void* target, size_t size, int flags, sockaddr* from, socklen_t* from_size, void*) {
      return recvfrom(descriptor, target, size, flags, from, from_size);
    },
    [](int descriptor, const iovec* pieces, int count, void*) {
      msghdr content{};
      content.msg_iov = const_cast<iovec*>(pieces);  // NOLINT: sendmsg does not write there
      content.msg_iovlen = static_cast<size_t>(count);
      return sendmsg(descriptor, &content, MSG_NOSIGNAL);
    },
};

// Once per process and never undone: other users of the library in this process count on it as well.
int library_setup_error() {
  static std::once_flag once;
  static int error = ARES_SUCCESS;
  std::call_once(once, [] { error = ares_library_init(ARES_LIB_INIT_ALL); });
  return error;
}

constexpr milliseconds kLongestLookup = std::chrono::hours(24);

int to_milliseconds(std::chrono::steady_clock::duration time) {
  const std::int64_t count = std::chrono::ceil<milliseconds>(time).count();
  return static_cast<int>(std::clamp<std::int64_t>(count, 0, kLongestLookup.count()));
}

constexpr std::int64_t kMostTries = 100;

milliseconds lookup_limit() { return std::min(milliseconds(setting_number(settings::kDnsTimeout)), kLongestLookup); }
std::int64_t lookup_tries() { return std::clamp<std::int64_t>(setting_number(settings::kDnsTries), 1, kMostTries); }

// "address", "IPv4 address:port" or "[IPv6 address]:port".
std::optional<ares_addr_port_node> server_of(std::string_view text) {
  const bool bracketed = text.starts_with('[');
  const std::size_t host_end = bracketed                           ? text.find(']')
                               : text.find(':') == text.rfind(':') ? text.find(':')
                                                                   : text.npos;
  if (bracketed && host_end == text.npos) return std::nullopt;
  const std::string host(text.substr(bracketed ? 1 : 0, host_end - (bracketed ? 1 : 0)));
  std::string_view port = text.substr(std::min(host_end, text.size()));
  if (bracketed) port.remove_prefix(1);
  ares_addr_port_node server{};
  if (!port.empty()) {
    int number = 0;
    const auto [end, error] = std::from_chars(port.data() + 1, port.data() + port.size(), number);
    const bool whole = error == std::errc() && end == port.data() + port.size();
    if (port.front() != ':' || !whole || number < 1 || number > 65535) return std::nullopt;
    server.udp_port = server.tcp_port = number;
  }
  server.family = AF_INET;
  if (inet_pton(AF_INET, host.c_str(), &server.addr.addr4) == 1) return server;
  server.family = AF_INET6;
  if (inet_pton(AF_INET6, host.c_str(), &server.addr.addr6) == 1) return server;
  return std::nullopt;
}

// Every item must be a server: the library would take what it can read of each.
int use_servers(ares_channel channel, std::string_view list) {
  std::vector<ares_addr_port_node> servers;
  for (const std::string_view piece : split(list, ",")) {
    const std::string_view item = trimmed(piece);
    if (item.empty()) continue;
    const auto server = server_of(item);
    if (!server) return ARES_EBADSTR;
    servers.push_back(*server);
  }
  if (servers.empty()) return ARES_SUCCESS;  // the system's
  for (std::size_t i = 1; i < servers.size(); ++i) servers[i - 1].next = &servers[i];
  return ares_set_servers_ports(channel, servers.data());
}

// With the next domain of the search list.
bool next_name_may_help(LookupStatus status) {
  return status == LookupStatus::no_such_name || status == LookupStatus::no_records ||
         status == LookupStatus::server_failure;
}

bool settles_the_name(LookupStatus status) {
  return status == LookupStatus::found || status == LookupStatus::no_such_name || status == LookupStatus::no_records ||
         status == LookupStatus::bad_name;
}

struct Reply {
  bool done = false;
  int status = ARES_ECANCELLED;
  std::string bytes;
};

// Runs inside C code: nothing may be thrown.
void take_reply(void* target, int status, int /*timeouts*/, unsigned char* bytes, int size) {
  auto& reply = *static_cast<Reply*>(target);
  reply.done = true;
  reply.status = status;
  if (status != ARES_SUCCESS || size < 0) return;
  try {
    reply.bytes.assign(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size));
  } catch (...) {
    reply.status = ARES_ENOMEM;
  }
}

std::vector<ares_addr_port_node> servers_of(ares_channel channel) {
  ares_addr_port_node* list = nullptr;
  if (ares_get_servers_ports(channel, &list) != ARES_SUCCESS) return {};
  const std::unique_ptr<ares_addr_port_node, decltype(&ares_free_data)> owner(list, ares_free_data);
  std::vector<ares_addr_port_node> servers;
  for (; list; list = list->next) {
    servers.push_back(*list);
    servers.back().next = nullptr;
  }
  return servers;
}

std::vector<std::string> names_for(ares_channel channel, std::string_view name) {
  ares_options options{};
  int known = 0;
  if (ares_save_options(channel, &options, &known) != ARES_SUCCESS) return {std::string(name)};
  const std::unique_ptr<ares_options, decltype(&ares_destroy_options)> owner(&options, ares_destroy_options);
  std::vector<std::string> domains;
  for (int i = 0; i < options.ndomains; ++i) domains.emplace_back(options.domains[i]);
  return names_to_ask(name, domains, options.ndots);
}

// One wait for any socket of the channel and the work that follows.
void run_once(ares_channel channel, int wait_ms) {
  std::array<ares_socket_t, ARES_GETSOCK_MAXNUM> sockets{};
  const int bits = ares_getsock(channel, sockets.data(), ARES_GETSOCK_MAXNUM);
  std::array<pollfd, ARES_GETSOCK_MAXNUM> waits{};
  nfds_t count = 0;
  for (unsigned i = 0; i < ARES_GETSOCK_MAXNUM; ++i) {
    const auto readable = ARES_GETSOCK_READABLE(static_cast<unsigned>(bits), i) ? POLLIN : 0;
    const auto writable = ARES_GETSOCK_WRITABLE(static_cast<unsigned>(bits), i) ? POLLOUT : 0;
    if (readable | writable) waits[count++] = {sockets[i], static_cast<short>(readable | writable), 0};
  }
  if (poll(waits.data(), count, wait_ms) <= 0) return;
  for (nfds_t i = 0; i < count; ++i) {
    const short events = waits[i].revents;
    if (!events) continue;
    // An error shows itself to whichever of reading and writing the library was waiting for.
    const bool failed = events & (POLLERR | POLLHUP | POLLNVAL);
    const bool readable = (events & POLLIN) || (failed && (waits[i].events & POLLIN));
    const bool writable = (events & POLLOUT) || (failed && (waits[i].events & POLLOUT));
    ares_process_fd(channel, readable ? waits[i].fd : ARES_SOCKET_BAD, writable ? waits[i].fd : ARES_SOCKET_BAD);
  }
}

}  // namespace

void Resolver::DestroyChannel::operator()(ares_channeldata* channel) const { ares_destroy(channel); }

Resolver::Resolver() : setup_error_(set_up()) {}

int Resolver::set_up() {
  if (const int error = library_setup_error()) return error;
  ares_options options{};
  // Without this flag the library takes SERVFAIL, NOTIMP and REFUSED for silence and does not tell them apart.
  options.flags = ARES_FLAG_NOCHECKRESP;
  options.tries = 1;
  options.timeout = to_milliseconds(lookup_limit()) + 1;  // turns and repeats are ours: theirs never comes first
  ares_channel channel = nullptr;
  const int error = ares_init_options(&channel, &options, ARES_OPT_FLAGS | ARES_OPT_TRIES | ARES_OPT_TIMEOUTMS);
  if (error != ARES_SUCCESS) return error;
  channel_.reset(channel);
  ares_set_socket_functions(channel, &kSocketCalls, nullptr);
  return use_servers(channel, setting_text(settings::kDnsServers));
}

std::optional<std::uint32_t> Resolver::address_in_hosts_file(const std::string& name) const {
  hostent* found = nullptr;
  const std::string key = name.ends_with('.') ? name.substr(0, name.size() - 1) : name;
  if (ares_gethostbyname_file(channel_.get(), key.c_str(), AF_INET, &found) != ARES_SUCCESS) return std::nullopt;
  const std::unique_ptr<hostent, decltype(&ares_free_hostent)> owner(found, ares_free_hostent);
  if (!found->h_addr_list[0]) return std::nullopt;
  std::uint32_t address = 0;
  std::memcpy(&address, found->h_addr_list[0], sizeof address);
  return address;
}

LookupOutcome Resolver::look_up(std::string_view name, RecordType type) {
  const Clock::time_point deadline = Clock::now() + lookup_limit();
  const auto servers = servers_of(channel_.get());
  LookupOutcome outcome;
  bool name_exists = false;  // under one of the domains, without such records
  for (const std::string& candidate : names_for(channel_.get(), name)) {
    outcome = ask_in_turn(servers, candidate, type, deadline);
    name_exists = name_exists || outcome.status == LookupStatus::no_records;
    if (!next_name_may_help(outcome.status)) return outcome;
  }
  if (name_exists) outcome.status = LookupStatus::no_records;
  return outcome;
}

LookupOutcome Resolver::ask_in_turn(const std::vector<ares_addr_port_node>& servers, const std::string& name,
                                    RecordType type, Clock::time_point deadline) {
  std::vector<ares_addr_port_node> silent = servers;
  LookupOutcome last_answer;
  last_answer.status = servers.empty() ? LookupStatus::server_failure : LookupStatus::timed_out;
  bool asked = false;
  for (auto rounds = lookup_tries(); rounds > 0; --rounds) {
    const auto turns = std::exchange(silent, {});
    auto turns_left = rounds * static_cast<std::int64_t>(turns.size());
    for (const ares_addr_port_node& server : turns) {
      const auto now = Clock::now();
      if (asked && now >= deadline) return last_answer;
      asked = true;
      LookupOutcome outcome = ask(server, name, type, now + (deadline - now) / turns_left--);
      if (settles_the_name(outcome.status)) return outcome;
      if (outcome.status == LookupStatus::timed_out) silent.push_back(server);
      else last_answer = std::move(outcome);
    }
  }
  return last_answer;
}

LookupOutcome Resolver::ask(const ares_addr_port_node& server, const std::string& name, RecordType type,
                            Clock::time_point deadline) {
  LookupOutcome outcome;
  ares_addr_port_node only = server;
  if (ares_set_servers_ports(channel_.get(), &only) != ARES_SUCCESS) return outcome;
  Reply reply;
  ares_query(channel_.get(), name.c_str(), ns_c_in, static_cast<int>(type), take_reply, &reply);
  for (auto now = Clock::now(); !reply.done && now < deadline; now = Clock::now())
    run_once(channel_.get(), to_milliseconds(deadline - now));
  if (!reply.done) ares_cancel(channel_.get());  // calls take_reply before it returns
  outcome.status = status_from_ares(reply.status);
  if (outcome.status == LookupStatus::found) outcome.status = read_reply(type, reply.bytes, outcome.records);
  return outcome;
}

}  // namespace yinet
