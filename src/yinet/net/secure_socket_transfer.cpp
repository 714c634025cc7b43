// Sending and receiving. read_step() and write_step() are the one place where the bytes of callers enter and leave a
// connection.

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/sslerr.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <limits>
#include <optional>
#include <utility>

#include "yinet/host/contained.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/net/bio_chain.h"
#include "yinet/net/readiness.h"
#include "yinet/net/secure_socket.h"
#include "yinet/net/sigpipe_guard.h"
#include "yinet/net/socket_report.h"
#include "yinet/net/socket_state.h"
#include "yinet/net/tls_errors.h"

namespace yinet {
namespace {

using std::chrono::milliseconds;

enum class Io {
  done,        // at least one byte
  wait_read,   // nothing now; try again when the descriptor is readable
  wait_write,  // nothing now; try again when it is writable
  connecting,  // the connect is still under way
  closed,      // the peer has ended, in order or by closing without TLS's goodbye
  failed       // error queue or errno tell why
};

struct IoResult {
  Io outcome;
  std::size_t count = 0;
  int system_error = 0;
};

// The meaning of a read or write that moved nothing.
IoResult why_nothing_moved(BIO* bio, int system_error) {
  if (BIO_should_retry(bio)) {
    if (BIO_should_read(bio)) return {Io::wait_read};
    if (BIO_should_write(bio)) return {Io::wait_write};
    if (is_connecting(bio)) return {Io::connecting};
  }
  const unsigned long error = ERR_peek_error();
  if (ERR_GET_LIB(error) == ERR_LIB_SSL && ERR_GET_REASON(error) == SSL_R_UNEXPECTED_EOF_WHILE_READING) {
    ERR_clear_error();  // many servers close TCP without TLS's goodbye; the length of a reply tells whether it is whole
    return {Io::closed};
  }
  return {error == 0 && system_error == 0 ? Io::closed : Io::failed, 0, system_error};
}

// A delayed handshake (there may be none), as far as it goes without waiting. After `done` bytes may follow.
IoResult handshake_step(BIO* bio, SocketState& state) {
  if (state.handshake == DelayedHandshake::none) return {Io::done};
  if (state.handshake == DelayedHandshake::failed) return {Io::failed};
  ERR_clear_error();
  errno = 0;
  std::string cause;
  if (BIO_do_handshake(bio) <= 0) {
    const IoResult result = why_nothing_moved(bio, errno);
    if (result.outcome != Io::closed && result.outcome != Io::failed) return result;
    cause = result.outcome == Io::closed ? "the peer ended the connection in the handshake"
                                         : take_error_text(result.system_error);
  }
  const bool stands = state.end_handshake(cause);
  state.handshake = stands ? DelayedHandshake::none : DelayedHandshake::failed;
  return {stands ? Io::done : Io::failed};
}

IoResult read_step(BIO* bio, SocketState& state, char* target, std::size_t size) {
  if (is_connecting(bio) && !is_ready(descriptor_of(bio), POLLOUT)) return {Io::connecting};
  std::optional<SigpipeGuard> no_sigpipe;
  if (session_of(bio) != nullptr) no_sigpipe.emplace();  // a TLS read may have to answer
  if (const IoResult handshake = handshake_step(bio, state); handshake.outcome != Io::done) return handshake;
  ERR_clear_error();
  errno = 0;
  std::size_t count = 0;
  if (BIO_read_ex(bio, target, size, &count) == 1) return {Io::done, count};
  return why_nothing_moved(bio, errno);
}

IoResult write_step(BIO* bio, SocketState& state, std::string_view content) {
  if (const IoResult handshake = handshake_step(bio, state); handshake.outcome != Io::done) return handshake;
  ERR_clear_error();
  errno = 0;
  std::size_t count = 0;
  if (BIO_write_ex(bio, content.data(), content.size(), &count) == 1) return {Io::done, count};
  return why_nothing_moved(bio, errno);
}

short event_for(Io outcome) { return outcome == Io::wait_read ? POLLIN : POLLOUT; }

// --- Sending ----------------------------------------------------------------------------------------------------------

// After a write that had to stop, TLS holds a record that must go out first; a handshake under way holds nothing yet.
bool holds_record(BIO* bio) {
  SSL* const session = session_of(bio);
  return session != nullptr && SSL_is_init_finished(session) != 0;
}

struct SendFailure {
  bool gave_up_connecting = false;
  std::string cause;  // empty: nothing to log
};

// Writes `content` from state.sent on until all of it is taken. A blocking connection waits without limit; otherwise
// kSendAttempts full waits for the connect are allowed, and kIdleLimit without a byte taken.
std::optional<SendFailure> write_all(BIO* bio, SocketState& state, std::string_view content, bool blocking) {
  const SigpipeGuard no_sigpipe;
  const milliseconds idle_limit(blocking ? 0 : setting_number(settings::kIdleLimit));
  Deadline idle_deadline(idle_limit);
  std::int64_t full_waits = 0;
  for (;;) {
    const int descriptor = descriptor_of(bio);  // changes from one address to the next while connecting
    if (is_connecting(bio)) {
      const milliseconds pause(setting_number(settings::kSendPause));
      if (wait_ready(descriptor, POLLOUT, pause) != Readiness::ready) {
        if (++full_waits > setting_number(settings::kSendAttempts)) {
          return SendFailure{true, formatted("no connection after $1$ waits of $2$ ms", std::to_string(full_waits),
                                             std::to_string(pause.count()))};
        }
        continue;
      }
    }
    const IoResult result = write_step(bio, state, content.substr(state.sent));
    switch (result.outcome) {
      case Io::done:
        state.sent += result.count;
        state.send_unfinished = false;
        state.wrote_last = true;
        if (state.on_sent) state.on_sent(state.sent);
        idle_deadline = Deadline(idle_limit);
        if (state.sent == content.size()) return std::nullopt;
        break;
      case Io::wait_read:
      case Io::wait_write: {
        state.send_unfinished = holds_record(bio);
        if (blocking) {
          if (wait_ready(descriptor, event_for(result.outcome)) == Readiness::ready) break;
          return SendFailure{};
        }
        if (wait_ready(descriptor, event_for(result.outcome), idle_deadline.left()) == Readiness::ready) break;
        return SendFailure{false,
                           formatted("nothing taken by the peer within $1$ ms", std::to_string(idle_limit.count()))};
      }
      case Io::connecting: break;
      case Io::closed:
      case Io::failed: state.broken = true; return SendFailure{false, take_error_text(result.system_error)};
    }
  }
}

struct SendMessages {
  int failed;
  int gave_up;
};

constexpr SendMessages kBufferBlocking{message::kSendBufferBlockingFailed, message::kSendBufferBlockingFailed};
constexpr SendMessages kTextBlocking{message::kSendTextBlockingFailed, message::kSendTextBlockingFailed};
constexpr SendMessages kBufferNonBlocking{message::kSendBufferFailed, message::kSendBufferGaveUp};
constexpr SendMessages kTextNonBlocking{message::kSendTextFailed, message::kSendTextGaveUp};

bool send_and_report(BIO* bio, SocketState& state, std::string_view content, bool blocking, SendMessages messages) {
  if (content.empty()) return false;
  if (const auto failure = write_all(bio, state, content, blocking)) {
    if (!failure->cause.empty()) {
      report(kTransferLevel, failure->gave_up_connecting ? messages.gave_up : messages.failed, failure->cause);
    }
    ERR_clear_error();
    return false;
  }
  return true;
}

// Whether a new content may begin. What TLS holds of an earlier one would go out first and be counted as part of it.
bool may_begin(SocketState& state, SendMessages messages) {
  if (state.send_unfinished) {
    report(kTransferLevel, messages.failed, "an earlier content is not sent to its end");
    return false;
  }
  state.sent = 0;
  return true;
}

// --- Receiving --------------------------------------------------------------------------------------------------------

std::size_t take_buffered(SocketState& state, char* target, std::size_t size) {
  const std::size_t count = std::min(size, state.buffered());
  if (count > 0) std::memcpy(target, state.ahead.get() + state.begin, count);
  state.begin += count;
  return count;
}

// One read for a caller, through the read-ahead when it is on and the caller asks for little. A read over TLS gives one
// record at the most, whatever room there is, and what lies behind it is read ahead inside the TLS session.
IoResult read_or_fill(BIO* bio, SocketState& state, char* target, std::size_t size) {
  const std::size_t most = session_of(bio) != nullptr ? SSL3_RT_MAX_PLAIN_LENGTH : state.ahead_capacity;
  if (!state.read_ahead || size >= std::min(most, state.ahead_capacity)) return read_step(bio, state, target, size);
  const IoResult result = read_step(bio, state, state.ahead.get(), state.ahead_capacity);
  if (result.outcome != Io::done) return result;
  state.begin = 0;
  state.end = result.count;
  return {Io::done, take_buffered(state, target, size)};
}

// Whether a read of the connection itself would have gone on behind the bytes that were read ahead: over TLS to the end
// of the record, on a plain connection as far as there is something.
bool goes_on(BIO* bio) {
  if (SSL* const session = session_of(bio)) return SSL_pending(session) > 0;
  return is_ready(descriptor_of(bio), POLLIN);
}

// What one read of the connection itself would give, so that a caller sees the same counts with and without read-ahead.
IoResult read_for_caller(BIO* bio, SocketState& state, char* target, std::size_t size) {
  std::size_t taken = take_buffered(state, target, size);
  if (taken == size) return {Io::done, taken};
  if (taken > 0 && !goes_on(bio)) return {Io::done, taken};
  const IoResult result = read_or_fill(bio, state, target + taken, size - taken);
  state.input_drained = result.outcome != Io::done;
  state.input_event = event_for(result.outcome == Io::wait_write ? Io::wait_write : Io::wait_read);
  if (result.outcome == Io::done) taken += result.count;
  if (result.outcome == Io::failed) state.broken = true;  // the system tells of a reset once
  // An end seen behind the last buffered bytes is met again by the next read.
  if (taken > 0) {
    ERR_clear_error();
    state.wrote_last = false;
    return {Io::done, taken};
  }
  return result;
}

// One read into a caller's container, with the described results; `number` is the message of its failure.
int receive_and_report(BIO* bio, SocketState& state, char* target, int size, bool quiet, bool blocking, int number) {
  if (size <= 0) return 0;
  for (;;) {
    const IoResult result = read_for_caller(bio, state, target, static_cast<std::size_t>(size));
    switch (result.outcome) {
      case Io::done: return static_cast<int>(result.count);
      case Io::wait_read:
      case Io::wait_write:
      case Io::connecting: {
        if (!blocking) return 0;
        const short event = result.outcome == Io::connecting ? POLLOUT : state.input_event;
        if (wait_ready(descriptor_of(bio), event) == Readiness::ready) break;
        return SecureSocket::kReceiveEnded;
      }
      case Io::closed:
      case Io::failed: {
        const std::string error = take_tls_error();
        if (!quiet && !error.empty()) report(kTransferLevel, number, error);
        return SecureSocket::kReceiveEnded;
      }
    }
  }
}

// Containers get their size first and zeros behind what arrived, whatever the read brings.

char* prepared(YBuffer& target, int size) {
  target.SetSize(std::max(size, 0));
  return reinterpret_cast<char*>(target.Ptr());
}

char* prepared(YString& target, int size) {
  target.SetLength(std::max(size, 0));
  return target.Ptr();
}

void zero_behind(char* bytes, int size, int received) {
  const int kept = std::clamp(received, 0, std::max(size, 0));
  if (size > kept) std::memset(bytes + kept, 0, static_cast<std::size_t>(size - kept));
}

template <typename Container>
int receive_into(Container& target, int size, bool quiet, BIO* bio, SocketState& state, bool blocking, int number) {
  char* const bytes = prepared(target, size);
  const int result = bio == nullptr ? 0 : receive_and_report(bio, state, bytes, size, quiet, blocking, number);
  zero_behind(bytes, size, result);
  return result;
}

}  // namespace
}  // namespace yinet

