#include "yinet/host/ylock.h"

#include <chrono>

bool YLock::free_for(bool exclusive) const {
  if (exclusively_held_) return false;
  return exclusive ? shared_holders_ == 0 : exclusive_waiters_ == 0;
}

bool YLock::Lock(bool exclusive, bool wait, int timeout_ms) {
  std::unique_lock guard(mutex_);
  const auto is_free = [this, exclusive] { return free_for(exclusive); };
  if (!is_free()) {
    if (!wait) return false;
    if (exclusive) ++exclusive_waiters_;
    bool taken = true;
    if (timeout_ms < 0) {
      changed_.wait(guard, is_free);
    } else {
      taken = changed_.wait_for(guard, std::chrono::milliseconds(timeout_ms), is_free);
    }
    if (exclusive) --exclusive_waiters_;
    if (!taken) {
      // Shared callers may have been waiting for nothing but this one's turn.
      if (exclusive) changed_.notify_all();
      return false;
    }
  }
  if (exclusive) {
    exclusively_held_ = true;
  } else {
    ++shared_holders_;
  }
  return true;
}

void YLock::Unlock() {
  const std::lock_guard guard(mutex_);
  if (exclusively_held_) {
    exclusively_held_ = false;
  } else if (shared_holders_ > 0) {
    --shared_holders_;
  }
  changed_.notify_all();
}
