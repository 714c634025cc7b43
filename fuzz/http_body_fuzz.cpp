// Bodies of HTTP messages: forms, JSON, XML and text. The first line is the content type, the rest the body.

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "yinet/host/settings.h"
#include "yinet/host/yobject.h"
#include "yinet/http/http_helper.h"

namespace {

constexpr int kMostFields = 50;

std::size_t file_bytes(const YObject& fields) {
  std::size_t bytes = 0;
  for (int i = 0; i < fields.GetStringKeyCount(); ++i) {
    if (const auto* buffer = fields.FindAt<YBuffer>(i)) bytes += buffer->view().size();
    if (const auto* record = fields.FindAt<YObject>(i)) bytes += file_bytes(*record);
    if (const auto* array = fields.FindAt<YObjectArray>(i))
      for (int item = 0; item < array->Count(); ++item) bytes += file_bytes(*array->ItemPtr(item));
  }
  return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  yinet::set_setting("HTTP", "FormularFelder", std::to_string(kMostFields));
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::size_t line = std::min(input.find('\n'), input.size());
  const std::string_view type = input.substr(0, line);
  const std::string_view body = input.substr(std::min(line + 1, input.size()));
  YObject fields;
  HttpHelper.ParseBody(YString(type), YBuffer(body), &fields);
  const bool is_form = type.starts_with("multipart") || type.starts_with("application/x-www");
  if (is_form && fields.GetStringKeyCount() > kMostFields) std::abort();
  if (file_bytes(fields) > body.size()) std::abort();
  return 0;
}
