#include "transfer_progress.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "terminal.h"

namespace yinet::cli {
namespace {

constexpr std::chrono::milliseconds kRedraw{100};
constexpr int kBarWidth = 30;

}  // namespace

std::string readable_size(double bytes) {
  constexpr std::array<const char*, 5> kUnits = {"bytes", "kB", "MB", "GB", "TB"};
  std::size_t unit = 0;
  for (; bytes >= 1000 && unit + 1 < kUnits.size(); ++unit) bytes /= 1000;
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), unit == 0 ? "%.0f %s" : "%.1f %s", bytes, kUnits[unit]);
  return text.data();
}

TransferProgress::TransferProgress(bool quiet) : quiet_(quiet), terminal_(isatty(STDERR_FILENO) != 0) {}

void TransferProgress::show(std::int64_t done, std::int64_t total) {
  done_ = done;
  total_ = total;
  if (quiet_ || !terminal_) return;
  const auto now = Clock::now();
  if (now < next_) return;
  next_ = now + kRedraw;
  draw();
  drawn_ = true;
}

void TransferProgress::draw() const {
  const double share = total_ > 0 ? std::min(1.0, static_cast<double>(done_) / static_cast<double>(total_)) : 0;
  const int filled = static_cast<int>(share * kBarWidth);
  std::fprintf(stderr, "\r[%s%s] %3d %%  %s\033[K", std::string(static_cast<std::size_t>(filled), '#').c_str(),
               std::string(static_cast<std::size_t>(kBarWidth - filled), ' ').c_str(), static_cast<int>(share * 100),
               readable_size(static_cast<double>(done_)).c_str());
}

void TransferProgress::finish(bool succeeded) {
  if (drawn_) std::fputs("\r\033[K", stderr);
  if (quiet_ || !succeeded) return;
  const double seconds = std::max(1e-6, std::chrono::duration<double>(Clock::now() - start_).count());
  std::array<char, 32> time{};
  std::snprintf(time.data(), time.size(), "%.2f s", seconds);
  remark(readable_size(static_cast<double>(done_)) + " in " + time.data() + ", " +
         readable_size(static_cast<double>(done_) / seconds) + "/s");
}

}  // namespace yinet::cli
