#pragma once

// Whole transfers of several clients, timed side by side. Each run is a process of its own, so that its processor seconds
// and its peak memory are its own, programs it starts included. Results are lines of a Markdown table.

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace yinet::bench {

[[noreturn]] void give_up(std::string_view what);  // with errno's text

// Wall time and processor time since it was made or started anew.
class Stopwatch {
 public:
  Stopwatch() { restart(); }
  void restart();  // what came before was preparation and is not what is compared
  [[nodiscard]] double seconds() const;
  [[nodiscard]] double processor_seconds() const;  // of this process and of the programs it has waited for

 private:
  std::chrono::steady_clock::time_point start_;
  double processor_before_ = 0;
};

// Does the work once; false when its result is not what it should be, which ends the program.
using Work = std::function<bool(Stopwatch&)>;

struct Contender {
  std::string name;
  Work work;
};

void print_machine(std::string_view libraries);
void print_table_head(std::string_view reference);
// One line per contender: medians of `runs` runs. The last contender is what the others are compared with. Runs alternate,
// so that a busy moment hits all of them.
void compare(std::string_view what, const std::vector<Contender>& contenders, int runs);

}  // namespace yinet::bench
