// ISO date-times: what is taken comes back as the same instant.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "yinet/host/ydatetime.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

void there_and_back(const YDateAndTime& value) {
  if (!value.IsSet()) return;
  YDateAndTime again;
  require(again.SetIso(value.toIso()) && again == value);
  require(value.Date().IsSet());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  YDateAndTime value;
  const bool taken = value.SetIso({reinterpret_cast<const char*>(data), size});
  require(taken == value.IsSet());
  there_and_back(value);

  if (size >= sizeof(double)) {
    double number = 0;
    std::memcpy(&number, data, sizeof number);
    if (number != YDateAndTime::kNow) value.Set(number);
    there_and_back(value);
    std::int64_t milliseconds = 0;
    std::memcpy(&milliseconds, data, sizeof milliseconds);
    value.SetEpochMilliseconds(milliseconds >> 16);  // otherwise nearly all lie outside the calendar
    there_and_back(value);
  }
  return 0;
}
