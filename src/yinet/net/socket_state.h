#pragma once

// What a SecureSocket knows of its connection besides its exported members. Owned by the SecureSocket.

#include <poll.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "yinet/net/openssl_handles.h"

namespace yinet {

// A TLS handshake that waits for the first transfer of bytes.
enum class DelayedHandshake { none, due, failed };

struct SocketState {
  // Whom the connection is for: the last Connect's host and port, behind a proxy the final ones. Named towards a TLS
  // server and looked for in its certificate.
  std::string host;
  std::string refusal;  // why the last target must not be connected to; empty when it may

  // --- What a data channel borrows: whose server it expects, whom it trusts, the session to resume (both may be null) ---
  std::string certificate_host;  // empty: `host`
  AuthoritiesHandle authorities;
  SslSessionHandle resumed;

  // --- Sessions shared with other connections of the process (TlsSessionStore) ---
  bool share_sessions = false;
  bool trusts_system = false;  // the context's authorities are the system's, and nothing else

  // A TLS context was asked for and could not be made: nothing may go out in clear instead.
  bool tls_failed = false;

  std::function<void(std::size_t)> on_sent;  // may be empty

  // --- The connection that stands; reset() with every new one ---
  std::size_t sent = 0;          // bytes of the last Send that were taken
  bool send_unfinished = false;  // TLS holds part of a record: the next bytes must be the rest of the same content
  bool wrote_last = false;       // nothing was read after the last write
  bool broken = false;           // a read or write failed: no orderly end is possible
  short input_event = POLLIN;    // what the last read waits for (TLS may have to write first)
  bool input_drained = false;    // the last read found nothing: only the system can tell of more
  std::string session_key;       // where the session is to be kept; empty: nowhere
  DelayedHandshake handshake = DelayedHandshake::none;
  std::function<bool(std::string_view)> end_handshake;  // see DelayHandshake

  // --- Read-ahead: bytes [begin, end) of `ahead` belong to the next reads ---
  bool read_ahead = false;
  std::unique_ptr<char[]> ahead;
  std::size_t ahead_capacity = 0;
  std::size_t begin = 0;
  std::size_t end = 0;

  [[nodiscard]] std::size_t buffered() const { return end - begin; }
  void drop_buffered() { begin = end = 0; }
  void reset() {
    sent = 0;
    send_unfinished = wrote_last = broken = input_drained = false;
    input_event = POLLIN;
    session_key.clear();
    handshake = DelayedHandshake::none;
    end_handshake = nullptr;
    drop_buffered();
  }
};

}  // namespace yinet
