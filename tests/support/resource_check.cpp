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

// A line like "VmHWM:     1234 kB".
std::size_t status_number(const std::string& status, const std::string& key) {
  const std::size_t at = status.find("\n" + key + ":");
  return at == std::string::npos ? 0 : std::stoul(status.substr(at + key.size() + 2));
}

std::size_t thread_count() { return status_number(read_file("/proc/self/status"), "Threads"); }

double seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

}  // namespace

Resources Resources::now() {
  const std::string status = read_file("/proc/self/status");
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  Resources resources;
  resources.descriptors = open_descriptors().size();
  resources.threads = status_number(status, "Threads");
  resources.memory_kib = status_number(status, "VmRSS");
  resources.peak_memory_kib = status_number(status, "VmHWM");
  resources.processor_seconds = seconds(usage.ru_utime) + seconds(usage.ru_stime);
  return resources;
}

bool reset_peak_memory() {
  std::ofstream file("/proc/self/clear_refs");
  file << "5";
  file.close();
  return !file.fail();
}

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

ResourceCheck::ResourceCheck() : descriptors_(open_descriptors()), threads_(thread_count()) {}

ResourceCheck::~ResourceCheck() {
  if (checked_) return;
  const std::string leftovers = take_leftovers();
  if (!leftovers.empty()) ADD_FAILURE() << leftovers;
}

std::string ResourceCheck::take_leftovers() {
  checked_ = true;
  std::string text;
  // The kernel takes a joined thread from its list a moment after the join.
  if (!eventually([&] { return thread_count() <= threads_; }, milliseconds(1000)))
    text += std::to_string(thread_count() - threads_) + " threads more than before\n";
  const std::set<std::string> now = open_descriptors();
  for (const std::string& descriptor : now)
    if (!descriptors_.contains(descriptor)) text += "left open: " + descriptor + "\n";
  for (const std::string& descriptor : descriptors_)
    if (!now.contains(descriptor)) text += "closed, though not opened here: " + descriptor + "\n";
  return text;
}

}  // namespace yinet::test
