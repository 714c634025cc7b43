// What all connections of the process share: the set-up, the lock table and its callback, error queues per thread.

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <pthread.h>

#include <csignal>
#include <thread>

#include "net/socket_test_kit.h"
#include "yinet/host/ylog.h"
#include "yinet/net/sigpipe_guard.h"

namespace yinet::test {
namespace {

class TlsLibrary : public SocketTest {};

TEST_F(TlsLibrary, LocksAreTracedOnTheirChannel) {
  SecureSocket::globalSSLInit();
  set_debug_traces(true);
  const int kRead = CRYPTO_LOCK | CRYPTO_READ, kWrite = CRYPTO_LOCK | CRYPTO_WRITE;
  for (const int mode : {kWrite, CRYPTO_UNLOCK, kRead, kRead, CRYPTO_UNLOCK, CRYPTO_UNLOCK})  // readers share
    OpenSocket::openSSL_Lock(mode, 0, "f", 1);
  for (const int nowhere : {-1, CRYPTO_num_locks()}) OpenSocket::openSSL_Lock(CRYPTO_LOCK, nowhere, "f", 1);
  set_debug_traces(false);
  std::string trace;
  for (const LogRecord& record : log.records()) trace += std::to_string(record.number % 100) + " ";
  EXPECT_EQ(trace, "32 69 33 70 32 69 32 69 33 70 33 70 ");
  EXPECT_EQ(log.records()[0].channel, 214);
  EXPECT_THAT(log.records()[0].text, testing::HasSubstr("write"));
  EXPECT_THAT(log.records()[4].text, testing::HasSubstr("read"));
  EXPECT_TRUE(SecureSocket::SSLLocks[0].Lock(true, false)) << "all were given back";
  SecureSocket::SSLLocks[0].Unlock();
}

TEST_F(TlsLibrary, AnErrorQueueIsClearedForItsOwnThreadOnly) {
  ERR_raise(ERR_LIB_USER, ERR_R_INTERNAL_ERROR);
  std::thread([] { SecureSocket::freeSSlErrorStackForThread(static_cast<unsigned long>(pthread_self())); }).join();
  SecureSocket::freeSSlErrorStackForThread(12345678901UL);
  EXPECT_NE(ERR_peek_error(), 0UL);
  SecureSocket::freeSSlErrorStackForThread(static_cast<unsigned long>(pthread_self()));
  EXPECT_EQ(ERR_peek_error(), 0UL);
}

TEST_F(TlsLibrary, SigpipeIsTakenInsideTheGuardAndAnEarlierMaskStays) {
  const auto blocked = [] {
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return sigismember(&mask, SIGPIPE) == 1;
  };
  {
    const SigpipeGuard outer;
    {
      const SigpipeGuard inner;
      pthread_kill(pthread_self(), SIGPIPE);
    }
    EXPECT_TRUE(blocked()) << "the inner guard must not unblock it";
  }  // would end the process here
  EXPECT_FALSE(blocked());
}

}  // namespace
}  // namespace yinet::test
