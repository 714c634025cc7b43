#include "yinet/net/sigpipe_guard.h"

#include <pthread.h>

#include <cerrno>
#include <ctime>

namespace yinet {
namespace {

sigset_t only_sigpipe() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGPIPE);
  return set;
}

}  // namespace

SigpipeGuard::SigpipeGuard() {
  const sigset_t pipe = only_sigpipe();
  if (pthread_sigmask(SIG_BLOCK, &pipe, &old_mask_) != 0) return;
  active_ = sigismember(&old_mask_, SIGPIPE) == 0;  // not blocked before, so none can have been pending either
}

SigpipeGuard::~SigpipeGuard() {
  if (!active_) return;
  const int saved_errno = errno;
  const sigset_t pipe = only_sigpipe();
  constexpr timespec kAtOnce{0, 0};
  while (sigtimedwait(&pipe, nullptr, &kAtOnce) < 0 && errno == EINTR) {
  }
  pthread_sigmask(SIG_SETMASK, &old_mask_, nullptr);
  errno = saved_errno;
}

}  // namespace yinet
