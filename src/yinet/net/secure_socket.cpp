// Life cycle of a connection: made, connected, closed. See secure_socket_transfer.cpp for what goes through it and
// secure_socket_tls.cpp for TLS.

#include "yinet/net/secure_socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <optional>
#include <thread>

#include "yinet/dns/ynet_dns.h"
#include "yinet/host/contained.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/net/bio_chain.h"
#include "yinet/net/host_address.h"
#include "yinet/net/readiness.h"
#include "yinet/net/sigpipe_guard.h"
#include "yinet/net/socket_report.h"
#include "yinet/net/socket_state.h"
#include "yinet/net/tcp_connect.h"
#include "yinet/net/tls_errors.h"
#include "yinet/net/tls_session.h"
#include "yinet/net/tls_session_store.h"

namespace yinet {
namespace {

using std::chrono::milliseconds;

constexpr std::string_view kTargetForm = "$1$:$2$";

std::string dotted(std::uint32_t network_order_address) {
  std::array<char, INET_ADDRSTRLEN> text{};
  const in_addr address{network_order_address};
  return inet_ntop(AF_INET, &address, text.data(), text.size()) != nullptr ? text.data() : "";
}

// Small writes go out at once; without this a request in two pieces waits for the peer's delayed acknowledgement.
void send_at_once(int descriptor) {
  const int on = 1;
  setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

void make_non_blocking(int descriptor) {
  const int flags = fcntl(descriptor, F_GETFL);
  if (flags >= 0) fcntl(descriptor, F_SETFL, flags | O_NONBLOCK);
}

// Takes in what the peer still sends until it has ended its side too or the time is over.
void read_to_goodbye(SSL* session, int descriptor, const Deadline& deadline) {
  std::array<char, 4096> ignored{};
  for (;;) {
    ERR_clear_error();
    const int count = SSL_read(session, ignored.data(), static_cast<int>(ignored.size()));
    if (count <= 0 && SSL_get_error(session, count) != SSL_ERROR_WANT_READ) return;
    if (wait_ready(descriptor, POLLIN, deadline.left()) != Readiness::ready || deadline.passed()) return;
  }
}

// RFC 8446, 6.1: tell the peer that no more comes, let it read up, and end the sending side. Closing at once would make the
// system send a reset when the peer's session tickets are still unread, and a reset drops what the peer has not read yet:
// the end of an upload. Ending the sending side before the peer has answered would do the same behind a proxy that closes
// both ways as soon as one of them ends; only a peer that doesn't answer is told that way, after half the time.
void end_in_order(SSL* session, int descriptor) {
  const milliseconds limit(setting_number(settings::kTlsCloseLimit));
  const Deadline deadline(limit);
  for (;;) {
    ERR_clear_error();
    const int result = SSL_shutdown(session);
    if (result >= 0) break;
    if (SSL_get_error(session, result) != SSL_ERROR_WANT_WRITE) return;
    if (wait_ready(descriptor, POLLOUT, deadline.left()) != Readiness::ready) return;
  }
  read_to_goodbye(session, descriptor, Deadline(std::min(limit / 2, deadline.left())));
  shutdown(descriptor, SHUT_WR);
  std::array<char, 4096> ignored{};
  while (wait_ready(descriptor, POLLIN, deadline.left()) == Readiness::ready) {
    const ssize_t count = recv(descriptor, ignored.data(), ignored.size(), MSG_DONTWAIT);
    if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR) || deadline.passed()) break;
  }
  SSL_set_shutdown(session, SSL_SENT_SHUTDOWN | SSL_RECEIVED_SHUTDOWN);  // so that freeing it does not start again
}

// Frees a connection, its descriptor included. Never blocks longer than an orderly end may take.
void end_connection(BIO* bio, const SocketState& state) {
  const SigpipeGuard no_sigpipe;
  SSL* const session = session_of(bio);
  const int descriptor = descriptor_of(bio);
  if (session != nullptr && descriptor >= 0) {
    make_non_blocking(descriptor);  // freeing the chain writes close_notify, and the peer may not be reading
    const bool can_end_in_order = !state.broken && !state.send_unfinished && SSL_is_init_finished(session) != 0;
    if (state.wrote_last && can_end_in_order) end_in_order(session, descriptor);
  }
  BIO_free_all(bio);
  ERR_clear_error();
}

}  // namespace
}  // namespace yinet

using namespace yinet;

