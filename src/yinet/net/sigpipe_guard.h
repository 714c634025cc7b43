#pragma once

// Keeps SIGPIPE away from the host's process while a library writes to a connection that the peer may have reset.
//
// Blocks the signal in the calling thread for the life of the object. One that became pending meanwhile is taken before
// the mask is restored; one that was pending before stays. The process's signal actions are not touched. Nests. To be
// destroyed on the thread that made it.

#include <csignal>

namespace yinet {

class SigpipeGuard {
 public:
  SigpipeGuard();
  SigpipeGuard(const SigpipeGuard&) = delete;
  SigpipeGuard& operator=(const SigpipeGuard&) = delete;
  ~SigpipeGuard();

 private:
  bool active_ = false;  // false when it was blocked already: whoever blocked it takes care of it
  sigset_t old_mask_{};
};

}  // namespace yinet