using namespace yinet;

bool SecureSocket::Send(const YBuffer& data) {
  return contained(false, [&] { return has_connection() && (blocking ? SendBlocking(data) : SendNonBlockig(data)); });
}

bool SecureSocket::Send(const YString& data) {
  return contained(false, [&] { return has_connection() && (blocking ? SendBlocking(data) : SendNonBlockig(data)); });
}

bool SecureSocket::SendBlocking(const YBuffer& data) {
  return may_begin(*state_, kBufferBlocking) && send_and_report(bio, *state_, data.view(), true, kBufferBlocking);
}

bool SecureSocket::SendBlocking(const YString& data) {
  return may_begin(*state_, kTextBlocking) && send_and_report(bio, *state_, data, true, kTextBlocking);
}

bool SecureSocket::SendNonBlockig(const YBuffer& data) {
  return may_begin(*state_, kBufferNonBlocking) &&
         send_and_report(bio, *state_, data.view(), false, kBufferNonBlocking);
}

bool SecureSocket::SendNonBlockig(const YString& data) {
  return may_begin(*state_, kTextNonBlocking) && send_and_report(bio, *state_, data, false, kTextNonBlocking);
}

bool SecureSocket::send_rest(const YBuffer& data) {
  return contained(false, [&] {
    if (!has_connection() || state_->sent > data.view().size()) return false;
    if (state_->sent == data.view().size() && state_->sent > 0) return true;
    return send_and_report(bio, *state_, data.view(), blocking, blocking ? kBufferBlocking : kBufferNonBlocking);
  });
}

