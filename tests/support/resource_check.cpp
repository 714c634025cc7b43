#include "support/resource_check.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "support/ports.h"

namespace yinet::test {
namespace fs = std::filesystem;

namespace {

std::ptrdiff_t thread_count() {
  // ThreadSanitizer starts a thread of its own with the first one of the program.
  [[maybe_unused]] static const bool started = (std::thread([] {}).join(), true);
  return std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator());
}

// As "7 socket:[1234]", to say which one was left open.
std::set<std::string> open_descriptors() {
  std::set<std::string> result;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code gone;  // the iterator's own descriptor leads to the folder itself
    const std::string target = fs::read_symlink(entry.path(), gone);
    if (!gone && !target.ends_with("/fd")) result.insert(entry.path().filename().string() + " " + target);
  }
  return result;
}

}  // namespace

ResourceCheck::ResourceCheck() : descriptors_(open_descriptors()), threads_(thread_count()) {}

ResourceCheck::~ResourceCheck() {
  // The kernel takes a joined thread from its list a moment after the join.
  EXPECT_TRUE(eventually([&] { return thread_count() <= threads_; }, milliseconds(1000)))
      << thread_count() - threads_ << " threads more than before";
  EXPECT_EQ(open_descriptors(), descriptors_);
}

std::size_t memory_kib(std::string_view line) {
  std::ifstream status("/proc/self/status");
  std::size_t kib = 0;
  for (std::string word; status >> word;)
    if (word == line) status >> kib;
  return kib;
}

bool reset_peak_memory() {
  std::ofstream file("/proc/self/clear_refs");
  return !(file << "5" << std::flush).fail();
}

}  // namespace yinet::test
