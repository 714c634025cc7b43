#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "yinet/host/export.h"
#include "yinet/host/ybuffer.h"
#include "yinet/host/ylock.h"
#include "yinet/host/yobject.h"
#include "yinet/host/ystring.h"

typedef struct bio_st BIO;
typedef struct ssl_ctx_st SSL_CTX;
typedef struct ssl_st SSL;
typedef struct x509_st X509;

namespace yinet {
struct SocketState;
}

// The library's one stream connection: TCP through an OpenSSL BIO chain, with or without TLS, blocking or not. The same
// class listens for connections; a listening object neither sends nor receives.
//
// Owns its connection and its TLS context; the destructor frees both. A connection whose last act was a write over TLS
// is ended in order before its descriptor is closed, so that the peer gets every byte; that may take up to the setting
// kTlsCloseLimit. Nothing raises SIGPIPE.
//
// Blocking objects wait in the system without limit, as a blocking socket does. Non-blocking objects wait for readiness
// only where an operation says so, and never longer than kIdleLimit without progress.
//
// Every failure is a result value and one log entry; nothing throws. The first error that OpenSSL queued is the entry's
// extra text; each operation clears the calling thread's OpenSSL error queue when it begins and when it ends.
//
// One thread at a time may use an object; different objects may be used on different threads.
class YINET_API SecureSocket {
 public:
  // Set once OpenSSL's one-time set-up has run.
  static std::atomic<bool> m_bSSLLibLoaded;
  // One lock per lock number that OpenSSL reports (1 since OpenSSL guards itself). Made while the library is loaded,
  // never freed.
  static YLock* SSLLocks;

  SecureSocket();
  SecureSocket(const SecureSocket&) = delete;
  SecureSocket& operator=(const SecureSocket&) = delete;
  ~SecureSocket();

  // --- Connecting -----------------------------------------------------------------------------------------------------
  // Results: 0 connected; -1 failed; -2 the certificate was rejected, and the connection stays open for the caller to
  // decide. An older connection is closed first. With a TLS context (InitSSLClientContext) the handshake is part of it.
  // `host` is a name, an IPv4 address or an IPv6 address (with or without brackets); a name is tried at all its
  // addresses. Ports outside 1 to 65535 and an empty host fail without traffic.
  int Connect(const YString& host, const unsigned int& port, const bool& blocking);
  // Connects to the proxy and keeps the target's IPv4 address for the negotiation with it, which is the caller's next
  // step. An empty `proxyHost` connects directly. Fails when host or proxy have no IPv4 address.
  int Connect(const YString& host, const unsigned int& port, const YString& proxyHost, const unsigned int& proxyPort,
              const bool& blocking, const YString& proxyUser, const YString& proxyPassword);
  // The last target once more, with the same TLS context; -1 when there was none.
  int Reconnect();
  void Close();  // keeps the TLS context
  // The dialogue with the SOCKS proxy that the proxy form of Connect has reached; `version` 5 (RFC 1928, with RFC 1929
  // when a proxy user was given) or 4. 0: the tunnel to the target is open; -1: nothing to do (no target behind a proxy,
  // another version); -3: not sent, or not logged in; -4: the proxy refuses or answers something else. The connection
  // stays open after a failure.
  int SocksConnect(const unsigned int& version);

  // --- Transfer -------------------------------------------------------------------------------------------------------
  // True when the whole content was taken; a non-blocking object waits for a slow peer, up to kIdleLimit without a byte
  // taken. After false, bytes_sent() tells how much was taken. Without a connection or content: false, nothing logged.
  bool Send(const YBuffer& data);
  bool Send(const YString& data);
  // Sizes the target to exactly `size` bytes and reads once: what arrived stands at the front, zeros behind it.
  // Result: the count; 0 without a connection and, on a non-blocking object, when nothing is there; kReceiveEnded when
  // the connection has ended or failed (logged unless `quiet` or a plain end).
  static constexpr int kReceiveEnded = -1000;
  int Receive(YBuffer& target, const int& size, bool quiet);
  int Receive(YString& target, const int& size, bool quiet);

  // A data channel (of FTP) does its TLS handshake with its first read or write instead of in Connect or STARTTLS: its
  // peer takes part only once a transfer has been asked for elsewhere. Set before these.
  void SetDataChannel(bool on) { dataChannel = on; }
  // The system's descriptor, which stays the property of this object; -1 without a connection. Bytes read ahead of the
  // callers (read_ahead) are not in it any more.
  int GetScoketDescriptor();  // (sic)

  // Record of the peer: its numeric address and port, and protocol and cipher suite when TLS runs (keys in
  // partner_info.h); empty without a connection. `fresh` asks the system, otherwise what was found before may do.
  YObject GetPartnerInfo(bool fresh);

