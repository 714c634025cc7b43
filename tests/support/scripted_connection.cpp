#include "support/scripted_connection.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <stdexcept>

#include "support/bytes.h"

namespace yinet::test {
namespace {

constexpr std::size_t kMostTranscript = 20'000;  // a byte-by-byte dialogue would drown the failure

std::string counted(std::string_view bytes) {
  return std::to_string(bytes.size()) + " bytes \"" + printable(bytes, 200) + "\"";
}

std::string client(Ending ending) {
  constexpr const char* kEndings[] = {"is still there", "has closed its side",
                                      "has closed its side without close_notify", "has reset the connection"};
  return std::string("the client ") + kEndings[static_cast<int>(ending)];
}

std::string drained(SSL* session) {
  BIO* const to_wire = SSL_get_wbio(session);
  std::string bytes(BIO_ctrl_pending(to_wire), '\0');
  if (!bytes.empty()) BIO_read(to_wire, bytes.data(), static_cast<int>(bytes.size()));
  return bytes;
}

}  // namespace

Connection::Connection(ScriptRun& run, ConnectionRecord& record, FileDescriptor socket, std::size_t index)
    : run_(run), record_(record), socket_(std::move(socket)), index_(index) {}

void Connection::run(const ConnectionScript& script) {
  bool followed = false;
  try {
    script(*this);
    followed = true;
    if (socket_.valid()) close();
  } catch (const std::exception& error) {
    socket_.close();  // nothing useful can follow, and the client shall notice at once
    const std::string what = "in \"" + step_ + "\": " + error.what();
    if (followed) return note(what);  // how an ending goes that no script has asked for is nobody's failure
    const std::lock_guard lock(run_.mutex);
    record_.failure = what;
  }
}

void Connection::begin(std::string step) {
  step_ = std::move(step);
  if (!socket_.valid()) fail("the script has closed the connection before");
}

void Connection::fail(const std::string& reason) const { throw std::runtime_error(reason); }

void Connection::note(const std::string& event) {
  const std::lock_guard lock(run_.mutex);
  if (record_.transcript.size() < kMostTranscript) record_.transcript += "  " + event + "\n";
}

// Until the socket has one of `events`; returns what happened on it, or 0 when the test finishes the peer and the step
// doesn't insist.
short Connection::wait(short events, const char* for_what, bool insist) {
  Deadline limit(kStepPatience);
  for (bool finishing = false;;) {
    if (!finishing && run_.finishing.is_set()) {
      if (!insist) return 0;
      finishing = true;
      limit = Deadline(std::min(limit.left(), kGrace));
    }
    std::array<pollfd, 2> watched{{{socket_.get(), events, 0}, {run_.finishing.descriptor(), POLLIN, 0}}};
    ::poll(watched.data(), finishing ? 1 : 2, limit.poll_ms());
    if (watched[0].revents != 0) return watched[0].revents;
    if (limit.expired()) fail(std::string("waited in vain for the client to ") + for_what);
  }
}

// --- receiving ---

// Takes one piece of what the socket has, without waiting: a client that never stops sending mustn't keep a step from
// its end.
void Connection::pump() {
  std::array<char, 64 * 1024> buffer;
  const ssize_t count = ::recv(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
  if (count > 0) return take({buffer.data(), static_cast<std::size_t>(count)});
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  gone_ = true;
  if (!ended_) end_input(count < 0 ? Ending::reset : tls_up_ ? Ending::closed_without_notify : Ending::closed);
}

void Connection::take(std::string_view from_wire) {
  if (ended_) return;
  if (!tls_) return store(from_wire);
  if (!from_wire.empty()) BIO_write(SSL_get_rbio(tls_.get()), from_wire.data(), static_cast<int>(from_wire.size()));
  if (!tls_up_) return;
  std::array<char, 16384> buffer;
  for (;;) {
    ERR_clear_error();
    const int count = SSL_read(tls_.get(), buffer.data(), buffer.size());
    const int error = SSL_get_error(tls_.get(), count);
    if (count > 0) {
      store({buffer.data(), static_cast<std::size_t>(count)});
    } else if (error == SSL_ERROR_ZERO_RETURN) {
      return end_input(Ending::closed);
    } else if (error == SSL_ERROR_WANT_READ) {
      return;
    } else {
      fail("TLS: " + take_openssl_error());
    }
  }
}

void Connection::store(std::string_view bytes) {
  note("<- " + counted(bytes));
  inbox_ += bytes;
  const std::lock_guard lock(run_.mutex);
  record_.received += bytes;
}

void Connection::end_input(Ending ending) {
  ended_ = true;
  note("<- " + client(ending));
  const std::lock_guard lock(run_.mutex);
  record_.client_ending = ending;
}

// More bytes in the inbox; false when the client has ended its side.
bool Connection::more() {
  for (const std::size_t before = inbox_.size(); inbox_.size() == before; pump()) {
    if (ended_) return false;
    wait(POLLIN, "send");
  }
  return true;
}

void Connection::need_more() {
  if (!more()) fail(client(record_.client_ending) + " after " + counted(inbox_));
}

void Connection::expect(std::string_view bytes) {
  begin("expect " + counted(bytes));
  while (inbox_.size() < bytes.size() && bytes.starts_with(inbox_)) need_more();
  if (!inbox_.starts_with(bytes)) fail("came " + counted(inbox_));
  inbox_.erase(0, bytes.size());
}

std::string Connection::read_until(std::string_view delimiter) {
  begin("read until " + printable(delimiter));
  for (std::size_t searched = 0;; need_more()) {
    const std::size_t found = inbox_.find(delimiter, searched);
    if (found != std::string::npos) {
      const std::string result = inbox_.substr(0, found + delimiter.size());
      inbox_.erase(0, result.size());
      return result;
    }
    searched = inbox_.size() - std::min(inbox_.size(), delimiter.size() - 1);
  }
}

void Connection::skip(std::size_t count) {
  begin("skip " + std::to_string(count) + " bytes");
  while (count > 0) {
    if (inbox_.empty()) need_more();
    const std::size_t got = std::min(count, inbox_.size());
    inbox_.erase(0, got);
    count -= got;
  }
}

std::string Connection::read_to_end() {
  begin("read to the end");
  while (more()) {
  }
  return std::exchange(inbox_, {});
}

void Connection::expect_end() {
  begin("expect the end");
  if (!inbox_.empty() || more()) fail("came " + counted(inbox_));
  if (record_.client_ending != Ending::closed) fail(client(record_.client_ending));
}

// --- sending ---

// False when the client is gone, or takes nothing while the test finishes the peer and the step doesn't insist.
bool Connection::push_wire(std::string_view bytes, bool insist) {
  while (!bytes.empty()) {
    const ssize_t count = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno == EAGAIN) {
      // A client that sends while it should read must not block both sides for ever.
      const short ready = wait(ended_ ? POLLOUT : POLLIN | POLLOUT, "take bytes", insist);
      if (ready == 0) return false;
      if ((ready & POLLIN) != 0) pump();
    } else if (errno != EINTR) {
      gone_ = true;
      end_input(Ending::reset);
      return false;
    }
  }
  return true;
}

bool Connection::push(std::string_view bytes, bool insist) {
  constexpr std::size_t kPiece = 256 * 1024;  // bounds what TLS makes of it in memory
  for (; !bytes.empty(); bytes.remove_prefix(std::min(kPiece, bytes.size()))) {
    const std::string_view piece = bytes.substr(0, kPiece);
    if (tls_up_ && SSL_write(tls_.get(), piece.data(), static_cast<int>(piece.size())) <= 0)
      fail("TLS: " + take_openssl_error());
    if (!push_wire(tls_up_ ? drained(tls_.get()) : std::string(piece), insist)) return false;
  }
  return true;
}

void Connection::send(std::string_view bytes) {
  begin("send " + counted(bytes));
  note("-> " + counted(bytes));
  if (!push(bytes)) fail(client(record_.client_ending));
}

void Connection::send_pieces(const std::vector<std::string>& pieces, milliseconds pause_between) {
  for (const std::string& piece : pieces) {
    if (&piece != &pieces.front()) pause(pause_between);
    send(piece);
  }
}

void Connection::send_slowly(std::string_view bytes, milliseconds pause_between) {
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i > 0) pause(pause_between);
    send(bytes.substr(i, 1));
  }
}

