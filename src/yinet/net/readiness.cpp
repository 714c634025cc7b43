#include "yinet/net/readiness.h"

#include <algorithm>
#include <cerrno>

namespace yinet {
namespace {

constexpr std::chrono::milliseconds kLongestPoll{60 * 60 * 1000};  // poll() takes an int; longer waits go round again

Readiness poll_once(int descriptor, short events, int wait_ms, bool& interrupted) {
  pollfd entry{descriptor, events, 0};
  const int ready = poll(&entry, 1, wait_ms);
  interrupted = ready < 0 && errno == EINTR;
  if (ready < 0) return Readiness::failed;
  if (ready == 0) return Readiness::timed_out;
  return (entry.revents & POLLNVAL) != 0 ? Readiness::failed : Readiness::ready;
}

}  // namespace

Readiness wait_ready(int descriptor, short events, std::chrono::milliseconds limit) {
  if (descriptor < 0) return Readiness::failed;  // poll() would ignore it and sleep
  const Deadline deadline(limit);
  for (;;) {
    bool interrupted = false;
    const auto wait = std::min(deadline.left(), kLongestPoll);
    const Readiness result = poll_once(descriptor, events, static_cast<int>(wait.count()), interrupted);
    if (interrupted || (result == Readiness::timed_out && !deadline.passed())) continue;
    return result;
  }
}

Readiness wait_ready(int descriptor, short events) {
  if (descriptor < 0) return Readiness::failed;
  for (;;) {
    bool interrupted = false;
    const Readiness result = poll_once(descriptor, events, -1, interrupted);
    if (!interrupted) return result;
  }
}

bool is_ready(int descriptor, short events) {
  bool interrupted = false;
  return descriptor >= 0 && poll_once(descriptor, events, 0, interrupted) == Readiness::ready;
}

}  // namespace yinet
