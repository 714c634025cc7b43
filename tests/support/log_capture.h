#pragma once

#include <mutex>
#include <utility>
#include <vector>

#include "yinet/host/ylog.h"

// Collects everything that is logged while it lives, from all threads. One at a time; a thread of the test that still logs
// must have ended before it does.
class LogCapture {
 public:
  LogCapture() {
    yinet::set_log_sink([this](const yinet::LogRecord& record) {
      const std::lock_guard guard(mutex_);
      records_.push_back(record);
    });
  }
  ~LogCapture() { yinet::set_log_sink(nullptr); }

  [[nodiscard]] std::vector<yinet::LogRecord> records() const {
    const std::lock_guard guard(mutex_);
    return records_;
  }
  // Numbers of the events and errors, oldest first; traces are left out.
  [[nodiscard]] std::vector<int> numbers() const {
    std::vector<int> numbers;
    for (const yinet::LogRecord& record : records())
      if (record.kind <= yinet::LogKind::error) numbers.push_back(record.number);
    return numbers;
  }
  // The last record with this number; an empty one (number 0) when there is none.
  [[nodiscard]] yinet::LogRecord last(int number) const {
    yinet::LogRecord last;
    for (const yinet::LogRecord& record : records())
      if (record.number == number) last = record;
    return last;
  }
  void clear() {
    const std::lock_guard guard(mutex_);
    records_.clear();
  }

 private:
  mutable std::mutex mutex_;
  std::vector<yinet::LogRecord> records_;
};
