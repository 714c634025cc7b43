// What the test process holds, before and after: descriptors and threads.
#pragma once

#include <cstddef>
#include <set>
#include <string>

namespace yinet::test {

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
  std::ptrdiff_t threads_;
};

}  // namespace yinet::test
