#include "late_remark.h"

#include <chrono>
#include <stop_token>
#include <utility>

#include "terminal.h"

namespace yinet::cli {
namespace {

constexpr std::chrono::seconds kPatience{5};

}  // namespace

LateRemark::LateRemark(std::string text)
    : waiting_([this, text = std::move(text)](const std::stop_token& end) {
        std::unique_lock lock(guard_);
        ended_.wait_for(lock, end, kPatience, [] { return false; });
        if (!end.stop_requested()) remark(text);
      }) {}

}  // namespace yinet::cli
