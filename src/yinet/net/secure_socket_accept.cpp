// Listening: a SecureSocket that hands out one new SecureSocket for each connection it accepts.

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>

#include <string>
#include <string_view>

#include "yinet/host/codepage.h"
#include "yinet/host/contained.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/net/bio_chain.h"
#include "yinet/net/host_address.h"
#include "yinet/net/openssl_handles.h"
#include "yinet/net/port_owner.h"
#include "yinet/net/secure_socket.h"
#include "yinet/net/socket_report.h"
#include "yinet/net/socket_state.h"
#include "yinet/net/tls_errors.h"

namespace yinet {
namespace {

constexpr int kMisuseLevel = 8;

struct ListenAddress {
  std::string target;  // "host:port" for OpenSSL
  int family;
};

ListenAddress listen_address(unsigned int port) {
  const std::string number = std::to_string(port);
  const std::string host = setting_text(settings::kDefaultAddress);
  if (!host.empty()) return {formatted("$1$:$2$", host_in_target(host), number), BIO_FAMILY_IPANY};
  // A socket on the IPv6 placeholder takes IPv4 as well.
  if (setting_flag(settings::kListenBothFamilies)) return {formatted("[::]:$1$", number), BIO_FAMILY_IPV6};
  return {formatted("*:$1$", number), BIO_FAMILY_IPV4};
}

// A server's end of TLS, as each accepted connection gets a copy of it. Null on failure.
BIO* make_tls_template(SSL_CTX* context) {
  BIO* const filter = BIO_new_ssl(context, 0);
  if (SSL* const session = session_of(filter)) SSL_set_mode(session, SSL_MODE_AUTO_RETRY);
  return filter;
}

void report_bind_failure(unsigned int port, std::string_view description, std::string_view cause) {
  const YString process = SecureSocket::GetProcessByPort(port);
  const std::string number = std::to_string(port);
  const YString service =
      description.empty() ? YTextManager.GetYText(message::kListenUnnamedService) : YString(description);
  std::string text = YTextManager.GetYText(message::kListenFailed, service, number).str();
  if (!process.IsEmpty()) text += " " + YTextManager.GetYText(message::kListenPortHeld, process).str();
  YLog.EventEx(kConnectLevel, message::kListenFailed, text,
               formatted("nPort: $1$\r\nprocessFile: $2$\r\nError: $3$", number, process, cause));
}

}  // namespace
}  // namespace yinet

using namespace yinet;

bool SecureSocket::PrepareForAccepting(const unsigned& port, bool blocking_mode, const YString& description) {
  return contained(false, [&] {
    Close();
    connectTarget.Clear();
    ERR_clear_error();
    if (port > kHighestPort) {
      report_bind_failure(port, description, "the port is not in 0 to 65535");
      return false;
    }
    if (state_->tls_failed) {
      report(kConnectLevel, message::kListenTlsFailed, kNoTls);
      return false;
    }
    ChainHandle tls;
    if (sslContext != nullptr) {
      tls.reset(make_tls_template(sslContext));
      if (!tls) {
        report(kConnectLevel, message::kListenTlsFailed, take_tls_error());
        return false;
      }
    }
    const ListenAddress address = listen_address(port);
    ChainHandle listener(BIO_new_accept(address.target.c_str()));
    if (!listener) {
      report(kConnectLevel, tls ? message::kListenTlsAddressFailed : message::kListenAddressFailed, take_tls_error());
      return false;
    }
    if (tls) BIO_set_accept_bios(listener.get(), tls.release());
    blocking = blocking_mode;
    BIO_set_accept_ip_family(listener.get(), address.family);
    BIO_set_bind_mode(listener.get(), BIO_BIND_REUSEADDR);  // connections of an earlier run may still be passing away
    if (!blocking) {
      BIO_set_nbio_accept(listener.get(), 1);
      BIO_set_nbio(listener.get(), 1);  // what is accepted
    }
    if (BIO_do_accept(listener.get()) <= 0) {
      report_bind_failure(port, description, take_tls_error());
      return false;
    }
    bio = listener.release();
    keep_from_children(bio);
    listenPort = port;
    ERR_clear_error();
    return true;
  });
}

SecureSocket* SecureSocket::Accept() {
  return contained(static_cast<SecureSocket*>(nullptr), [&]() -> SecureSocket* {
    if (!blocking) {
      report(kMisuseLevel, message::kAcceptNeedsBlocking, {});
      return nullptr;
    }
    if (!is_listener(bio)) {
      report(kTransferLevel, message::kAcceptBlockingNotListening, {});
      return nullptr;
    }
    do {
      ERR_clear_error();
      if (BIO_do_accept(bio) > 0) return TakeAccepted();
    } while (BIO_should_retry(bio));  // a signal came in between
    report(kTransferLevel, message::kAcceptBlockingFailed, take_tls_error(), std::to_string(listenPort));
    return nullptr;
  });
}

bool SecureSocket::Accept(SecureSocket** connection) {
  return contained(false, [&] {
    if (connection == nullptr) return false;
    if (blocking) {
      report(kMisuseLevel, message::kAcceptNeedsNonBlocking, {});
      return false;
    }
    *connection = nullptr;
    if (!is_listener(bio)) {
      report(kTransferLevel, message::kAcceptNotListening, {});
      return false;
    }
    ERR_clear_error();
    if (BIO_do_accept(bio) > 0) {
      *connection = TakeAccepted();
      return true;
    }
    if (BIO_should_retry(bio)) return true;
    report(kTransferLevel, message::kAcceptFailed, take_tls_error(), std::to_string(listenPort));
    return false;
  });
}

SecureSocket* SecureSocket::TakeAccepted() {
  ChainHandle chain(BIO_pop(bio));
  if (!chain) return nullptr;
  keep_from_children(chain.get());
  auto* const accepted = new SecureSocket(chain.get(), blocking);
  static_cast<void>(chain.release());
  return accepted;
}

YString SecureSocket::GetProcessByPort(unsigned port) {
  return contained(YString(), [&] { return YString(name_from_utf8(executable_holding_port(port))); });
}
