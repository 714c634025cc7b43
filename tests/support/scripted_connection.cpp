#include "support/scripted_connection.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>

#include "support/bytes.h"

namespace yinet::test {
namespace {

constexpr std::size_t kReadSize = 64 * 1024;
constexpr std::size_t kMostTranscriptLines = 300;  // a byte-by-byte dialogue would drown the failure
constexpr std::size_t kMostBytesShown = 200;

std::string counted(std::string_view bytes) {
  return std::to_string(bytes.size()) + " bytes \"" + printable(bytes, kMostBytesShown) + "\"";
}

constexpr const char* kEndings[] = {"is still there", "has closed its side",
                                    "has closed its side without close_notify", "has reset the connection"};
std::string client(Ending ending) { return std::string("the client ") + kEndings[static_cast<int>(ending)]; }

}  // namespace

void ByteQueue::pop(std::size_t count) {
  front_ += count;
  if (front_ == bytes_.size()) {
    bytes_.clear();
    front_ = 0;
  } else if (front_ > bytes_.size() / 2) {
    bytes_.erase(0, front_);
    front_ = 0;
  }
}

// ---------------------------------------------------------------- Connection::Impl

Connection::Impl::Impl(RunnerState& shared, ConnectionRecord& own, FileDescriptor connected, std::size_t number)
    : state(shared), record(own), socket(std::move(connected)), index(number) {}

void Connection::Impl::run(const ConnectionScript& script) {
  std::string failure;
  try {
    Connection connection(*this);
    script(connection);
  } catch (const std::exception& error) {
    failure = "step " + std::to_string(steps) + " (" + step + "): " + error.what();
    note("FAILED in " + failure);
  }
  change([&] {
    record.failure = failure;
    if (tls_up) record.tls = tls->info();
  });
  try {
    if (!failure.empty()) {
      close_descriptor();  // nothing useful can follow, and the client shall notice at once
    } else if (socket.valid()) {
      end_sending();
      drain();
    }
  } catch (const std::exception& error) {
    note(std::string("while ending: ") + error.what());
  }
  close_descriptor();
  change([&] { record.over = true; });
}

void Connection::Impl::begin_step(std::string description) {
  ++steps;
  step = std::move(description);
  if (!socket.valid()) fail("the script has closed the connection before");
}

void Connection::Impl::fail(const std::string& reason) const { throw ScriptFailure(reason); }

void Connection::Impl::note(const std::string& event) {
  using std::chrono::duration;
  const double seconds = duration<double>(std::chrono::steady_clock::now() - state.start).count();
  std::array<char, 32> time{};
  std::snprintf(time.data(), time.size(), "%9.4f ", seconds);
  const std::lock_guard lock(state.mutex);
  if (++record.transcript_lines == kMostTranscriptLines) record.transcript += "          ... (more is left out)\n";
  const bool important = event.starts_with("FAILED");
  if (record.transcript_lines < kMostTranscriptLines || important) record.transcript += time.data() + event + "\n";
}

short Connection::Impl::wait(short events, Limit& limit, const char* what_for) {
  for (;;) {
    std::array<pollfd, 2> watched{{{socket.get(), events, 0}, {state.finishing.descriptor(), POLLIN, 0}}};
    const nfds_t count = finishing_seen ? 1 : 2;
    const int ready = ::poll(watched.data(), count, limit.deadline().poll_ms());
    if (ready < 0 && errno != EINTR) throw std::system_error(errno, std::generic_category(), "poll");
    if (ready > 0 && watched[0].revents != 0) return watched[0].revents;
    if (count == 2 && (watched[1].revents & POLLIN) != 0) {
      finishing_seen = true;
      limit.cut_down();
    }
    if (limit.deadline().expired()) fail(std::string("waited in vain ") + what_for);
  }
}

bool Connection::Impl::finishing(milliseconds how_long) const {
  pollfd watched{state.finishing.descriptor(), POLLIN, 0};
  return ::poll(&watched, 1, static_cast<int>(how_long.count())) == 1;
}

bool Connection::Impl::need_input(Limit& limit) {
  const std::size_t before = inbox.view().size();
  while (inbox.view().size() == before) {
    if (ended) return false;
    try_flush();
    wait(outbox.empty() ? POLLIN : POLLIN | POLLOUT, limit, "for bytes of the client");
    pump();
  }
  limit.restart();
  return true;
}

void Connection::Impl::require_input(Limit& limit) {
  if (!need_input(limit)) fail(client(record.client_ending) + " after " + counted(inbox.view()));
}

void Connection::Impl::pump() {
  std::array<char, kReadSize> buffer;
  while (!ended) {
    const ssize_t count = ::recv(socket.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (count > 0) {
      take_from_wire({buffer.data(), static_cast<std::size_t>(count)});
      return;  // one piece at a time: a client that never stops sending mustn't keep a step from its end
    }
    if (count == 0) return wire_ended(Ending::closed);
    if (errno == EAGAIN || errno == EWOULDBLOCK) return;
    if (errno != EINTR) return wire_ended(Ending::reset);
  }
}

void Connection::Impl::take_from_wire(std::string_view bytes) {
  if (!tls) return store(bytes);
  tls->take(bytes);
  if (!tls_up) return;
  std::string plain;
  const TlsSession::Read result = tls->read(plain);
  if (!plain.empty()) store(plain);
  outbox.push(tls->for_wire());
  if (result == TlsSession::Read::failed) fail("TLS: " + tls->error());
  if (result == TlsSession::Read::closed_in_order && record.client_ending == Ending::none) {
    note("<- close_notify");
    ended = true;
    change([&] { record.client_ending = Ending::closed; });
  }
}

void Connection::Impl::wire_ended(Ending ending) {
  ended = true;
  if (tls) tls->take_end();
  if (tls_up && ending == Ending::closed) ending = Ending::closed_without_notify;
  note("<- " + client(ending));
  change([&] { record.client_ending = ending; });
}

void Connection::Impl::store(std::string_view bytes) {
  note("<- " + counted(bytes));
  inbox.push(bytes);
  change([&] {
    record.received_count += bytes.size();
    if (keep_received) record.received.append(bytes);
  });
}

void Connection::Impl::queue(std::string_view bytes) {
  if (!tls_up) return outbox.push(bytes);
  if (!tls->write(bytes)) fail("TLS: " + tls->error());
  outbox.push(tls->for_wire());
}

void Connection::Impl::flush(Limit& limit) {
  for (;;) {
    const std::size_t before = outbox.view().size();
    if (!try_flush()) fail(client(record.client_ending));
    if (outbox.empty()) return;
    if (outbox.view().size() != before) limit.restart();
    // A client that sends while it should read must not block both sides for ever.
    const short ready = wait(ended ? POLLOUT : POLLIN | POLLOUT, limit, "for the client to take bytes");
    if ((ready & POLLIN) != 0) pump();
  }
}

bool Connection::Impl::try_flush() {
  while (!outbox.empty()) {
    const std::string_view bytes = outbox.view();
    const ssize_t count = ::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count >= 0) {
      outbox.pop(static_cast<std::size_t>(count));
    } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
      return true;
    } else if (errno != EINTR) {
      if (record.client_ending != Ending::reset) wire_ended(Ending::reset);
      return false;
    }
  }
  return true;
}

