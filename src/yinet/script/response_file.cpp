#include "yinet/script/response_file.h"

#include <cerrno>
#include <chrono>
#include <system_error>

#include "yinet/host/message_numbers.h"
#include "yinet/host/text.h"
#include "yinet/host/yfile.h"
#include "yinet/host/ylog.h"

namespace yinet {
namespace {

constexpr unsigned kNumbers = 1000000;

void report(const YFile& file, int error) {
  YLog.Event(message::kErrorLevel, message::kHttpResponseFileFailed, file.GetName(),
             std::generic_category().message(error));
}

// Not open when every number is taken or the folder takes no file at all.
YFile create_response_file(unsigned start) {
  YFile file;
  for (unsigned tried = 1; tried <= kNumbers; ++tried) {
    file.SetName(YString(formatted("TEMP:$1$.tmp", std::to_string((start + tried) % kNumbers))));
    if (file.Open(kCreateNew, kAccessRead | kAccessWrite, kShareRead | kShareWrite, kAttributeNormal)) break;
    if (file.LastError() != EEXIST) break;
  }
  return file;
}

}  // namespace

std::optional<YString> write_response_file(std::string_view body, unsigned start) {
  YFile file = create_response_file(start % kNumbers);
  if (!file.IsOpen()) {
    report(file, file.LastError());
    return std::nullopt;
  }
  // Closing may be where a full disk shows.
  const bool written = file.Write(body);
  const int write_error = file.LastError();
  const bool closed = file.Close();
  if (written && closed) return file.GetName();

  report(file, written ? file.LastError() : write_error);
  YFile::Delete(file.GetName());
  return std::nullopt;
}

std::optional<YString> write_response_file(std::string_view body) {
  const auto since_start = std::chrono::steady_clock::now().time_since_epoch();
  const auto ticks = std::chrono::duration_cast<std::chrono::milliseconds>(since_start).count();
  return write_response_file(body, static_cast<unsigned>(ticks % kNumbers));
}

}  // namespace yinet