std::size_t SecureSocket::bytes_sent() const { return state_->sent; }
bool SecureSocket::is_broken() const { return state_->broken; }
bool SecureSocket::has_connection() const { return bio != nullptr && !is_listener(bio); }
bool SecureSocket::lacks_handshake() const { return state_->handshake != DelayedHandshake::none; }
void SecureSocket::on_sent(std::function<void(std::size_t)> observer) { state_->on_sent = std::move(observer); }

int SecureSocket::Receive(YBuffer& target, const int& size, bool quiet) {
  return contained(kReceiveEnded, [&] {
    return blocking ? ReceiveBlocking(target, size, quiet) : ReceiveNonBlocking(target, size, quiet);
  });
}

int SecureSocket::Receive(YString& target, const int& size, bool quiet) {
  return contained(kReceiveEnded, [&] {
    return blocking ? ReceiveBlocking(target, size, quiet) : ReceiveNonBlocking(target, size, quiet);
  });
}

int SecureSocket::ReceiveBlocking(YBuffer& target, const int& size, bool quiet) {
  return receive_into(target, size, quiet, has_connection() ? bio : nullptr, *state_, true,
                      message::kReceiveBufferBlockingFailed);
}

int SecureSocket::ReceiveBlocking(YString& target, const int& size, bool quiet) {
  return receive_into(target, size, quiet, has_connection() ? bio : nullptr, *state_, true,
                      message::kReceiveTextBlockingFailed);
}

