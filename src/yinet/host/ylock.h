#pragma once

#include <condition_variable>
#include <mutex>

#include "yinet/host/export.h"

// Lock with shared and exclusive holders. Not recursive. Waiting exclusive callers come before new shared ones.
class YINET_API YLock {
 public:
  YLock() = default;
  YLock(const YLock&) = delete;
  YLock& operator=(const YLock&) = delete;

  // True when taken. Without `wait` the answer comes at once; with it the call waits up to `timeout_ms` milliseconds,
  // without limit for a negative number.
  bool Lock(bool exclusive, bool wait = true, int timeout_ms = -1);
  // Gives back what was taken, exclusive or shared. Without a holder nothing happens.
  void Unlock();

 private:
  bool free_for(bool exclusive) const;

  std::mutex mutex_;
  std::condition_variable changed_;
  int shared_holders_ = 0;
  int exclusive_waiters_ = 0;
  bool exclusively_held_ = false;
};
