#include "support/scripted_peer.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>

#include <array>
#include <deque>
#include <list>
#include <system_error>
#include <thread>

#include "support/scripted_connection.h"
#include "support/socket_address.h"

namespace yinet::test {

// Owns the threads: one that accepts (peers only) and one for each connection.
class ScriptRunner {
 public:
  ScriptRunner() = default;
  ScriptRunner(const ScriptRunner&) = delete;
  ScriptRunner& operator=(const ScriptRunner&) = delete;
  ~ScriptRunner() { finish(); }

  // The script for a connection number; an empty one refuses the connection.
  using ScriptChoice = std::function<ConnectionScript(std::size_t)>;
  void accept_from(FileDescriptor listener, ScriptChoice choice, std::size_t needed);
  void run_client(const SocketAddress& server, ConnectionScript script);

  void finish();
  std::string failures();
  [[nodiscard]] bool finished() const { return finished_; }
  void set_name(std::string name) { name_ = std::move(name); }

  [[nodiscard]] std::size_t count() const;
  template <class Look>
  auto look(std::size_t index, Look look) const {
    const std::lock_guard lock(state_.mutex);
    return index < records_.size() ? look(records_[index]) : decltype(look(records_[index]))();
  }
  template <class Condition>
  bool wait(Condition condition, milliseconds patience) const {
    std::unique_lock lock(state_.mutex);
    return state_.changed.wait_for(lock, patience, [&] { return condition(records_); });
  }

 private:
  using Records = std::deque<ConnectionRecord>;  // addresses stay

  void accept_loop(const FileDescriptor& listener, const ScriptChoice& choice);
  void start_connection(FileDescriptor socket, const ConnectionScript& script);
  void refuse(FileDescriptor socket);
  void join_ended();
  ConnectionRecord& add_record(const std::string& event);