void Connection::flood(std::string_view bytes, std::size_t most) {
  begin("flood");
  for (std::size_t sent = 0; sent < most && !ended_ && !run_.finishing.is_set(); sent += bytes.size())
    if (!push(bytes, false)) return;
}

// --- waiting ---

void Connection::pause(milliseconds time) {
  begin("pause");
  pollfd watched{run_.finishing.descriptor(), POLLIN, 0};
  ::poll(&watched, 1, static_cast<int>(time.count()));
}

void Connection::wait_for(const Signal& gate) {
  begin("wait for the test's signal");
  std::array<pollfd, 2> watched{{{gate.descriptor(), POLLIN, 0}, {run_.finishing.descriptor(), POLLIN, 0}}};
  ::poll(watched.data(), watched.size(), static_cast<int>(kStepPatience.count()));
  if (!gate.is_set()) fail("it was never given");
}

void Connection::stay_silent() {
  begin("stay silent");
  std::array<pollfd, 2> watched{{{socket_.get(), POLLRDHUP, 0}, {run_.finishing.descriptor(), POLLIN, 0}}};
  ::poll(watched.data(), watched.size(), -1);  // ends with the peer
}

// --- TLS ---

void Connection::start_tls(const TlsContext& context) {
  if (!try_tls(context)) fail(ended_ ? client(record_.client_ending) : tls_error_);
}

