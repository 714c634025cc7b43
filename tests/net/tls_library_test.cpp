// What all connections of the process share: the set-up, the lock table and its callback, error queues per thread.

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <pthread.h>

#include <atomic>
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
  OpenSocket::openSSL_Lock(CRYPTO_LOCK | CRYPTO_WRITE, 0, "f", 1);
  OpenSocket::openSSL_Lock(CRYPTO_UNLOCK | CRYPTO_WRITE, 0, "f", 1);
  OpenSocket::openSSL_Lock(CRYPTO_LOCK | CRYPTO_READ, 0, "f", 1);
  OpenSocket::openSSL_Lock(CRYPTO_LOCK | CRYPTO_READ, 0, "f", 1);  // readers share
  OpenSocket::openSSL_Lock(CRYPTO_UNLOCK | CRYPTO_READ, 0, "f", 1);
  OpenSocket::openSSL_Lock(CRYPTO_UNLOCK | CRYPTO_READ, 0, "f", 1);
  OpenSocket::openSSL_Lock(CRYPTO_LOCK, CRYPTO_num_locks(), "f", 1);  // no such lock
  OpenSocket::openSSL_Lock(CRYPTO_LOCK, -1, "f", 1);
  set_debug_traces(false);
  std::vector<int> numbers;
  for (const LogRecord& record : log.records()) {
    EXPECT_EQ(record.channel, 214);
    numbers.push_back(record.number);
  }
  EXPECT_THAT(numbers,
              testing::ElementsAre(21432, 21469, 21433, 21470, 21432, 21469, 21432, 21469, 21433, 21470, 21433, 21470));
  EXPECT_THAT(log.records()[0].text, testing::HasSubstr("write"));
  EXPECT_THAT(log.records()[4].text, testing::HasSubstr("read"));
  EXPECT_TRUE(SecureSocket::SSLLocks[0].Lock(true, false)) << "all were given back";
  SecureSocket::SSLLocks[0].Unlock();
}

TEST_F(TlsLibrary, AnErrorQueueIsClearedForItsOwnThreadOnly) {
  const auto leave_error = [] { ERR_raise(ERR_LIB_USER, ERR_R_INTERNAL_ERROR); };
  leave_error();
  std::thread([] { SecureSocket::freeSSlErrorStackForThread(static_cast<unsigned long>(pthread_self())); }).join();
  SecureSocket::freeSSlErrorStackForThread(12345678901UL);
  EXPECT_NE(ERR_peek_error(), 0UL);
  SecureSocket::freeSSlErrorStackForThread(static_cast<unsigned long>(pthread_self()));
  EXPECT_EQ(ERR_peek_error(), 0UL);
}

TEST_F(TlsLibrary, SigpipeIsTakenInsideTheGuardAndAnEarlierMaskStays) {
  sigset_t pipe, mask;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  {
    const SigpipeGuard outer;
    {
      const SigpipeGuard inner;
      pthread_kill(pthread_self(), SIGPIPE);
    }
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGPIPE), 1) << "the inner guard must not unblock it";
  }  // would end the process here
  pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  EXPECT_EQ(sigismember(&mask, SIGPIPE), 0);
}

TEST_F(TlsLibrary, ThreadsWithTheirOwnSocketsDoNotDisturbEachOther) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 8;
  auto peer = ScriptedPeer::for_every_connection(Script().start_tls().read_until("?").send("!").read_to_end());
  const YString folder = Certificates::shared().ca_folder().string();
  std::atomic<int> whole{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        SecureSocket socket;
        SecureSocket::globalSSLInit();
        if (!socket.InitSSLClientContext(folder, false, false) || connect_to(socket, peer) != 0) continue;
        OpenSocket::openSSL_Lock(CRYPTO_LOCK | (round % 2 == 0 ? CRYPTO_WRITE : CRYPTO_READ), 0, "", 0);
        OpenSocket::openSSL_Lock(CRYPTO_UNLOCK, 0, "", 0);
        if (socket.Send(YString("?")) && receive_exactly(socket, 1) == "!") ++whole;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(whole, kThreads * kRounds);
  EXPECT_TRUE(SecureSocket::m_bSSLLibLoaded);
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

}  // namespace
}  // namespace yinet::test