  std::string name_;
  RunnerState state_;
  Records records_;  // guarded by state_.mutex
  std::size_t needed_ = 0;
  std::size_t unexpected_ = 0;  // of the accepting thread; read after its end
  std::thread acceptor_;
  struct Worker {
    std::thread thread;
    ConnectionRecord* record;
  };
  std::list<Worker> workers_;  // of the accepting thread; the test's only before and after it
  bool finished_ = false;
};

namespace {

// The host's signals belong to the host's threads.
void block_all_signals() {
  sigset_t all;
  sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, nullptr);
}

void set_no_delay(const FileDescriptor& socket) {
  const int on = 1;
  ::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

}  // namespace

ConnectionRecord& ScriptRunner::add_record(const std::string& event) {
  const std::lock_guard lock(state_.mutex);
  ConnectionRecord& record = records_.emplace_back();
  record.transcript = "          " + event + "\n";
  return record;
}

void ScriptRunner::start_connection(FileDescriptor socket, const ConnectionScript& script) {
  set_no_delay(socket);
  const std::size_t index = count();
  ConnectionRecord& record = add_record("connected with " + SocketAddress::peer_of(socket.get()).text());
  state_.changed.notify_all();
  workers_.push_back({std::thread([this, &record, index, script, socket = std::move(socket)]() mutable {
                        block_all_signals();
                        Connection::Impl impl(state_, record, std::move(socket), index);
                        impl.run(script);
                      }),
                      &record});
}

void ScriptRunner::refuse(FileDescriptor socket) {
  ++unexpected_;
  const linger at_once{1, 0};
  ::setsockopt(socket.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
}

void ScriptRunner::join_ended() {
  const std::lock_guard lock(state_.mutex);
  workers_.remove_if([](Worker& worker) {
    if (!worker.record->over) return false;
    worker.thread.join();
    return true;
  });
}

void ScriptRunner::accept_from(FileDescriptor listener, ScriptChoice choice, std::size_t needed) {
  needed_ = needed;
  acceptor_ = std::thread([this, listener = std::move(listener), choice = std::move(choice)] {
    block_all_signals();
    accept_loop(listener, choice);
  });
}

void ScriptRunner::accept_loop(const FileDescriptor& listener, const ScriptChoice& choice) {
  for (;;) {
    std::array<pollfd, 2> watched{{{listener.get(), POLLIN, 0}, {state_.finishing.descriptor(), POLLIN, 0}}};
    ::poll(watched.data(), watched.size(), -1);  // ends with the peer
    // A client that has come and gone before the test finished counts, so look before leaving.
    FileDescriptor socket(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket.valid()) {
      if (watched[1].revents != 0) return;
      continue;
    }
    join_ended();
    try {
      const ConnectionScript script = choice(count());
      if (script) {
        start_connection(std::move(socket), script);
      } else {
        refuse(std::move(socket));
      }
    } catch (const std::system_error&) {  // the client is gone again: nobody to run a script with
      ++unexpected_;
    }
  }
}

void ScriptRunner::run_client(const SocketAddress& server, ConnectionScript script) {
  needed_ = 1;
  FileDescriptor socket(::socket(server.family(), SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!socket.valid() || ::connect(socket.get(), server.get(), server.size()) != 0)
    throw std::system_error(errno, std::generic_category(), "connect to " + server.text());
  start_connection(std::move(socket), script);
}

void ScriptRunner::finish() {
  state_.finishing.set();
  if (acceptor_.joinable()) acceptor_.join();
  for (Worker& worker : workers_) worker.thread.join();
  workers_.clear();
  finished_ = true;
}

std::size_t ScriptRunner::count() const {
  const std::lock_guard lock(state_.mutex);
  return records_.size();
}

std::string ScriptRunner::failures() {
  std::string text;
  const std::lock_guard lock(state_.mutex);
  for (std::size_t i = 0; i < records_.size(); ++i) {
    const ConnectionRecord& record = records_[i];
    if (record.failure.empty()) continue;
    text += name_ + ", connection " + std::to_string(i + 1) + ", " + record.failure + "\n" + record.transcript;
  }
  if (records_.size() < needed_)
    text += name_ + ": " + std::to_string(records_.size()) + " of " + std::to_string(needed_) + " connections came\n";
  if (unexpected_ > 0) text += name_ + ": " + std::to_string(unexpected_) + " connections too many\n";
  return text;
}

// ---------------------------------------------------------------- ScriptedEnd

ScriptedEnd::ScriptedEnd() : runner_(std::make_unique<ScriptRunner>()) {}
ScriptedEnd::~ScriptedEnd() { finish(); }

std::string ScriptedEnd::received(std::size_t index) const {
  return runner_->look(index, [](const ConnectionRecord& record) { return record.received; });
}
std::size_t ScriptedEnd::received_count(std::size_t index) const {
  return runner_->look(index, [](const ConnectionRecord& record) { return record.received_count; });
}
TlsInfo ScriptedEnd::tls(std::size_t index) const {
  return runner_->look(index, [](const ConnectionRecord& record) { return record.tls; });
}
Ending ScriptedEnd::client_ending(std::size_t index) const {
  return runner_->look(index, [](const ConnectionRecord& record) { return record.client_ending; });
}

bool ScriptedEnd::wait_for_received(std::string_view text, std::size_t index, milliseconds patience) const {
  return runner_->wait(
      [&](const auto& records) {
        return index < records.size() && records[index].received.find(text) != std::string::npos;
      },
      patience);
}

void ScriptedEnd::finish() {
  if (runner_->finished()) return;
  const std::string failures = take_failures();
  if (!failures.empty()) ADD_FAILURE() << failures;
}

std::string ScriptedEnd::take_failures() {
  runner_->finish();
  return runner_->failures();
}

// ---------------------------------------------------------------- ScriptedPeer

ScriptedPeer::ScriptedPeer(ConnectionScript script, const Options& options)
    : ScriptedPeer(true, std::vector{std::move(script)}, options) {}

ScriptedPeer::ScriptedPeer(std::vector<ConnectionScript> in_order, const Options& options)
    : ScriptedPeer(true, std::move(in_order), options) {}

ScriptedPeer ScriptedPeer::for_every_connection(ConnectionScript script, const Options& options) {
  return {false, std::vector{std::move(script)}, options};
}

ScriptedPeer::ScriptedPeer(bool in_order, std::vector<ConnectionScript> scripts, const Options& options) {
  FileDescriptor listener = listen_on(options.address, 0, 128, options.receive_buffer);
  const SocketAddress own = SocketAddress::local_of(listener.get());
  port_ = own.port();
  host_ = own.text().substr(0, own.text().rfind(':'));
  runner_->set_name("scripted peer " + own.text());
  const std::size_t needed = in_order ? scripts.size() : 0;
  runner_->accept_from(
      std::move(listener),
      [in_order, scripts = std::move(scripts)](std::size_t index) {
        if (!in_order) return scripts.front();
        return index < scripts.size() ? scripts[index] : ConnectionScript();
      },
      needed);
}

std::string ScriptedPeer::target() const { return host_ + ":" + std::to_string(port_); }

std::string ScriptedPeer::url(std::string_view path, std::string_view scheme) const {
  return std::string(scheme) + "://" + target() + std::string(path);
}

std::size_t ScriptedPeer::connection_count() const { return runner_->count(); }

bool ScriptedPeer::wait_for_connections(std::size_t count, milliseconds patience) const {
  return runner_->wait([&](const auto& records) { return records.size() >= count; }, patience);
}

// ---------------------------------------------------------------- ScriptedClient

ScriptedClient::ScriptedClient(std::uint16_t port, ConnectionScript script) {
  const SocketAddress server("127.0.0.1", port);
  runner_->set_name("scripted client of " + server.text());
  runner_->run_client(server, std::move(script));
}

}  // namespace yinet::test
