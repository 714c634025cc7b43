#pragma once

#include <memory>
#include <mutex>
#include <utility>

namespace yinet {

// A callback that is replaced while other threads use it: get() hands out a share of the one found, which stays alive
// until its last user lets go, whatever set() does meanwhile. Safe from several threads.
template <typename Function>
class SharedSlot {
 public:
  // Null when nothing is plugged.
  [[nodiscard]] std::shared_ptr<const Function> get() const {
    const std::lock_guard guard(mutex_);
    return function_;
  }
  // An empty function unplugs.
  void set(Function function) {
    auto next = function ? std::make_shared<const Function>(std::move(function)) : nullptr;
    {
      const std::lock_guard guard(mutex_);
      function_.swap(next);
    }
    // The old one is released here, outside the lock: its destructor is the host's code.
  }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<const Function> function_;
};

}  // namespace yinet