void Connection::Impl::start_session(const TlsContext& context) {
  tls.emplace(context);
  tls_up = false;
  // What the client has sent ahead is the beginning of its handshake and no application data.
  const std::string early = inbox.take_all();
  change([&] {
    record.received_count -= early.size();
    if (keep_received) record.received.resize(record.received.size() - early.size());
  });
  tls->take(early);
}

bool Connection::Impl::run_handshake(const TlsContext& context) {
  start_session(context);
  Limit limit(*this);
  for (;;) {
    const TlsSession::Progress progress = tls->handshake();
    outbox.push(tls->for_wire());
    if (progress == TlsSession::Progress::failed) {
      try_flush();  // the alert
      note("TLS handshake failed: " + tls->error());
      return false;
    }
    flush(limit);
    if (progress == TlsSession::Progress::done) break;
    if (ended) return false;
    wait(POLLIN, limit, "for the client's part of the handshake");
    pump();
  }
  tls_up = true;
  const TlsInfo info = tls->info();
  note("TLS is up: " + info.version + (info.session_reused ? ", session reused" : ""));
  change([&] { record.tls = info; });
  take_from_wire({});  // application data may have come with the last handshake bytes
  return true;
}

void Connection::Impl::end_sending() {
  if (sending_ended || !socket.valid()) return;
  sending_ended = true;
  if (tls_up) {
    tls->write_close_notify();
    outbox.push(tls->for_wire());
    note("-> close_notify");
  }
  Limit limit(*this);
  if (record.client_ending != Ending::reset) flush(limit);
  ::shutdown(socket.get(), SHUT_WR);
  note("-> end of sending");
}

