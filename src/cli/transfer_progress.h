#pragma once

// Shows how far a transfer is: a bar on a terminal while it runs, and its throughput at the end. Writes to standard error.

#include <chrono>
#include <cstdint>
#include <string>

namespace yinet::cli {

class TransferProgress {
 public:
  explicit TransferProgress(bool quiet);
  void show(std::int64_t done, std::int64_t total);  // cheap when there is nothing to draw
  void finish(bool succeeded);                       // takes the bar away; tells the throughput of a success

  // Shows `work`, in which `client` moves bytes, from its begin to its end; gives what it gives, true for success.
  template <typename Client, typename Work>
  bool follow(Client& client, Work work) {
    client.on_progress([this](std::int64_t done, std::int64_t total) { show(done, total); });
    const bool succeeded = work();
    client.on_progress(nullptr);
    finish(succeeded);
    return succeeded;
  }

  [[nodiscard]] std::int64_t done() const { return done_; }
  [[nodiscard]] std::int64_t total() const { return total_; }  // -1 when that is not known

 private:
  void draw() const;

  using Clock = std::chrono::steady_clock;
  bool quiet_;
  bool terminal_;
  bool drawn_ = false;
  std::int64_t done_ = 0;
  std::int64_t total_ = -1;
  Clock::time_point start_ = Clock::now();
  Clock::time_point next_ = start_;
};

// "512 bytes", "1.5 MB": decimal units.
std::string readable_size(double bytes);

}  // namespace yinet::cli