int SecureSocket::ReceiveNonBlocking(YBuffer& target, const int& size, bool quiet) {
  return receive_into(target, size, quiet, has_connection() ? bio : nullptr, *state_, false,
                      message::kReceiveBufferFailed);
}

int SecureSocket::ReceiveNonBlocking(YString& target, const int& size, bool quiet) {
  return receive_into(target, size, quiet, has_connection() ? bio : nullptr, *state_, false,
                      message::kReceiveTextFailed);
}

bool SecureSocket::GetBinaryFromReceive(YBuffer& target, int count) {
  return contained(false, [&] {
    const std::int64_t idle_limit = setting_number(settings::kIdleLimit);
    const int wait_ms = static_cast<int>(std::min<std::int64_t>(idle_limit, std::numeric_limits<int>::max()));
    while (bio != nullptr) {
      YBuffer scratch;
      const int received = Receive(scratch, count, false);
      if (received == kReceiveEnded) return false;
      if (received > 0) target.Add(scratch);  // all `count` bytes, as callers know it
      if (received == count) return true;
      if (received == 0 && !wait_for_input(wait_ms)) return false;
    }
    return false;
  });
}

bool SecureSocket::wait_for_input(int limit_ms) {
  return contained(true, [&] {
    if (bio == nullptr || state_->buffered() > 0) return true;
    SSL* const session = session_of(bio);
    // Bytes inside the TLS layer cannot be waited for on the descriptor; after a read that found nothing they are only
    // the beginning of a record.
    if (session != nullptr && !state_->input_drained && SSL_has_pending(session) != 0) return true;
    return wait_ready(descriptor_of(bio), state_->input_event, milliseconds(std::max(limit_ms, 0))) !=
           Readiness::timed_out;
  });
}

void SecureSocket::read_ahead(bool on) {
  contained(0, [&] {
    state_->read_ahead = false;
    if (!on) return 0;
    if (!state_->ahead) {
      state_->ahead_capacity = static_cast<std::size_t>(setting_number(settings::kReadAhead));
      state_->ahead = std::make_unique_for_overwrite<char[]>(state_->ahead_capacity);
    }
    state_->read_ahead = true;
    return 0;
  });
}