  // --- Listening ------------------------------------------------------------------------------------------------------
  // Listens on a local TCP port, 0 for one that the system chooses; ends what this object did before. It binds the
  // address in the setting kDefaultAddress, otherwise all IPv4 addresses, with kListenBothFamilies all of both families.
  // A port that connections of an earlier run still use can be bound, one that is held cannot: the failure names the
  // process that holds it. With a TLS context (InitSSLSeverContext) every accepted connection speaks TLS.
  // `description` names the service in messages; it may be empty.
  bool PrepareForAccepting(const unsigned& port, bool blocking, const YString& description);
  // The next connection: a new object that the caller deletes, blocking as the listener is. Its TLS handshake comes with
  // its first transfer or with doSSLHandShake, so that a silent peer holds up nobody in between. A blocking listener
  // waits for a connection and gives null on failure. Another one gives true, and null when nobody is waiting, or false
  // on failure; wait_for_input waits for the next connection. The other form of the two is refused. After a failure the
  // listener goes on listening.
  SecureSocket* Accept();
  bool Accept(SecureSocket** connection);
  // The executable of a process that holds a local TCP port, a listening one before others; empty when nobody does or
  // the process belongs to another user.
  static YString GetProcessByPort(unsigned port);

  // --- TLS ------------------------------------------------------------------------------------------------------------
  // Installs openSSL_Lock where the TLS library still takes a locking callback; OpenSSL 3 guards itself and takes none.
  // Any number of calls, from any thread.
  static void globalSSLInit();
  // Clears the OpenSSL error queue when `threadId` is the calling thread (pthread_self, the system's thread number, or
  // 0); the queues of other threads cannot be reached.
  static void freeSSlErrorStackForThread(const unsigned long& threadId);  // (sic)

  // Makes the TLS context for client connections. `certificates` is an item list of folders with trusted certificates
  // (hashed, as OpenSSL wants them); `listFlag` only chooses the message when one of them cannot be loaded. Without
  // folders the system's trust store serves when verification is on. A context made before is replaced. When none can be
  // made, nothing connects until another call makes one: it would go out in clear.
  bool InitSSLClientContext(const YString& certificates, const bool& listFlag, const bool& ignoreVerification);
  // Makes the TLS context for accepted connections: certificate chain and key in PEM files (an empty `keyFile` means
  // that the key stands in the certificate file), the key's password (may be empty), and an item list of PEM files or
  // folders with the authorities whose client certificates are accepted. `requireClientCertificate` refuses clients
  // without one. After a failure nothing can be listened for until another call succeeds.
  bool InitSSLSeverContext(const YString& certificateFile, const YString& keyFile, const YString& keyPassword,
                           const YString& clientAuthorities, const bool& requireClientCertificate);  // (sic)
  // Further trusted authorities for the context made before: a PEM file, or a folder of hashed certificates. False
  // without a context or when nothing can be loaded from there.
  bool AddTrustStoreFile(const YString& file);
  bool AddTrustStoreDirectory(const YString& folder);

  // TLS on the connection that stands, as its client. `context` (an SSL_CTX, not owned) goes before the object's own
  // context; without either one is made from the first arguments. Bytes that arrived in clear and were read ahead are
  // thrown away. 0: TLS is up; -1: failed; -2: certificate rejected, the connection stays open.
  int STARTTLS(const YString& certificates, const bool& listFlag, const bool& ignoreVerification, void* context);
  // TLS on the connection that stands, as its server; arguments as for InitSSLSeverContext, with client certificates
  // required when `clientAuthorities` is not empty. An existing context is used as it is.
  bool STARTTLS(const YString& certificateFile, const YString& keyFile, const YString& keyPassword,
                const YString& clientAuthorities);
  // Finishes the handshake of an accepted TLS connection; a non-blocking one waits for the peer up to kIdleLimit. When it
  // fails the connection goes on as a plain one on the same descriptor; bytes that the TLS layer has taken in are gone.
  bool doSSLHandShake();
  [[nodiscard]] SSL_CTX* GetSSLContext() const { return sslContext; }

