// What the test process holds: descriptors, threads and memory.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <string_view>

namespace yinet::test {

// Fails the test at its end when there are other descriptors or more threads than at its start. Make it after the servers
// and peers of the test, or before all of them: their descriptors count too. Threads that are about to end are waited for.
class ResourceCheck {
 public:
  ResourceCheck();
  ResourceCheck& operator=(ResourceCheck&&) = delete;  // nor copies
  ~ResourceCheck();

 private:
  std::set<std::string> descriptors_;
  std::ptrdiff_t threads_;
};

// A line of /proc/self/status: "VmRSS:" is resident now, "VmHWM:" the most since the start or reset_peak_memory().
std::size_t memory_kib(std::string_view line);
bool reset_peak_memory();  // false where the kernel doesn't allow it

}  // namespace yinet::test
