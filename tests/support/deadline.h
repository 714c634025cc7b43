// Time limits of the test support. Nothing here waits without one, and a limit is never a way to synchronise: it only
// decides how long a test that has already failed may take to say so.
#pragma once

#include <algorithm>
#include <chrono>
#include <thread>

namespace yinet::test {

using std::chrono::milliseconds;

// How long anything that should happen at once may take on a loaded machine under a sanitizer.
inline constexpr milliseconds kPatience{30000};

// For what can't be waited for with poll(): looks again every few milliseconds until the predicate is true or the time is
// over, and returns whether it became true.
template <class Predicate>
bool eventually(Predicate predicate, milliseconds patience = kPatience) {
  const auto end = std::chrono::steady_clock::now() + patience;
  for (milliseconds nap{1}; !predicate(); nap = std::min(nap * 2, milliseconds(10))) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(nap);
  }
  return true;
}

}  // namespace yinet::test
