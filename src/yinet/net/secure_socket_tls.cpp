// TLS on a connection: contexts, the handshake of either side, and the decision about the peer's certificate.

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <utility>

#include "yinet/host/contained.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/host/yfile.h"
#include "yinet/net/bio_chain.h"
#include "yinet/net/certificate_info.h"
#include "yinet/net/openssl_handles.h"
#include "yinet/net/readiness.h"
#include "yinet/net/secure_socket.h"
#include "yinet/net/sigpipe_guard.h"
#include "yinet/net/socket_report.h"
#include "yinet/net/socket_state.h"
#include "yinet/net/tls_context.h"
#include "yinet/net/tls_errors.h"
#include "yinet/net/tls_session.h"
#include "yinet/net/tls_session_store.h"

namespace yinet {
namespace {

using std::chrono::milliseconds;

constexpr int kFailed = -1;
constexpr int kRejected = -2;
constexpr std::string_view kServerSessionId = "YInet";  // lets clients with certificates resume their sessions

// A caller may leave the certificate unchecked only while the host lets it.
bool must_verify(bool ignore) { return !ignore || setting_flag(settings::kTlsVerifyAlways); }

// Whose certificate a connection expects.
const std::string& expected_host(const SocketState& state) {
  return state.certificate_host.empty() ? state.host : state.certificate_host;
}

void replace_context(SSL_CTX*& held, ContextHandle made) {
  SSL_CTX_free(held);  // sessions hold their own references
  held = made.release();
}

}  // namespace
}  // namespace yinet

using namespace yinet;

// --- Contexts ---------------------------------------------------------------------------------------------------------

bool SecureSocket::InitSSLClientContext(const YString& certificates, const bool& listFlag,
                                        const bool& ignoreVerification) {
  return contained(false, [&] {
    LoadSSLLib();
    ERR_clear_error();
    replace_context(sslContext, make_client_context());
    state_->trusts_system = false;
    state_->tls_failed = sslContext == nullptr;
    if (sslContext == nullptr) {
      report(kTransferLevel, message::kTlsContextFailed, take_tls_error());
      return false;
    }
    for (const std::string_view folder : certificates.Items()) {
      if (trust_folder(sslContext, folder)) continue;
      const int number = listFlag ? message::kCertificateListItemFailed : message::kCertificateFolderFailed;
      report(kTransferLevel, number, take_tls_error(), folder);
      return false;
    }
    const bool verify = must_verify(ignoreVerification);
    if (state_->authorities) SSL_CTX_set1_cert_store(sslContext, state_->authorities.get());
    else if (verify && certificates.IsEmpty()) trust_system(sslContext);
    state_->trusts_system = certificates.IsEmpty() && !state_->authorities;
    ignoreCertificateVerification = !verify;
    SSL_CTX_set_verify(sslContext, verify ? SSL_VERIFY_PEER : SSL_VERIFY_NONE, nullptr);
    SSL_CTX_set_options(sslContext, SSL_OP_ALL);
    ERR_clear_error();
    return true;
  });
}

void SecureSocket::DropContext() {
  replace_context(sslContext, nullptr);
  state_->tls_failed = false;
}

bool SecureSocket::MakeServerContext(const YString& certificate_file, const YString& key_file,
                                     const YString& key_password, const YString& client_authorities,
                                     bool require_client_certificate) {
  LoadSSLLib();
  ERR_clear_error();
  keyText = key_password;
  replace_context(sslContext, nullptr);
  state_->tls_failed = true;
  ContextHandle context = make_server_context();
  bool usable = context != nullptr;
  if (usable) {
    SSL_CTX_set_default_passwd_cb(context.get(), &SecureSocket::password_cb);
    SSL_CTX_set_default_passwd_cb_userdata(context.get(), this);
    usable = use_certificate(context.get(), certificate_file, key_file);
    SSL_CTX_set_default_passwd_cb_userdata(context.get(), nullptr);
  }
  if (!usable) {
    report(kTransferLevel, message::kTlsContextFailed, take_tls_error());
    return false;
  }
  for (const std::string_view item : client_authorities.Items()) {
    const bool loaded =
        YFileManager.FolderExists(YString(item)) ? trust_folder(context.get(), item) : trust_file(context.get(), item);
    if (loaded) continue;
    report(kTransferLevel, message::kCertificateListItemFailed, take_tls_error(), item);
    return false;
  }
  int mode = client_authorities.IsEmpty() ? SSL_VERIFY_NONE : SSL_VERIFY_PEER;
  if (require_client_certificate) mode = SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT;
  SSL_CTX_set_verify(context.get(), mode, nullptr);
  SSL_CTX_set_options(context.get(), SSL_OP_ALL);
  SSL_CTX_set_session_id_context(context.get(), reinterpret_cast<const unsigned char*>(kServerSessionId.data()),
                                 static_cast<unsigned int>(kServerSessionId.size()));
  replace_context(sslContext, std::move(context));
  state_->tls_failed = false;
  ERR_clear_error();
  return true;
}

