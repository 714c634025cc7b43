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
constexpr bool kAtOnce = false;

// What another thread is told that asks at once; it gives back what it got.
bool other_thread_gets(YLock& lock, bool exclusive) {
  bool taken = false;
  std::thread([&] {
    taken = lock.Lock(exclusive, kAtOnce);
    if (taken) lock.Unlock();
  }).join();
  return taken;
}

TEST(Lock, SharedHoldersKeepOutOnlyExclusiveOnes) {
  YLock lock;
  lock.Unlock();
  ASSERT_TRUE(lock.Lock(kShared) && lock.Lock(kShared));
  EXPECT_TRUE(other_thread_gets(lock, kShared));
  EXPECT_FALSE(other_thread_gets(lock, kExclusive));
  lock.Unlock();
  EXPECT_FALSE(other_thread_gets(lock, kExclusive));
  lock.Unlock();
  EXPECT_TRUE(other_thread_gets(lock, kExclusive));
}

TEST(Lock, ExclusiveHolderKeepsOutEveryoneUntilTheTimeout) {
  YLock lock;
  ASSERT_TRUE(lock.Lock(kExclusive));
  EXPECT_FALSE(other_thread_gets(lock, kShared));
  EXPECT_FALSE(other_thread_gets(lock, kExclusive));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(lock.Lock(kShared, true, 30));
  EXPECT_FALSE(lock.Lock(kExclusive, true, 0)) << "not recursive";
  EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);
  lock.Unlock();
  EXPECT_TRUE(other_thread_gets(lock, kExclusive));
}

// Starts a thread that waits exclusively on a lock with a shared holder, and returns when it waits, which shows in a new
// shared caller being refused, or has stopped waiting.
std::thread exclusive_waiter(YLock& lock, int timeout_ms, std::atomic<int>& result) {
  std::thread thread([&lock, timeout_ms, &result] { result = lock.Lock(kExclusive, true, timeout_ms) ? 1 : 0; });
  while (result == -1 && lock.Lock(kShared, kAtOnce)) {
    lock.Unlock();
    std::this_thread::yield();
  }
  return thread;
}

TEST(Lock, WaitingExclusiveCallerComesBeforeNewSharedOnes) {
  YLock lock;
  ASSERT_TRUE(lock.Lock(kShared));
  std::atomic<int> result = -1;
  std::thread waiter = exclusive_waiter(lock, -1, result);
  EXPECT_FALSE(lock.Lock(kShared, true, 20));
  lock.Unlock();
  waiter.join();
  EXPECT_EQ(result, 1);
}

TEST(Lock, ExclusiveCallerThatGivesUpLetsTheSharedOnesIn) {
  YLock lock;
  ASSERT_TRUE(lock.Lock(kShared));
  std::atomic<int> result = -1;
  std::thread waiter = exclusive_waiter(lock, 200, result);
  EXPECT_TRUE(lock.Lock(kShared, true, -1)) << "would wait for ever if nobody woke it";
  waiter.join();
  EXPECT_EQ(result, 0);
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