SecureSocket::SecureSocket() : state_(std::make_unique<SocketState>()) {}

SecureSocket::SecureSocket(BIO* connection, bool blocking_mode)
    : bio(connection), blocking(blocking_mode), state_(std::make_unique<SocketState>()) {
  send_at_once(descriptor_of(bio));
  if (SSL* const session = session_of(bio)) allow_partial_writes(session);
}

SecureSocket::~SecureSocket() {
  Close();
  SSL_CTX_free(sslContext);
}

int SecureSocket::Connect(const YString& host, const unsigned int& port, const bool& blocking_mode) {
  return contained(-1, [&] {
    blocking = blocking_mode;
    socksTargetAddress.Clear();
    socksTargetPort = 0;
    state_->host = host.str();
    state_->refusal = reason_to_refuse(host, port);
    connectTarget = formatted(kTargetForm, host_in_target(host), std::to_string(port));
    return Connect();
  });
}

int SecureSocket::Connect(const YString& host, const unsigned int& port, const YString& proxyHost,
                          const unsigned int& proxyPort, const bool& blocking_mode, const YString& user,
                          const YString& password) {
  if (proxyHost.IsEmpty()) return Connect(host, port, blocking_mode);
  return contained(-1, [&] {
    blocking = blocking_mode;
    proxyUser = user;
    proxyPassword = password;
    state_->host = host.str();
    state_->refusal = reason_to_refuse(host, port);
    if (state_->refusal.empty()) state_->refusal = reason_to_refuse(proxyHost, proxyPort);
    std::uint32_t target_address = 0;
    std::uint32_t proxy_address = 0;
    if (state_->refusal.empty()) {
      // 0 is "no address", and to this system it would mean this machine.
      target_address = YInetDNS.GetIPAdressForDomain(host);
      if (target_address != 0) proxy_address = YInetDNS.GetIPAdressForDomain(proxyHost);
      if (target_address == 0) state_->refusal = "the target has no IPv4 address";
      else if (proxy_address == 0) state_->refusal = "the proxy has no IPv4 address";
    }
    socksTargetAddress = target_address != 0 ? dotted(target_address) : std::string();
    socksTargetPort = port;
    connectTarget = formatted(kTargetForm, proxy_address != 0 ? dotted(proxy_address) : host_in_target(proxyHost),
                              std::to_string(proxyPort));
    return Connect();
  });
}

int SecureSocket::Reconnect() {
  if (connectTarget.IsEmpty()) return -1;
  return contained(-1, [&] { return Connect(); });
}

void SecureSocket::Close() {
  info.Clear();
  contained(0, [&] {  // of its own: the connection ends even when there is no room for its session
    if (!state_->session_key.empty() && !state_->broken)
      TlsSessionStore::shared().keep(state_->session_key, session_of(bio));
    return 0;
  });
  contained(0, [&] {
    if (bio != nullptr) end_connection(bio, *state_);
    bio = nullptr;
    state_->reset();
    return 0;
  });
}

int SecureSocket::Connect() {
  Close();
  const int failure_message = blocking ? message::kConnectBlockingFailed : message::kConnectFailed;
  const std::string_view refusal = state_->tls_failed ? kNoTls : std::string_view(state_->refusal);
  if (!refusal.empty()) {
    report(kConnectLevel, failure_message, refusal, connectTarget);
    return -1;
  }
  ERR_clear_error();
  bool connected = false;
  std::string failure;
  if (!blocking) {
    TcpConnection made = connect_in_steps(connectTarget.str());
    bio = made.chain.release();
    connected = bio != nullptr;
    failure = std::move(made.failure);
  } else {
    bio = BIO_new_connect(connectTarget.Ptr());
    connected = bio != nullptr && BIO_do_connect(bio) > 0;
    if (!connected) failure = take_error_text(0);
  }
  if (!connected) {
    report(kConnectLevel, failure_message, failure, connectTarget);
    return -1;
  }
  keep_from_children(bio);
  ERR_clear_error();  // addresses tried in vain
  send_at_once(descriptor_of(bio));
  std::this_thread::sleep_for(milliseconds(setting_number(settings::kConnectPause)));
  return sslContext == nullptr ? 0 : ConnectTls();
}

int SecureSocket::GetScoketDescriptor() {
  return contained(-1, [&] {
    // Whoever takes the descriptor may read from it: from here on nothing is taken out before it is asked for.
    state_->read_ahead = false;
    return descriptor_of(bio);
  });
}
