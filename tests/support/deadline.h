// Time limits of the test support. Nothing here waits without one, and a limit is never a way to
// synchronise: it only decides how long a test that has already failed may take to say so.
#pragma once

#include <algorithm>
#include <chrono>
#include <thread>

namespace yinet::test {

using std::chrono::milliseconds;

// How long anything that should happen at once may take on a loaded machine under a sanitizer.
inline constexpr milliseconds kPatience{30000};

class Deadline {
 public:
  explicit Deadline(milliseconds patience = kPatience) : end_(std::chrono::steady_clock::now() + patience) {}

  [[nodiscard]] bool expired() const { return left() == milliseconds::zero(); }
  [[nodiscard]] milliseconds left() const {  // never negative; rounded up, so 0 means over
    const auto rest = end_ - std::chrono::steady_clock::now();
    return std::max(milliseconds::zero(), std::chrono::ceil<milliseconds>(rest));
  }
  [[nodiscard]] int poll_ms() const { return static_cast<int>(std::min(left(), milliseconds(3600000)).count()); }

 private:
  std::chrono::steady_clock::time_point end_;
};

// For what can't be waited for with poll(): looks again every few milliseconds until the predicate is
// true or the time is over, and returns whether it became true.
template <class Predicate>
bool eventually(Predicate predicate, milliseconds patience = kPatience) {
  const Deadline deadline(patience);
  for (milliseconds nap{1};; nap = std::min(nap * 2, milliseconds(10))) {
    if (predicate()) return true;
    if (deadline.expired()) return false;
    std::this_thread::sleep_for(nap);
  }
}

}  // namespace yinet::test
