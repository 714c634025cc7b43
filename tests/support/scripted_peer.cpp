#include "support/scripted_peer.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>

#include <array>
#include <system_error>

#include "support/scripted_connection.h"
#include "support/socket_address.h"

namespace yinet::test {

void ScriptRun::start(FileDescriptor connected, const ConnectionScript& script) {
  const int on = 1;
  ::setsockopt(connected.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
  const std::lock_guard lock(mutex);
  const std::size_t index = records.size();
  workers.emplace_back(
      [this, script, index, &record = records.emplace_back(), socket = std::move(connected)]() mutable {
        block_all_signals();
        Connection(*this, record, std::move(socket), index).run(script);
      });
}

void ScriptRun::accept_from(FileDescriptor listener, const std::function<ConnectionScript(std::size_t)>& choice) {
  acceptor = std::thread([this, choice, listener = std::move(listener)] {
    block_all_signals();
    for (;;) {
      std::array<pollfd, 2> watched{{{listener.get(), POLLIN, 0}, {finishing.descriptor(), POLLIN, 0}}};
      ::poll(watched.data(), watched.size(), -1);  // ends with the peer
      // A client that has come and gone before the test finished counts, so look before leaving.
      FileDescriptor socket(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
      if (!socket.valid() && watched[1].revents != 0) return;
      if (!socket.valid()) continue;
      ConnectionScript script = choice(records.size());
      if (!script) {
        ++unexpected;
        script = [](Connection& connection) { connection.reset(); };
      }
      start(std::move(socket), script);
    }
  });
}

void ScriptRun::finish() {
  finishing.set();
  if (acceptor.joinable()) acceptor.join();
  for (std::thread& worker : workers) worker.join();
  workers.clear();
  finished = true;
}

std::string ScriptRun::failures() {
  std::string text;
  for (std::size_t i = 0; i < records.size(); ++i)
    if (!records[i].failure.empty())
      text += name + ", connection " + std::to_string(i + 1) + ", " + records[i].failure + "\n" + records[i].transcript;
  if (records.size() < needed || unexpected > 0)
    text += name + ": " + std::to_string(records.size()) + " connections came, not " + std::to_string(needed) + "\n";
  return text;
}

// --- ScriptedEnd ---

ScriptedEnd::ScriptedEnd() : run_(std::make_unique<ScriptRun>()) {}
ScriptedEnd::~ScriptedEnd() { finish(); }

namespace {

template <class Member>
Member look(const ScriptRun& run, std::size_t index, Member ConnectionRecord::* member) {
  const std::lock_guard lock(run.mutex);
  return index < run.records.size() ? run.records[index].*member : Member();
}

}  // namespace

std::string ScriptedEnd::received(std::size_t index) const { return look(*run_, index, &ConnectionRecord::received); }
TlsInfo ScriptedEnd::tls(std::size_t index) const { return look(*run_, index, &ConnectionRecord::tls); }
Ending ScriptedEnd::client_ending(std::size_t index) const {
  return look(*run_, index, &ConnectionRecord::client_ending);
}

bool ScriptedEnd::wait_for_received(std::string_view text, std::size_t index) const {
  return eventually([&] { return received(index).find(text) != std::string::npos; });
}

void ScriptedEnd::finish() {
  if (run_->finished) return;
  const std::string failures = take_failures();
  if (!failures.empty()) ADD_FAILURE() << failures;
}

std::string ScriptedEnd::take_failures() {
  run_->finish();
  return run_->failures();
}

// --- ScriptedPeer ---

ScriptedPeer::ScriptedPeer(std::vector<ConnectionScript> in_order, const Options& options) {
  run_->needed = in_order.size();
  listen(options, [in_order](std::size_t index) {
    return index < in_order.size() ? in_order[index] : ConnectionScript();
  });
}

ScriptedPeer::ScriptedPeer(Every, ConnectionScript script, const Options& options) {
  listen(options, [script](std::size_t) { return script; });
}

void ScriptedPeer::listen(const Options& options, std::function<ConnectionScript(std::size_t)> choice) {
  FileDescriptor listener = listen_on(options.address, 0, 128, options.receive_buffer);
  const SocketAddress own = SocketAddress::local_of(listener.get());
  port_ = own.port();
  run_->name = own.text();
  run_->accept_from(std::move(listener), choice);
}

std::string ScriptedPeer::target() const { return run_->name; }

std::string ScriptedPeer::url(std::string_view path, std::string_view scheme) const {
  return std::string(scheme) + "://" + target() + std::string(path);
}

std::size_t ScriptedPeer::connection_count() const {
  const std::lock_guard lock(run_->mutex);
  return run_->records.size();
}

bool ScriptedPeer::wait_for_connections(std::size_t count) const {
  return eventually([&] { return connection_count() >= count; });
}

// --- ScriptedClient ---

ScriptedClient::ScriptedClient(std::uint16_t port, const ConnectionScript& script) {
  const SocketAddress server("127.0.0.1", port);
  run_->name = "client of " + server.text();
  run_->needed = 1;
  FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!socket.valid() || ::connect(socket.get(), server.get(), server.size()) != 0)
    throw std::system_error(errno, std::generic_category(), "connect to " + server.text());
  run_->start(std::move(socket), script);
}

}  // namespace yinet::test
