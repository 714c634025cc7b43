#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace yinet {

// Owns a file descriptor and closes it, without touching errno. One thread at a time.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) noexcept : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { reset(); }

  [[nodiscard]] bool is_open() const { return number_ >= 0; }
  [[nodiscard]] int get() const { return number_; }
  [[nodiscard]] int release() { return std::exchange(number_, -1); }
  void reset(int number = -1) {
    if (number_ >= 0) {
      const int error = errno;  // of the call that makes the owner give up
      ::close(number_);
      errno = error;
    }
    number_ = number;
  }

 private:
  int number_ = -1;
};

// Whether an open file is one that a failed download may take away again: no device, no pipe.
inline bool is_plain_file(int descriptor) {
  struct stat facts {};
  return ::fstat(descriptor, &facts) == 0 && S_ISREG(facts.st_mode);
}

}  // namespace yinet
