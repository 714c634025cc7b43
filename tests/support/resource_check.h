// What the test process holds, before and after: descriptors, threads, memory, processor time.
#pragma once

#include <cstddef>
#include <set>
#include <string>

namespace yinet::test {

struct Resources {
  std::size_t descriptors = 0;
  std::size_t threads = 0;
  std::size_t memory_kib = 0;       // resident now
  std::size_t peak_memory_kib = 0;  // most that was resident since the start or reset_peak_memory()
  double processor_seconds = 0;     // user and system, of all threads

  static Resources now();
};

// Starts the peak anew where the kernel allows it; returns whether it did.
bool reset_peak_memory();

// Open descriptors as "7 socket:[1234]", to say which one was left open.
std::set<std::string> open_descriptors();

// Fails the test at its end when there are other descriptors or more threads than at its start. Make it
// after the servers and peers of the test, or before all of them: their descriptors count too. Threads
// that are about to end are waited for.
class ResourceCheck {
 public:
  ResourceCheck();
  ResourceCheck(const ResourceCheck&) = delete;
  ResourceCheck& operator=(const ResourceCheck&) = delete;
  ~ResourceCheck();

  // Checks now, and not again at the end; empty when nothing was left behind.
  [[nodiscard]] std::string take_leftovers();

 private:
  std::set<std::string> descriptors_;
  std::size_t threads_;
  bool checked_ = false;
};

}  // namespace yinet::test