bool SecureSocket::InitSSLSeverContext(const YString& certificateFile, const YString& keyFile,
                                       const YString& keyPassword, const YString& clientAuthorities,
                                       const bool& requireClientCertificate) {
  return contained(false, [&] {
    return MakeServerContext(certificateFile, keyFile, keyPassword, clientAuthorities, requireClientCertificate);
  });
}

bool SecureSocket::AddTrustStoreFile(const YString& file) {
  return contained(false, [&] {
    ERR_clear_error();
    state_->trusts_system = false;
    if (sslContext != nullptr && trust_file(sslContext, file)) return true;
    const std::string cause = sslContext == nullptr ? "no TLS context" : take_tls_error();
    report(kTransferLevel, message::kCertificateListItemFailed, cause, file);
    return false;
  });
}

bool SecureSocket::AddTrustStoreDirectory(const YString& folder) {
  return contained(false, [&] {
    ERR_clear_error();
    state_->trusts_system = false;
    std::string cause;
    if (sslContext == nullptr) cause = "no TLS context";
    else if (!YFileManager.FolderExists(folder)) cause = "no such folder";  // OpenSSL would not look
    else if (trust_folder(sslContext, folder)) return true;
    else cause = take_tls_error();
    report(kTransferLevel, message::kCertificateFolderFailed, cause, folder);
    return false;
  });
}

int SecureSocket::password_cb(char* buffer, int size, int, void* user) {
  return contained(0, [&] {
    const auto* const socket = static_cast<const SecureSocket*>(user);
    if (socket == nullptr) return 0;
    const int length = socket->keyText.Length();
    if (size < length) {
      report(kTransferLevel, message::kPasswordBufferTooSmall, {});
      return 0;
    }
    // With its ending zero where that fits too.
    std::memcpy(buffer, socket->keyText.Ptr(), static_cast<std::size_t>(std::min(size, length + 1)));
    return length;
  });
}

YString SecureSocket::GetZertifikatInfo(X509* certificate) { return describe_certificate(certificate); }

// --- Handshakes -------------------------------------------------------------------------------------------------------

int SecureSocket::tryNonBlockingSllConnect(SSL* session) {
  if (session == nullptr && bio != nullptr) session = session_of(bio);
  if (session == nullptr) return -1;
  const SigpipeGuard no_sigpipe;
  const milliseconds pause(setting_number(settings::kTlsAttemptPause));
  const std::int64_t attempts = setting_number(settings::kTlsAttempts);
  const Deadline deadline(pauses(attempts, pause));  // however the peer trickles its bytes
  std::int64_t full_waits = 0;
  for (;;) {
    ERR_clear_error();
    const int result = SSL_connect(session);  // a server session accepts instead
    if (result > 0) return result;
    const int error = SSL_get_error(session, result);
    if (error != SSL_ERROR_WANT_READ && error != SSL_ERROR_WANT_WRITE) return result;
    if (full_waits >= attempts || deadline.passed()) return result;
    const short event = error == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT;
    if (wait_ready(SSL_get_fd(session), event, std::min(pause, deadline.left())) != Readiness::ready) ++full_waits;
  }
}

bool SecureSocket::DelayHandshake(SSL* session, bool verify, int failed_message, int rejected_message, int level) {
  BIO* const filter = BIO_new(BIO_f_ssl());
  if (filter == nullptr) return false;
  if (state_->read_ahead && state_->ahead_capacity > 0) read_ahead_in_session(session, state_->ahead_capacity);
  BIO_up_ref(bio);
  SSL_set_bio(session, bio, bio);
  SSL_set_connect_state(session);
  if (blocking) SSL_set_mode(session, SSL_MODE_AUTO_RETRY);
  BIO_set_ssl(filter, session, BIO_CLOSE);
  BIO_free(std::exchange(bio, filter));
  state_->handshake = DelayedHandshake::due;
  state_->end_handshake = [=, this](std::string_view cause) {
    if (cause.empty()) return JudgePeer(verify, failed_message, rejected_message, level) == 0;
    report(level, failed_message, cause, connectTarget);
    return false;
  };
  return true;
}

