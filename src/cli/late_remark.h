#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace yinet::cli {

// Says something, once, when what it stands around takes longer than people wait without a word.
class LateRemark {
 public:
  explicit LateRemark(std::string text);

 private:
  std::mutex guard_;
  std::condition_variable_any ended_;
  std::jthread waiting_;  // last: it ends before what it uses
};

}  // namespace yinet::cli
