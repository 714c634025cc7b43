#include "yinet/host/ylock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

constexpr bool kShared = false;
constexpr bool kExclusive = true;

// What another thread is told that asks at once; it gives back what it got.
bool other_thread_gets(YLock& lock, bool exclusive) {
  bool taken = false;
  std::jthread([&] {
    taken = lock.Lock(exclusive, false);
    if (taken) lock.Unlock();
  }).join();
  return taken;
}

TEST(Lock, SharedHoldersKeepOutExclusiveOnesAndThoseEveryone) {
  YLock lock;
  lock.Unlock();
  ASSERT_TRUE(lock.Lock(kShared) && lock.Lock(kShared));
  EXPECT_TRUE(other_thread_gets(lock, kShared));
  lock.Unlock();
  EXPECT_FALSE(other_thread_gets(lock, kExclusive));
  lock.Unlock();
  ASSERT_TRUE(lock.Lock(kExclusive));
  EXPECT_FALSE(other_thread_gets(lock, kShared));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(lock.Lock(kShared, true, 30));
  EXPECT_FALSE(lock.Lock(kExclusive, true, 0)) << "not recursive";
  EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);
  lock.Unlock();
  EXPECT_TRUE(other_thread_gets(lock, kExclusive));
}

TEST(Lock, AWaitingExclusiveCallerComesBeforeNewSharedOnesUntilItGivesUp) {
  for (const int timeout_ms : {-1, 200}) {
    YLock lock;
    ASSERT_TRUE(lock.Lock(kShared));
    std::atomic<int> result = -1;
    std::jthread waiter([&] { result = lock.Lock(kExclusive, true, timeout_ms) ? 1 : 0; });
    while (result == -1 && lock.Lock(kShared, false)) {  // until it waits
      lock.Unlock();
      std::this_thread::yield();
    }
    if (timeout_ms == -1) {
      EXPECT_FALSE(lock.Lock(kShared, true, 20));
      lock.Unlock();
    } else {
      EXPECT_TRUE(lock.Lock(kShared, true, -1)) << "would wait for ever if nobody woke it";
    }
    waiter.join();
    EXPECT_EQ(result, timeout_ms == -1 ? 1 : 0);
  }
}

TEST(Lock, GuardsWritersAndReadersOnManyThreads) {
  constexpr int kRounds = 5'000;
  YLock lock;
  long first = 0;  // not atomic: the lock alone keeps the two equal
  long second = 0;
  std::atomic<int> torn = 0;
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&, exclusive = i % 2 == 0] {
      for (int round = 0; round < kRounds; ++round) {
        lock.Lock(exclusive);
        if (first != second) ++torn;
        if (exclusive) ++first, ++second;
        lock.Unlock();
      }
    });
  }
  threads.clear();
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(first, 2 * kRounds);
}

}  // namespace
