#include "support/resource_check.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <filesystem>
#include <fstream>

#include "support/deadline.h"
#include "support/temp_dir.h"

namespace yinet::test {
namespace fs = std::filesystem;

namespace {

std::size_t thread_count() {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator()));
}

// As "7 socket:[1234]", to say which one was left open.
std::set<std::string> open_descriptors() {
  std::set<std::string> result;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code gone;  // the iterator's own descriptor leads to the folder itself
    const fs::path target = fs::read_symlink(entry.path(), gone);
    if (!gone && !target.string().ends_with("/fd"))
      result.insert(entry.path().filename().string() + " " + target.string());
  }
  return result;
}

// A line like "VmHWM:     1234 kB".
std::size_t status_number(const std::string& status, const std::string& key) {
  const std::size_t at = status.find("\n" + key + ":");
  return at == std::string::npos ? 0 : std::stoul(status.substr(at + key.size() + 2));
}

double seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

}  // namespace

Resources Resources::now() {
  const std::string status = read_file("/proc/self/status");
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return {status_number(status, "VmRSS"), status_number(status, "VmHWM"),
          seconds(usage.ru_utime) + seconds(usage.ru_stime)};
}

bool reset_peak_memory() {
  std::ofstream file("/proc/self/clear_refs");
  file << "5";
  file.close();
  return !file.fail();
}

ResourceCheck::ResourceCheck() : descriptors_(open_descriptors()), threads_(thread_count()) {}

ResourceCheck::~ResourceCheck() {
  // The kernel takes a joined thread from its list a moment after the join.
  EXPECT_TRUE(eventually([&] { return thread_count() <= threads_; }, milliseconds(1000)))
      << thread_count() - threads_ << " threads more than before";
  const std::set<std::string> now = open_descriptors();
  for (const std::string& descriptor : now)
    EXPECT_TRUE(descriptors_.contains(descriptor)) << "left open: " << descriptor;
  for (const std::string& descriptor : descriptors_)
    EXPECT_TRUE(now.contains(descriptor)) << "closed, though not opened here: " << descriptor;
}

}  // namespace yinet::test
