// Memory of this process, as the kernel accounts for it.
#pragma once

#include <cstddef>
#include <fstream>
#include <string>
#include <string_view>

namespace yinet::test {

// A line of /proc/self/status: "VmRSS:" is resident now, "VmHWM:" the most since the start or reset_peak_memory().
inline std::size_t memory_kib(std::string_view line) {
  std::ifstream status("/proc/self/status");
  std::string word;
  std::size_t kib = 0;
  while (status >> word && word != line) {
  }
  status >> kib;
  return kib;
}

// Starts the peak anew where the kernel allows it; returns whether it did.
inline bool reset_peak_memory() {
  std::ofstream file("/proc/self/clear_refs");
  file << "5";
  file.close();
  return !file.fail();
}

}  // namespace yinet::test
