// Ports for servers that must be told theirs. A server that can bind port 0 itself should do that.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "support/file_descriptor.h"

namespace yinet::test {

// One port, or several in a row, that were free on 127.0.0.1 and ::1 a moment ago and that no other
// ReservedPorts on this machine holds, in this process or in another one. They lie below the range
// from which the kernel takes the source ports of outgoing connections, so that no connection of a
// test running beside this one can land on them. A program outside the tests could still take one:
// servers are started with a retry (server_process.h).
// Holds one descriptor per port until destroyed. Movable.
class ReservedPorts {
 public:
  explicit ReservedPorts(std::size_t count = 1);  // throws std::runtime_error when none are left

  [[nodiscard]] std::uint16_t first() const { return first_; }
  [[nodiscard]] std::uint16_t last() const { return static_cast<std::uint16_t>(first_ + claims_.size() - 1); }
  [[nodiscard]] std::uint16_t operator[](std::size_t index) const { return static_cast<std::uint16_t>(first_ + index); }

 private:
  std::uint16_t first_ = 0;
  std::vector<FileDescriptor> claims_;
};

// A port that refuses connections: nobody listens there, and it stays reserved for the rest of the process (and costs
// it one descriptor: take it before counting descriptors).
std::uint16_t refused_port();

// Whether somebody accepts connections there. Makes one and closes it at once.
bool port_is_open(std::uint16_t port, const std::string& address = "127.0.0.1");

// Connects never come about here: a listener that accepts nobody and whose queue is full, so that
// the kernel drops every further attempt unanswered.
class FullListener {
 public:
  FullListener();  // throws std::system_error
  [[nodiscard]] std::uint16_t port() const { return port_; }

 private:
  FileDescriptor listener_;
  std::vector<FileDescriptor> waiting_;
  std::uint16_t port_ = 0;
};

}  // namespace yinet::test
