// The plugs of the host layer, replaced while other threads use them. Meant for ThreadSanitizer.

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "yinet/host/message_numbers.h"
#include "yinet/host/messages.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/yerror.h"
#include "yinet/host/ylog.h"
#include "yinet/host/yobject.h"

namespace yinet {
namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 2000;

// Runs `use` in kThreads threads, kRounds times each, while `replace` runs over and over in this one.
void race(const std::function<void()>& use, const std::function<void(int)>& replace) {
  std::atomic<int> running = kThreads;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i)
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) use();
      --running;
    });
  for (int n = 0; running > 0 || n < 100; ++n) replace(n);
  for (auto& thread : threads) thread.join();
}

TEST(ServicesUnderThreads, EveryErrorReachesOneOfTheSinks) {
  std::atomic<int> seen = 0;
  const auto sink = [&seen](const LogRecord& record) { seen += record.text.ends_with("host.") ? 1 : 0; };
  set_log_sink(sink);
  set_message_catalogue([](int) { return std::optional(std::string("$1$.")); });  // the first errors come before any change
  race([] { raise_message(6, message::kConnectFailed, "host"); },
       [&](int n) {
         set_message_language(n % 2 == 0 ? Language::german : Language::english);
         set_message_catalogue([n](int) { return std::optional(std::string(n % 3, 'x') + "$1$."); });
         set_log_sink([&sink, n, state = std::vector<int>(100, n)](const LogRecord& record) {
           if (state.back() == n) sink(record);
         });
       });
  set_log_sink(nullptr);
  set_message_catalogue(nullptr);
  set_message_language(std::nullopt);
  EXPECT_EQ(seen, kThreads * kRounds);
}

TEST(ServicesUnderThreads, SettingsAreWholeWhileTheyChange) {
  std::atomic<int> odd = 0;
  race(
      [&] {
        const std::string text = setting_text(settings::kSystemName);
        const std::int64_t number = setting_number(settings::kHttpIdlePolls);
        if (text != "YInet" && text != std::string(100, 'x')) ++odd;
        if (number != 100 && number != 7) ++odd;
      },
      [](int n) {
        const bool on = n % 2 == 0;
        set_setting("System", "Name", on ? std::optional(std::string(100, 'x')) : std::nullopt);
        set_setting("HTTP", "Abfragen", on ? std::optional<std::string>("7") : std::nullopt);
        set_settings_source(n % 3 != 0 ? SettingsSource()
                                       : [](auto, auto) { return std::optional<std::string>(); });
        load_settings_file("/dev/null");
      });
  set_settings_source(nullptr);
  EXPECT_EQ(odd, 0);
}

TEST(ServicesUnderThreads, ARecordThatNobodyChangesIsReadByAll) {
  YObject record;
  for (int i = 0; i < 8; ++i) record.StoreText(std::to_string(i), "");
  record.Delete("3");
  std::atomic<int> odd = 0;
  race([&] { odd += record.GetStringKey(2) == "2" && record.GetStringKey(6) == "7" ? 0 : 1; }, [](int) {});
  EXPECT_EQ(odd, 0);
}

}  // namespace
}  // namespace yinet