bool Connection::try_tls(const TlsContext& context) {
  begin("TLS handshake");
  // Bytes in memory instead of the socket, so that what the client has sent ahead can be put in front.
  tls_ = new_session(context);
  tls_up_ = false;
  const std::string early = std::exchange(inbox_, {});
  {
    const std::lock_guard lock(run_.mutex);
    record_.received.resize(record_.received.size() - early.size());
  }
  take(early);
  for (;;) {
    ERR_clear_error();
    const int result = SSL_do_handshake(tls_.get());
    const bool unfinished = SSL_get_error(tls_.get(), result) == SSL_ERROR_WANT_READ;
    if (result != 1 && !unfinished) note(tls_error_ = "TLS handshake: " + take_openssl_error());
    const bool there = push_wire(drained(tls_.get()), true);  // a failure's alert, too
    if (result == 1) break;
    if (!unfinished || !there || ended_) return false;
    wait(POLLIN, "go on with its handshake");
    pump();
  }
  tls_up_ = true;
  note("TLS is up");
  {
    const std::lock_guard lock(run_.mutex);
    record_.tls = info_of(tls_.get());
  }
  take({});  // application data may have come with the last handshake bytes
  return true;
}

// --- ending ---

void Connection::end_sending() {
  if (sending_ended_) return;
  sending_ended_ = true;
  if (tls_up_) {
    SSL_shutdown(tls_.get());
    if (!gone_) push_wire(drained(tls_.get()), false);
  }
  ::shutdown(socket_.get(), SHUT_WR);
  note("-> end of sending");
}

// Without reading up to the client's FIN, our close would answer the bytes on their way with a reset.
void Connection::drain() {
  std::optional<Deadline> last_words;  // once finished: what is there is still read, an endless sender isn't
  while (!gone_) {
    std::array<pollfd, 2> watched{{{socket_.get(), POLLIN, 0}, {run_.finishing.descriptor(), POLLIN, 0}}};
    ::poll(watched.data(), watched.size(), -1);  // ends with the peer
    if (watched[1].revents != 0 && !last_words) last_words.emplace(kGrace);
    if (watched[0].revents == 0 || (last_words && last_words->expired())) return;
    pump();
    inbox_.clear();
  }
}

void Connection::half_close() {
  begin("end of sending");
  end_sending();
}

void Connection::close() {
  begin("close");
  end_sending();
  drain();
  socket_.close();
}

void Connection::close_without_notify() {
  begin("close without close_notify");
  sending_ended_ = true;
  ::shutdown(socket_.get(), SHUT_WR);
}

void Connection::reset() {
  begin("reset");
  const linger at_once{1, 0};
  ::setsockopt(socket_.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
  socket_.close();
}

}  // namespace yinet::test
