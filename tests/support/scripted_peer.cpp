#include "support/scripted_peer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <signal.h>

#include <algorithm>
#include <array>
#include <climits>
#include <system_error>

namespace yinet::test {
namespace {

std::string shown(std::string_view bytes) {
  return std::to_string(bytes.size()) + " bytes " + testing::PrintToString(std::string(bytes.substr(0, 500)));
}

}  // namespace

void Connection::run(const ConnectionScript& script) {
  bool followed = false;
  try {
    script(*this);
    followed = true;
    if (socket_.valid()) close();
  } catch (const std::exception& error) {
    socket_.close();  // nothing useful can follow, and the client shall notice at once
    const std::lock_guard lock(end_.mutex_);
    if (!followed) record_.failure = error.what();  // an ending that no script has asked for is nobody's failure
  }
}

void Connection::fail(const std::string& reason) const { throw std::runtime_error(reason); }

// Until the descriptor has one of `events` or the test finishes the peer, at most so long; returns what it has.
short Connection::look(int descriptor, short events, milliseconds time) const {
  std::array<pollfd, 2> watched{{{descriptor, events, 0}, {end_.finishing_.descriptor(), POLLIN, 0}}};
  ::poll(watched.data(), watched.size(), static_cast<int>(time.count()));
  return watched[0].revents;
}

// Returns what has happened on the socket, or 0 when the test finishes the peer and the step doesn't insist.
short Connection::wait(short events, bool insist) {
  if (const short ready = look(socket_.get(), events, kStepPatience); ready != 0) return ready;
  const bool finishing = end_.finishing_.is_set();
  pollfd last{socket_.get(), events, 0};
  if (finishing) ::poll(&last, 1, insist ? static_cast<int>(kGrace.count()) : 0);
  if (last.revents == 0 && (insist || !finishing)) fail("waited in vain for the client");
  return last.revents;
}

void Connection::wait_for(const Signal& gate) {
  look(gate.descriptor(), POLLIN, kStepPatience);
  if (!gate.is_set()) fail("the test's signal was never given");
}

void Connection::stay_silent() { look(socket_.get(), POLLRDHUP, milliseconds(-1)); }  // ends with the peer

// After a read or write without result: whether it only has to be done again once the socket is ready.
bool Connection::must_retry(long result, bool tls) const {
  if (!tls) return errno == EAGAIN || errno == EINTR;
  const int error = SSL_get_error(tls_.get(), static_cast<int>(result));
  return error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE;
}

// Takes one piece of what has come, without waiting: a client that never stops sending mustn't keep a step from its end.
void Connection::pump() {
  std::array<char, 64 * 1024> buffer;  // a TLS record leaves nothing behind, where poll() would not see it
  ERR_clear_error();
  const bool decrypt = tls_up_ && !ended_;
  const long count = decrypt ? SSL_read(tls_.get(), buffer.data(), buffer.size())
                             : ::recv(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
  if (count > 0) {
    if (ended_ || (tls_ && !tls_up_)) return;  // what follows a close_notify or a failed handshake
    const std::string_view bytes(buffer.data(), static_cast<std::size_t>(count));
    inbox_ += bytes;
    const std::lock_guard lock(end_.mutex_);
    record_.received += bytes;
    return;
  }
  if (count < 0 && must_retry(count, decrypt)) return;
  const bool orderly =
      decrypt ? SSL_get_error(tls_.get(), static_cast<int>(count)) == SSL_ERROR_ZERO_RETURN : count == 0;
  gone_ = !decrypt || !orderly;
  if (!std::exchange(ended_, true)) rude_ = !orderly;
}

// More bytes in the inbox; false when the client has ended its side.
bool Connection::more() {
  for (const std::size_t before = inbox_.size(); inbox_.size() == before; pump()) {
    if (ended_) return false;
    wait(POLLIN);
  }
  return true;
}

void Connection::expect(std::string_view bytes) {
  while (inbox_.size() < bytes.size() && bytes.starts_with(inbox_)) need_more();
  if (!inbox_.starts_with(bytes)) fail("expected " + shown(bytes) + ", came " + shown(inbox_));
  inbox_.erase(0, bytes.size());
}

std::string Connection::read_until(std::string_view delimiter) {
  std::size_t found = 0;
  while ((found = inbox_.find(delimiter)) == std::string::npos) need_more();
  const std::string result = inbox_.substr(0, found + delimiter.size());
  inbox_.erase(0, result.size());
  return result;
}

void Connection::skip(std::size_t count) {
  for (; count > inbox_.size(); need_more()) {
    count -= inbox_.size();
    inbox_.clear();
  }
  inbox_.erase(0, count);
}

std::string Connection::read_to_end() {
  while (more()) {
  }
  return std::exchange(inbox_, {});
}

void Connection::expect_end() {
  if (!inbox_.empty() || more()) fail("expected the end, came " + shown(inbox_));
  if (rude_) fail("the client has ended without close_notify or reset the connection");
}

// False when the client is gone, or takes nothing while the test finishes the peer and the step doesn't insist.
bool Connection::push(std::string_view bytes, bool insist) {
  while (!bytes.empty()) {
    ERR_clear_error();
    const auto most = static_cast<int>(std::min<std::size_t>(bytes.size(), INT_MAX));
    const long count = tls_up_ ? SSL_write(tls_.get(), bytes.data(), most)
                               : ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count > 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (must_retry(count, tls_up_)) {
      // A client that sends while it should read must not block both sides for ever.
      const short ready = wait(ended_ ? POLLOUT : POLLIN | POLLOUT, insist);
      if (ready == 0) return false;
      if ((ready & POLLIN) != 0) pump();
    } else {
      gone_ = ended_ = rude_ = true;
      return false;
    }
  }
  return true;
}

void Connection::send(std::string_view bytes) {
  if (!push(bytes, true)) fail("the client has ended before it took " + shown(bytes));
}

void Connection::send_slowly(std::string_view bytes, milliseconds pause_between) {
  for (const char byte : bytes) {
    send({&byte, 1});
    pause(pause_between);
  }
}

void Connection::flood(std::string_view bytes, std::size_t most) {
  for (std::size_t sent = 0; sent < most && !ended_ && !end_.finishing_.is_set(); sent += bytes.size())
    if (!push(bytes, false)) return;
}

void Connection::start_tls(const TlsContext& context) {
  if (!inbox_.empty()) fail("before TLS came " + shown(inbox_));
  tls_ = context.new_session();
  SSL_set_fd(tls_.get(), socket_.get());
  for (;;) {
    ERR_clear_error();
    const int result = SSL_is_server(tls_.get()) ? SSL_accept(tls_.get()) : SSL_connect(tls_.get());
    if (result == 1) break;
    if (!must_retry(result, true)) fail("TLS handshake: " + take_openssl_error());
    wait(SSL_want_write(tls_.get()) ? POLLOUT : POLLIN);
  }
  tls_up_ = true;
  TlsInfo info;
  if (const char* name = SSL_get_servername(tls_.get(), TLSEXT_NAMETYPE_host_name)) info.server_name = name;
  info.session_reused = SSL_session_reused(tls_.get()) == 1;
  const std::lock_guard lock(end_.mutex_);
  record_.tls = info;
}

void Connection::half_close() {
  if (std::exchange(sending_ended_, true)) return;
  while (tls_up_ && !gone_ && SSL_shutdown(tls_.get()) < 0 && must_retry(-1, true) && wait(POLLOUT, false) != 0) {
  }
  close_without_notify();
}

void Connection::close_without_notify() {
  sending_ended_ = true;
  ::shutdown(socket_.get(), SHUT_WR);
}

void Connection::close() {
  half_close();
  // Without reading up to the client's FIN, our close would answer the bytes on their way with a reset.
  for (; !gone_ && wait(POLLIN, false) != 0; inbox_.clear()) pump();
  socket_.close();
}

void Connection::reset() {
  const linger at_once{1, 0};
  ::setsockopt(socket_.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
  socket_.close();
}

void ScriptedEnd::start(FileDescriptor connected, const ConnectionScript& script) {
  const int on = 1;
  ::setsockopt(connected.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
  ::fcntl(connected.get(), F_SETFL, O_NONBLOCK);
  const std::lock_guard lock(mutex_);
  ConnectionRecord& record = records_.emplace_back();
  workers_.emplace_back([this, script, &record, socket = std::move(connected)]() mutable {
    sigset_t broken_pipe;
    sigemptyset(&broken_pipe);
    sigaddset(&broken_pipe, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &broken_pipe, nullptr);
    Connection(*this, record, std::move(socket)).run(script);
  });
}

ConnectionRecord ScriptedEnd::look(std::size_t index) const {
  const std::lock_guard lock(mutex_);
  return index < records_.size() ? records_[index] : ConnectionRecord();
}

std::size_t ScriptedEnd::connection_count() const {
  const std::lock_guard lock(mutex_);
  return records_.size();
}

void ScriptedEnd::finish() {
  if (finished_) return;
  EXPECT_EQ(take_failures(), "");
}

std::string ScriptedEnd::take_failures() {
  finishing_.set();
  if (acceptor_.joinable()) acceptor_.join();
  for (std::thread& worker : workers_) worker.join();
  workers_.clear();
  finished_ = true;
  std::string text;
  for (const ConnectionRecord& record : records_)
    if (!record.failure.empty()) text += name_ + ": " + record.failure + "\nafter " + shown(record.received) + "\n";
  if (needed_ && records_.size() != *needed_)
    text +=
        name_ + ": " + std::to_string(records_.size()) + " connections came, not " + std::to_string(*needed_) + "\n";
  return text;
}

ScriptedPeer::ScriptedPeer(std::vector<ConnectionScript> scripts, bool repeat) {
  FileDescriptor listener = listening_socket();
  port_ = local_port(listener.get());
  name_ = "127.0.0.1:" + std::to_string(port_);
  if (!repeat) needed_ = scripts.size();
  acceptor_ = std::thread([this, scripts, repeat, listener = std::move(listener)] {
    for (bool last = false; !last;) {
      std::array<pollfd, 2> watched{{{listener.get(), POLLIN, 0}, {finishing_.descriptor(), POLLIN, 0}}};
      ::poll(watched.data(), watched.size(), -1);  // ends with the peer
      // A client that has come and gone before the test finished counts, so look before leaving.
      FileDescriptor socket(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
      last = !socket.valid() && watched[1].revents != 0;
      if (!socket.valid()) continue;
      const std::size_t index = repeat ? 0 : connection_count();
      start(std::move(socket), index < scripts.size() ? scripts[index] : &Connection::reset);
    }
  });
}

ScriptedClient::ScriptedClient(std::uint16_t port, const ConnectionScript& script) {
  name_ = "client of port " + std::to_string(port);
  start(connected_socket(port), script);
}

}  // namespace yinet::test
