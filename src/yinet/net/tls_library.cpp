// The process-wide side of TLS: OpenSSL's one-time set-up and what is left of its locking.
//
// OpenSSL 3 guards itself with locks of its own and asks for no callback; the exported lock table, its callback and its
// traces stay for hosts that use them.

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <pthread.h>
#include <unistd.h>

#include <mutex>
#include <string>

#include "yinet/host/message_numbers.h"
#include "yinet/host/ylog.h"
#include "yinet/net/secure_socket.h"

using namespace yinet;

namespace {

constexpr int kLockTraceChannel = 214;

void set_up_library() {
  // OpenSSL allocates with malloc, realloc and free unless the host has told it otherwise. Functions of this library must
  // not be handed to it: OpenSSL stays loaded to the end of the process, this library may be unloaded before.
  OPENSSL_init_ssl(OPENSSL_INIT_ADD_ALL_CIPHERS | OPENSSL_INIT_ADD_ALL_DIGESTS | OPENSSL_INIT_LOAD_SSL_STRINGS |
                       OPENSSL_INIT_LOAD_CRYPTO_STRINGS,
                   nullptr);
  SecureSocket::m_bSSLLibLoaded = true;
}

}  // namespace

std::atomic<bool> SecureSocket::m_bSSLLibLoaded{false};
YLock* SecureSocket::SSLLocks = new YLock[CRYPTO_num_locks()];

void SecureSocket::LoadSSLLib() {
  static std::once_flag once;
  std::call_once(once, set_up_library);
}

void SecureSocket::globalSSLInit() {
  CRYPTO_set_locking_callback(&SecureSocket::openSSL_Lock);  // empty since OpenSSL 1.1
}

void SecureSocket::openSSL_Lock(int mode, int number, const char*, int) {
  if (number < 0 || number >= CRYPTO_num_locks()) return;
  YLock& lock = SSLLocks[number];
  if ((mode & CRYPTO_LOCK) == 0) {
    YLog.DebugEvent(kLockTraceChannel, message::kUnlockRequested, std::to_string(number));
    lock.Unlock();
    YLog.DebugEvent(kLockTraceChannel, message::kUnlocked, std::to_string(number));
    return;
  }
  const bool exclusive = (mode & CRYPTO_WRITE) != 0;
  const char* const kind = exclusive ? "write" : "read";
  YLog.DebugEvent(kLockTraceChannel, message::kLockRequested, std::to_string(number), kind);
  lock.Lock(exclusive, true, -1);
  YLog.DebugEvent(kLockTraceChannel, message::kLockTaken, std::to_string(number), kind);
}

void SecureSocket::freeSSlErrorStackForThread(const unsigned long& threadId) {
  const bool own = threadId == 0 || threadId == static_cast<unsigned long>(pthread_self()) ||
                   threadId == static_cast<unsigned long>(gettid());
  if (own) ERR_clear_error();
}