void SecureSocket::resume_session_of(const SecureSocket& other) {
  contained(0, [&] {
    state_->certificate_host = expected_host(*other.state_);
    state_->resumed = resumable_session(session_of(other.bio));
    X509_STORE* const authorities = other.sslContext ? SSL_CTX_get_cert_store(other.sslContext) : nullptr;
    if (authorities != nullptr) X509_STORE_up_ref(authorities);
    state_->authorities.reset(authorities);
    return 0;
  });
}

void SecureSocket::share_sessions(bool on) { state_->share_sessions = on; }

bool SecureSocket::PerformSSlConnect(SSL* session) {
  if (session == nullptr || bio == nullptr) return false;
  const SigpipeGuard no_sigpipe;
  if (state_->read_ahead && state_->ahead_capacity > 0) read_ahead_in_session(session, state_->ahead_capacity);
  BIO_up_ref(bio);  // one reference for the session, one stays ours until the chain stands
  SSL_set_bio(session, bio, bio);
  int result = 0;
  if (blocking) {
    SSL_set_mode(session, SSL_MODE_AUTO_RETRY);
    ERR_clear_error();
    result = SSL_connect(session);
  } else {
    result = tryNonBlockingSllConnect(session);
  }
  if (result <= 0) {
    if (ERR_peek_error() != 0) {
      const std::string cause = formatted("$1$ $2$", SSL_state_string_long(session), take_tls_error());
      report(kTransferLevel, message::kTlsConnectFailed, cause, connectTarget);
      SSL_set_bio(session, nullptr, nullptr);
      return false;
    }
    // Not finished in time, or cut off by the peer without a word: counts as done, and the first transfer goes on with
    // the handshake. Callers that verify the certificate must look whether it is finished.
    tlsActive = true;
  }
  BIO* const filter = BIO_new(BIO_f_ssl());
  if (filter == nullptr) {
    SSL_set_bio(session, nullptr, nullptr);
    return false;
  }
  BIO_set_ssl(filter, session, BIO_CLOSE);  // takes its own reference to the plain connection
  BIO_free(std::exchange(bio, filter));
  return true;
}

// The decision about the certificate falls here, after the handshake and before any byte of the application.
int SecureSocket::JudgePeer(bool verify, int unfinished_message, int rejected_message, int level) {
  if (!verify) return 0;
  SSL* const session = session_of(bio);
  if (SSL_is_init_finished(session) == 0) {
    report(level, unfinished_message, "the handshake is not finished, so there is no verified certificate",
           connectTarget);
    return kFailed;
  }
  const long result = verification_result(session);
  if (result == X509_V_OK) return 0;
  const CertificateHandle certificate(SSL_get1_peer_certificate(session));
  report(level, rejected_message, GetZertifikatInfo(certificate.get()), connectTarget, std::to_string(result));
  ERR_clear_error();
  return kRejected;
}

// Names what must be the same for a session to be resumed: the server, what was checked of it, and the policy. Empty
// where sessions are not shared.
std::string SecureSocket::SharedSessionKey(bool verify) const {
  if (!state_->share_sessions || !state_->trusts_system) return {};
  const std::string_view checks = !verify ? "unchecked" : setting_flag(settings::kTlsCheckName) ? "named" : "unnamed";
  return formatted("$1$\n$2$\n$3$\n$4$\n$5$\n$6$", connectTarget, state_->host, std::to_string(socksTargetPort), checks,
                   setting_text(settings::kTlsMinimumVersion), setting_text(settings::kTlsCipherList));
}

