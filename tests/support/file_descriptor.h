// An open descriptor and its owner. Movable, not shared between threads.
#pragma once

#include <utility>

namespace yinet::test {

class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int number) : number_(number) {}
  FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
      close();
      number_ = std::exchange(other.number_, -1);
    }
    return *this;
  }
  ~FileDescriptor() { close(); }

  [[nodiscard]] int get() const { return number_; }
  [[nodiscard]] bool valid() const { return number_ >= 0; }
  void close();

 private:
  int number_ = -1;
};

// Poll-able yes/no that starts as "no" and can be turned to "yes" once, from any thread.
class Signal {
 public:
  Signal();  // throws std::system_error without descriptors
  void set();
  [[nodiscard]] bool is_set() const;
  [[nodiscard]] int descriptor() const { return event_.get(); }  // readable (POLLIN) from set() on

 private:
  FileDescriptor event_;
};

}  // namespace yinet::test
