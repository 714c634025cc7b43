// What the test process holds, before and after: descriptors, threads, memory, processor time.
#pragma once

#include <cstddef>
#include <set>
#include <string>

namespace yinet::test {

struct Resources {
  std::size_t memory_kib = 0;       // resident now
  std::size_t peak_memory_kib = 0;  // most that was resident since the start or reset_peak_memory()
  double processor_seconds = 0;     // user and system, of all threads

  static Resources now();
};

// Starts the peak anew where the kernel allows it; returns whether it did.
bool reset_peak_memory();

// Fails the test at its end when there are other descriptors or more threads than at its start. Make it
// after the servers and peers of the test, or before all of them: their descriptors count too. Threads
// that are about to end are waited for.
class ResourceCheck {
 public:
  ResourceCheck();
  ResourceCheck(const ResourceCheck&) = delete;
  ResourceCheck& operator=(const ResourceCheck&) = delete;
  ~ResourceCheck();

 private:
  std::set<std::string> descriptors_;
  std::size_t threads_;
};

}  // namespace yinet::test