int SecureSocket::ConnectTls() {
  const bool verify = must_verify(ignoreCertificateVerification);
  const std::string key = SharedSessionKey(verify);
  if (!key.empty()) state_->resumed = TlsSessionStore::shared().take(key);
  SessionHandle session = make_client_session(sslContext, expected_host(*state_), verify, state_->resumed.get());
  const bool done = dataChannel && session ? DelayHandshake(session.get(), verify, message::kConnectTlsFailed,
                                                            message::kCertificateRejected, kConnectLevel)
                                           : PerformSSlConnect(session.get());
  if (!done) {
    report(kConnectLevel, message::kConnectTlsFailed, take_tls_error(), connectTarget);
    return -1;
  }
  static_cast<void>(session.release());  // owned by the chain now
  if (dataChannel) return 0;
  const int judgement = JudgePeer(verify, message::kConnectTlsFailed, message::kCertificateRejected, kConnectLevel);
  if (judgement == 0) state_->session_key = key;
  return judgement;
}

int SecureSocket::STARTTLS(const YString& certificates, const bool& listFlag, const bool& ignoreVerification,
                           void* context) {
  return contained(-1, [&] {
    if (bio == nullptr) return -1;
    auto* chosen = static_cast<SSL_CTX*>(context);
    if (chosen == nullptr) chosen = sslContext;
    if (chosen == nullptr) {
      if (!InitSSLClientContext(certificates, listFlag, ignoreVerification)) {
        report(kTransferLevel, message::kStartTlsContextFailed, {}, connectTarget);
        return -1;
      }
      chosen = sslContext;
    }
    const bool verify = must_verify(ignoreVerification);
    state_->drop_buffered();
    SessionHandle session = make_client_session(chosen, expected_host(*state_), verify, state_->resumed.get());
    const bool done = dataChannel && session ? DelayHandshake(session.get(), verify, message::kStartTlsFailed,
                                                              message::kStartTlsCertificateRejected, kTransferLevel)
                                             : PerformSSlConnect(session.get());
    if (!done) {
      report(kTransferLevel, message::kStartTlsFailed, take_tls_error(), connectTarget);
      return -1;
    }
    static_cast<void>(session.release());
    if (dataChannel) return 0;
    return JudgePeer(verify, message::kStartTlsFailed, message::kStartTlsCertificateRejected, kTransferLevel);
  });
}

bool SecureSocket::STARTTLS(const YString& certificateFile, const YString& keyFile, const YString& keyPassword,
                            const YString& clientAuthorities) {
  return contained(false, [&] {
    if (bio == nullptr) return false;
    if (sslContext == nullptr &&
        !MakeServerContext(certificateFile, keyFile, keyPassword, clientAuthorities, !clientAuthorities.IsEmpty())) {
      report(kTransferLevel, message::kStartTlsContextFailed, {}, connectTarget);
      return false;
    }
    state_->drop_buffered();
    SessionHandle session = make_server_session(sslContext);
    if (!PerformSSlConnect(session.get())) {
      report(kTransferLevel, message::kStartTlsFailed, take_tls_error(), connectTarget);
      return false;
    }
    SSL* const accepted = session.release();
    if (SSL_is_init_finished(accepted) != 0) return true;
    report(kTransferLevel, message::kStartTlsFailed, "the handshake is not finished", connectTarget);
    return false;
  });
}

bool SecureSocket::doSSLHandShake() {
  return contained(false, [&] {
    if (bio == nullptr) return false;
    const SigpipeGuard no_sigpipe;
    const milliseconds limit(setting_number(settings::kIdleLimit));
    for (;;) {
      ERR_clear_error();
      if (BIO_do_handshake(bio) > 0) return true;
      if (!BIO_should_retry(bio)) break;
      const short event = BIO_should_read(bio) ? POLLIN : POLLOUT;
      const Readiness readiness =
          blocking ? wait_ready(descriptor_of(bio), event) : wait_ready(descriptor_of(bio), event, limit);
      if (readiness != Readiness::ready) break;
    }
    const std::string cause = take_tls_error();
    const int descriptor = descriptor_of(bio);
    if (SSL* const session = session_of(bio)) SSL_set_quiet_shutdown(session, 1);
    // The chain goes, the descriptor stays.
    if (BIO* const holder = BIO_find_type(bio, BIO_TYPE_DESCRIPTOR)) BIO_set_close(holder, BIO_NOCLOSE);
    BIO_free_all(bio);
    bio = BIO_new_socket(descriptor, BIO_CLOSE);
    state_->reset();
    report(kTransferLevel, message::kHandshakeStepFailed, cause);
    return false;
  });
}
