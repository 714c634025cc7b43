#include "side_by_side.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace yinet::bench {
namespace {

struct Run {
  double seconds = 0;
  double processor_seconds = 0;
  double peak_mib = 0;
};

rusage usage_of(int who) {
  rusage usage{};
  getrusage(who, &usage);
  return usage;
}

double processor_seconds_of(int who) {
  const rusage usage = usage_of(who);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double processor_seconds_so_far() { return processor_seconds_of(RUSAGE_SELF) + processor_seconds_of(RUSAGE_CHILDREN); }

Run measure(std::string_view what, const Contender& contender) {
  int ends[2];
  if (pipe(ends) != 0) give_up("pipe");
  std::fflush(stdout);
  const pid_t pid = fork();
  if (pid == 0) {
    Stopwatch watch;
    if (!contender.work(watch)) _exit(1);
    const Run run{
        watch.seconds(), watch.processor_seconds(),
        static_cast<double>(std::max(usage_of(RUSAGE_SELF).ru_maxrss, usage_of(RUSAGE_CHILDREN).ru_maxrss)) / 1024};
    _exit(write(ends[1], &run, sizeof run) == sizeof run ? 0 : 1);
  }
  close(ends[1]);
  Run run;
  if (read(ends[0], &run, sizeof run) != sizeof run) {
    std::printf("%.*s: %s did not do its work\n", static_cast<int>(what.size()), what.data(), contender.name.c_str());
    std::exit(1);
  }
  close(ends[0]);
  waitpid(pid, nullptr, 0);
  return run;
}

std::vector<double> sorted(const std::vector<Run>& runs, double Run::*value) {
  std::vector<double> values;
  for (const Run& run : runs) values.push_back(run.*value);
  std::sort(values.begin(), values.end());
  return values;
}

double median(const std::vector<Run>& runs, double Run::*value) { return sorted(runs, value)[runs.size() / 2]; }

}  // namespace

void give_up(std::string_view what) {
  std::perror(std::string(what).c_str());
  std::exit(1);
}

void Stopwatch::restart() {
  processor_before_ = processor_seconds_so_far();
  start_ = std::chrono::steady_clock::now();
}

double Stopwatch::seconds() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

double Stopwatch::processor_seconds() const { return processor_seconds_so_far() - processor_before_; }

void print_machine(std::string_view libraries) {
  std::string line;
  std::ifstream processors("/proc/cpuinfo");
  while (std::getline(processors, line) && !line.starts_with("model name")) {
  }
  std::printf("%s, %ld processors, g++ %s, %.*s\n", line.c_str(), sysconf(_SC_NPROCESSORS_ONLN), __VERSION__,
              static_cast<int>(libraries.size()), libraries.data());
#ifndef __OPTIMIZE__
  std::printf("WARNING: built without optimisation, the numbers mean nothing\n");
#endif
}

void print_table_head(std::string_view reference) {
  std::printf(
      "| What | Client | s | fastest-slowest | CPU s | peak MiB | time, %.*s = 1 | CPU "
      "|\n|---|---|---|---|---|---|---|---|\n",
      static_cast<int>(reference.size()), reference.data());
}

void compare(std::string_view what, const std::vector<Contender>& contenders, int runs) {
  std::vector<std::vector<Run>> results(contenders.size());
  for (int i = 0; i < runs; ++i)
    for (std::size_t c = 0; c < contenders.size(); ++c) results[c].push_back(measure(what, contenders[c]));
  const double reference_seconds = median(results.back(), &Run::seconds);
  const double reference_processor = median(results.back(), &Run::processor_seconds);
  for (std::size_t c = 0; c < contenders.size(); ++c) {
    const auto seconds = sorted(results[c], &Run::seconds);
    const double middle = median(results[c], &Run::seconds);
    const double processor = median(results[c], &Run::processor_seconds);
    std::printf("| %.*s | %s | %.3f | %.3f-%.3f | %.3f | %.0f | %.2f | %.2f |\n", static_cast<int>(what.size()),
                what.data(), contenders[c].name.c_str(), middle, seconds.front(), seconds.back(), processor,
                median(results[c], &Run::peak_mib), middle / reference_seconds, processor / reference_processor);
  }
  std::fflush(stdout);
}

}  // namespace yinet::bench