  // --- For the protocols of this library ------------------------------------------------------------------------------
  // Waits until Receive has something to say (bytes or the end), at most `limit_ms` milliseconds; false when the time
  // passed. True at once without a connection.
  bool wait_for_input(int limit_ms);
  // Reads from the system in larger pieces (setting kReadAhead) and serves Receive from them; counts and order stay what
  // they were. Off by default: only for connections whose descriptor is not handed on and which do not change to TLS
  // after this. It holds for later connections of the object too.
  void read_ahead(bool on);
  // Bytes of the last Send that the connection has taken, complete or not.
  [[nodiscard]] std::size_t bytes_sent() const;
  // Goes on with the content of a failed Send at the first byte not yet taken. Over TLS nothing else may be sent then:
  // the record that stands half-sent must be finished with the same bytes.
  bool send_rest(const YBuffer& data);
  // Whether a Send or a Receive has failed because the connection broke, by a reset for example; trying again is of no
  // use then. The peer's own end of the connection does not count.
  [[nodiscard]] bool is_broken() const;
  // Whether TLS was to protect this connection and its handshake, which a data channel leaves to the first transfer, has
  // not come about: it is still due, failed, or brought a certificate that was rejected. Not a byte has passed then.
  [[nodiscard]] bool lacks_handshake() const;
  [[nodiscard]] bool has_connection() const;  // a listening object has none
  // Called by Send and send_rest on their thread with the bytes taken so far, after each piece. It must not throw.
  void on_sent(std::function<void(std::size_t)> observer);
  // To be called before this object's own TLS begins, and for each connection anew: it will resume the newest TLS session
  // of `other`, trusts the same authorities and expects the same server name in the certificate. Servers demand that of FTP
  // data connections.
  void resume_session_of(const SecureSocket& other);
  // Lets this object's TLS connections resume sessions that earlier ones of the process to the same server, checked in the
  // same way, have left (at most kTlsSessionsKept), and leave theirs at Close. Off by default; not for contexts with
  // authorities of their own. To be called before Connect.
  void share_sessions(bool on);

 protected:
  // A connection made elsewhere (accepted); takes over `connection`.
  SecureSocket(BIO* connection, bool blocking);

  int Connect();
  void DropContext();  // for connections without TLS
  bool SendBlocking(const YBuffer& data);
  bool SendBlocking(const YString& data);
  bool SendNonBlockig(const YBuffer& data);  // (sic)
  bool SendNonBlockig(const YString& data);
  int ReceiveBlocking(YBuffer& target, const int& size, bool quiet);
  int ReceiveBlocking(YString& target, const int& size, bool quiet);
  int ReceiveNonBlocking(YBuffer& target, const int& size, bool quiet);
  int ReceiveNonBlocking(YString& target, const int& size, bool quiet);
  // Appends `count` bytes per read to the target, zeros where the read brought fewer, until one read brings exactly
  // `count`; false when the connection ends, stands still for kIdleLimit (non-blocking) or is not there.
  bool GetBinaryFromReceive(YBuffer& target, int count);

  bool PerformSOCKS5Auth(const char& method);  // what the proxy has chosen
  bool PerformSOCKS5Auth_USERPWD();

  static void LoadSSLLib();
  // The handshake on `bio`, which becomes a TLS chain that owns the session. On failure the session stays the caller's
  // and `bio` stays the plain connection.
  bool PerformSSlConnect(SSL* session);  // (sic)
  // Drives the handshake of `session` (null: the session in `bio`) for at most kTlsAttempts waits of kTlsAttemptPause.
  int tryNonBlockingSllConnect(SSL* session);  // (sic)
  static int password_cb(char* buffer, int size, int rwflag, void* user);
  static void openSSL_Lock(int mode, int number, const char* file, int line);
  YString GetZertifikatInfo(X509* certificate);  // (sic)

  BIO* bio = nullptr;             // owned, with the whole chain; null while not connected
  SSL_CTX* sslContext = nullptr;  // owned
  YString keyText;                // password of the server's key
  YString connectTarget;          // "host:port"; the proxy's through a proxy
  YString socksTargetAddress;     // dotted IPv4 address behind the proxy; empty without one
  std::uint32_t socksTargetPort = 0;
  bool dataChannel = false;  // an FTP data connection
  YString proxyUser;
  YString proxyPassword;
  bool tlsActive = false;  // a handshake ended without success and without an error, and counts as done
  bool blocking = true;
  bool ignoreCertificateVerification = true;
  std::uint32_t listenPort = 0;  // as given to the last PrepareForAccepting that succeeded
  YObject info;                  // what is known of the peer

 private:
  int SocksConnect5();
  int SocksConnect4();
  int SocksFailure(int number, int result, std::string_view cause = {});
  bool SocksSend(std::string_view message);
  bool SocksReceive(YBuffer& reply, int count);
  bool SkipBoundAddress(bool strict);
  YString PartnerAddress();      // numeric; asked for when not known yet
  SecureSocket* TakeAccepted();  // what the listener's last step has accepted; null when there is none
  [[nodiscard]] std::string SharedSessionKey(bool verify) const;
  int ConnectTls();
  // Puts the session above the connection; its handshake comes with the first transfer.
  bool DelayHandshake(SSL* session, bool verify, int failed_message, int rejected_message, int level);
  // 0, -1 for an unfinished handshake or -2 for a rejected certificate, each reported under its number.
  int JudgePeer(bool verify, int unfinished_message, int rejected_message, int level);
  bool MakeServerContext(const YString& certificate_file, const YString& key_file, const YString& key_password,
                         const YString& client_authorities, bool require_client_certificate);

  std::unique_ptr<yinet::SocketState> state_;  // never null
};
