#include "support/file_descriptor.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

namespace yinet::test {

void FileDescriptor::close() {
  if (number_ >= 0) ::close(std::exchange(number_, -1));
}

Signal::Signal() : event_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!event_.valid()) throw std::system_error(errno, std::generic_category(), "eventfd");
}

void Signal::set() {
  const std::uint64_t one = 1;
  // Can fail only when the counter is full, and then it is readable all the same.
  [[maybe_unused]] const ssize_t written = ::write(event_.get(), &one, sizeof(one));
}

bool Signal::is_set() const {
  pollfd event{event_.get(), POLLIN, 0};
  return ::poll(&event, 1, 0) == 1;
}

}  // namespace yinet::test
