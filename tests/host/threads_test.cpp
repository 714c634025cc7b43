// The lock, and the plugs of the host layer replaced while other threads use them. Meant for ThreadSanitizer.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "yinet/yinet.h"

namespace yinet {
namespace {

constexpr bool kShared = false, kExclusive = true;
constexpr int kThreads = 4, kRounds = 2000;

TEST(Lock, SharedHoldersKeepOutExclusiveOnesAndThoseEveryone) {
  YLock lock;
  lock.Unlock();
  ASSERT_TRUE(lock.Lock(kShared) && lock.Lock(kShared, false));
  lock.Unlock();
  EXPECT_FALSE(lock.Lock(kExclusive, false));
  lock.Unlock();
  EXPECT_TRUE(lock.Lock(kExclusive, false) && !lock.Lock(kExclusive, false)) << "not recursive";
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(lock.Lock(kShared, true, 30));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
}

TEST(Lock, AWaitingExclusiveCallerComesBeforeNewSharedOnesUntilItGivesUp) {
  for (const bool gives_up : {false, true}) {
    YLock lock;
    ASSERT_TRUE(lock.Lock(kShared));
    std::atomic<int> taken = -1;
    std::jthread waiter([&] { taken = lock.Lock(kExclusive, true, gives_up ? 200 : -1); });
    while (taken == -1 && lock.Lock(kShared, false)) lock.Unlock();  // until it waits
    EXPECT_EQ(lock.Lock(kShared, true, gives_up ? -1 : 20), gives_up) << "would wait for ever if nobody woke it";
    lock.Unlock();
    waiter.join();
    EXPECT_EQ(taken, !gives_up);
  }
}

TEST(ServicesUnderThreads, EveryErrorReachesASinkAndSettingsAreWholeWhileAllChangeButARecord) {
  YObject record;
  for (int i = 0; i < 8; ++i) record.StoreText(std::to_string(i), "");
  record.Delete("3");
  std::atomic<int> seen = 0, odd = 0;
  const auto replace = [&seen](int n) {
    set_message_language(n % 2 == 0 ? Language::german : Language::english);
    set_message_catalogue([n](int) -> std::optional<std::string> {
      if (n % 4 == 3) throw std::runtime_error("then the built-in text is taken");
      return "$1$ failed.";
    });
    set_log_sink([&seen, n, state = std::vector<int>(100, n)](const LogRecord& record) {
      seen += state.back() == n && record.text.find("host") != std::string::npos ? 1 : 0;
    });
    set_setting("System", "Name", n % 2 == 0 ? std::optional(std::string(100, 'x')) : std::nullopt);
    set_settings_source(n % 3 != 0 ? SettingsSource() : [](auto, auto) { return std::optional<std::string>(); });
    load_settings_file("/dev/null");
  };
  replace(0);  // the first errors come before any change
  std::jthread replacer([&](const std::stop_token& stop) {
    for (int n = 1; !stop.stop_requested(); ++n) replace(n);
  });
  std::vector<std::jthread> threads;
  for (int i = 0; i < kThreads; ++i)
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        raise_message(6, message::kConnectFailed, "host");
        const std::string name = setting_text(settings::kSystemName);
        if (name != "YInet" && name != std::string(100, 'x')) ++odd;
        if (record.GetStringKey(2) != "2" || record.GetStringKey(6) != "7") ++odd;
      }
    });
  threads.clear();
  replacer = {};
  set_log_sink(nullptr);
  EXPECT_TRUE(seen == kThreads * kRounds && odd == 0) << seen << " " << odd;
}

}  // namespace
}  // namespace yinet