void Connection::Impl::drain() {
  // After a close_notify the client's FIN is still to come; without reading up to it, our close would
  // answer the bytes on their way with a reset.
  std::optional<Deadline> last_words;  // once finished: what is there is still read, an endless sender isn't
  while (socket.valid() && record.client_ending != Ending::reset) {
    std::array<pollfd, 2> watched{{{socket.get(), POLLIN, 0}, {state.finishing.descriptor(), POLLIN, 0}}};
    ::poll(watched.data(), watched.size(), -1);  // ends with the peer
    if (watched[1].revents != 0 && !last_words) last_words.emplace(kGrace);
    if (last_words && last_words->expired()) return;
    if (watched[0].revents != 0) {
      std::array<char, kReadSize> buffer;
      const ssize_t count = ::recv(socket.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
      if (count > 0) {
        if (!ended) take_from_wire({buffer.data(), static_cast<std::size_t>(count)});
        inbox.take_all();
        continue;
      }
      if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;
      if (!ended || count < 0) wire_ended(count == 0 ? Ending::closed : Ending::reset);
      return;
    }
    if (watched[1].revents != 0) return;
  }
}

void Connection::Impl::close_descriptor() {
  if (!socket.valid()) return;
  socket.close();
  note("-> closed");
}

// ---------------------------------------------------------------- Connection

std::size_t Connection::index() const { return impl_.index; }
void Connection::patience(milliseconds patience) { impl_.patience = patience; }
void Connection::count_only() { impl_.keep_received = false; }
Ending Connection::client_ending() const { return impl_.record.client_ending; }
void Connection::fail(const std::string& reason) { impl_.fail(reason); }

void Connection::expect(std::string_view bytes) {
  impl_.begin_step("expect " + counted(bytes));
  Impl::Limit limit(impl_);
  for (std::string_view missing = bytes; !missing.empty();) {
    if (impl_.inbox.empty()) impl_.require_input(limit);
    const std::string_view got = impl_.inbox.view().substr(0, missing.size());
    if (got != missing.substr(0, got.size()))
      impl_.fail("at offset " + std::to_string(bytes.size() - missing.size()) + " came " + counted(impl_.inbox.view()) +
                 " instead of " + counted(missing));
    missing.remove_prefix(got.size());
    impl_.inbox.pop(got.size());
  }
}

std::string Connection::read_until(std::string_view delimiter) {
  impl_.begin_step("read until \"" + printable(delimiter) + "\"");
  Impl::Limit limit(impl_);
  for (std::size_t searched = 0;; impl_.require_input(limit)) {
    const std::string_view bytes = impl_.inbox.view();
    const std::size_t found = bytes.find(delimiter, searched);
    if (found != std::string_view::npos) return impl_.inbox.take(found + delimiter.size());
    searched = bytes.size() - std::min(bytes.size(), delimiter.size() - 1);
  }
}

std::string Connection::read_exactly(std::size_t count) {
  impl_.begin_step("read " + std::to_string(count) + " bytes");
  Impl::Limit limit(impl_);
  while (impl_.inbox.view().size() < count) impl_.require_input(limit);
  return impl_.inbox.take(count);
}

void Connection::skip(std::size_t count) {
  impl_.begin_step("skip " + std::to_string(count) + " bytes");
  Impl::Limit limit(impl_);
  while (count > 0) {
    if (impl_.inbox.empty()) impl_.require_input(limit);
    const std::size_t got = std::min(count, impl_.inbox.view().size());
    impl_.inbox.pop(got);
    count -= got;
  }
}

std::string Connection::read_to_end() {
  impl_.begin_step("read to the end");
  Impl::Limit limit(impl_);
  std::string rest;
  do {
    if (impl_.keep_received) rest += impl_.inbox.view();
    impl_.inbox.pop(impl_.inbox.view().size());
  } while (impl_.need_input(limit));
  return rest;
}

void Connection::expect_end() {
  impl_.begin_step("expect the end");
  Impl::Limit limit(impl_);
  if (!impl_.inbox.empty() || impl_.need_input(limit)) impl_.fail("instead came " + counted(impl_.inbox.view()));
  if (client_ending() != Ending::closed) impl_.fail(client(client_ending()));
}

void Connection::send(std::string_view bytes) {
  constexpr std::size_t kPiece = 256 * 1024;  // bounds what TLS makes of it in memory
  impl_.begin_step("send " + counted(bytes));
  Impl::Limit limit(impl_);
  do {
    impl_.note("-> " + counted(bytes.substr(0, kPiece)));
    impl_.queue(bytes.substr(0, kPiece));
    bytes.remove_prefix(std::min(kPiece, bytes.size()));
    impl_.flush(limit);
  } while (!bytes.empty());
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

std::size_t Connection::flood(std::string_view bytes, std::size_t most) {
  impl_.begin_step("flood with up to " + std::to_string(most) + " bytes");
  Impl::Limit limit(impl_);
  std::size_t sent = 0;
  while (sent < most && impl_.record.client_ending == Ending::none && !impl_.finishing(milliseconds(0))) {
    const std::string_view piece = bytes.substr(0, most - sent);
    impl_.queue(piece);
    while (impl_.try_flush() && !impl_.outbox.empty() && !impl_.finishing(milliseconds(0))) {
      const short ready = impl_.wait(POLLIN | POLLOUT, limit, "for the client to take bytes");
      if ((ready & (POLLIN | POLLHUP | POLLERR)) != 0) impl_.pump();
      if (impl_.ended) break;
      limit.restart();
    }
    sent += piece.size();
  }
  impl_.outbox.take_all();
  impl_.note("-> flooded with " + std::to_string(sent) + " bytes");
  return sent;
}

void Connection::pause(milliseconds time) {
  impl_.begin_step("pause");
  if (time > milliseconds(0)) static_cast<void>(impl_.finishing(time));
}

void Connection::wait_for(const Signal& gate) {
  impl_.begin_step("wait for the test's signal");
  const Deadline deadline(impl_.patience);
  std::array<pollfd, 2> watched{{{gate.descriptor(), POLLIN, 0}, {impl_.state.finishing.descriptor(), POLLIN, 0}}};
  ::poll(watched.data(), watched.size(), deadline.poll_ms());
  if (!gate.is_set()) impl_.fail("it was never given");
}

void Connection::stay_silent() {
  impl_.begin_step("stay silent");
  std::array<pollfd, 2> watched{{{impl_.socket.get(), POLLRDHUP, 0}, {impl_.state.finishing.descriptor(), POLLIN, 0}}};
  ::poll(watched.data(), watched.size(), -1);  // ends with the peer
  impl_.note(watched[0].revents != 0 ? "the client has ended the silence" : "the silence is over");
}

void Connection::start_tls(const TlsContext& context) {
  impl_.begin_step("TLS handshake");
  if (!impl_.run_handshake(context))
    impl_.fail(impl_.ended ? client(client_ending()) : impl_.tls->error());
}

bool Connection::try_tls(const TlsContext& context) {
  impl_.begin_step("try a TLS handshake");
  return impl_.run_handshake(context);
}

void Connection::cut_tls_handshake(const TlsContext& context, std::size_t most) {
  impl_.begin_step("cut a TLS handshake after " + std::to_string(most) + " bytes");
  impl_.start_session(context);
  Impl::Limit limit(impl_);
  std::string flight;
  for (;;) {
    if (impl_.tls->handshake() == TlsSession::Progress::failed) impl_.fail(impl_.tls->error());
    flight = impl_.tls->for_wire();
    if (!flight.empty()) break;
    if (impl_.ended) impl_.fail(client(client_ending()));
    impl_.wait(POLLIN, limit, "for the client's part of the handshake");
    impl_.pump();
  }
  impl_.tls.reset();
  impl_.queue(std::string_view(flight).substr(0, most));
  impl_.flush(limit);
}

std::string Connection::read_tls_record() {
  std::string header = read_exactly(5);
  const auto length =
      static_cast<std::size_t>(static_cast<unsigned char>(header[3])) * 256 + static_cast<unsigned char>(header[4]);
  return header + read_exactly(length);
}

void Connection::half_close() {
  impl_.begin_step("end of sending");
  impl_.end_sending();
}

void Connection::close() {
  impl_.begin_step("close");
  impl_.end_sending();
  impl_.drain();
  impl_.close_descriptor();
}

void Connection::close_without_notify() {
  impl_.begin_step("close without close_notify");
  impl_.sending_ended = true;
  ::shutdown(impl_.socket.get(), SHUT_WR);
  impl_.note("-> end of sending, without close_notify");
}

void Connection::close_now() {
  impl_.begin_step("close now");
  impl_.close_descriptor();
}

void Connection::reset() {
  impl_.begin_step("reset");
  const linger at_once{1, 0};
  ::setsockopt(impl_.socket.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
  impl_.note("-> reset");
  impl_.close_descriptor();
}

}  // namespace yinet::test
