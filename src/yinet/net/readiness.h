#pragma once

// Waiting on a socket: bounded, without burning a processor, in one place.

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace yinet {

// A point in time after which waiting ends. Monotonic.
class Deadline {
 public:
  // Limits beyond a year count as a year: settings may hold any number, and the clock must not overflow.
  explicit Deadline(std::chrono::milliseconds limit)
      : end_(std::chrono::steady_clock::now() + std::min<std::chrono::milliseconds>(limit, std::chrono::years(1))) {}

  [[nodiscard]] std::chrono::milliseconds left() const {  // never negative; rounded up, so 0 means passed
    const auto rest = std::chrono::ceil<std::chrono::milliseconds>(end_ - std::chrono::steady_clock::now());
    return rest > rest.zero() ? rest : rest.zero();
  }
  [[nodiscard]] bool passed() const { return left() == std::chrono::milliseconds::zero(); }

 private:
  std::chrono::steady_clock::time_point end_;
};

// A number of pauses in a row, at most a year.
inline std::chrono::milliseconds pauses(std::int64_t count, std::chrono::milliseconds pause) {
  constexpr std::chrono::milliseconds kLongest = std::chrono::years(1);
  return pause.count() > 0 && count > kLongest / pause ? kLongest : pause * count;
}

enum class Readiness {
  ready,      // also when the connection has ended or failed: the next operation tells
  timed_out,  // the limit passed in full
  failed      // no descriptor to wait for
};

// Waits for `events` (POLLIN, POLLOUT or both) on a descriptor, at most `limit`. Signals do not shorten the wait.
[[nodiscard]] Readiness wait_ready(int descriptor, short events, std::chrono::milliseconds limit);
// The same without a limit.
[[nodiscard]] Readiness wait_ready(int descriptor, short events);
// Whether it is ready at this moment.
[[nodiscard]] bool is_ready(int descriptor, short events);

}  // namespace yinet
