// A plugin of a host: it links the library, so the host loads and unloads both together.

#include <string>

#include "yinet/yinet.h"

// Fetches the URL; true when a script function ran and said that it failed.
extern "C" __attribute__((visibility("default"))) bool plugin_fetch_fails(const char* url) {
  yinet::set_log_sink([](const yinet::LogRecord&) {});
  YObject parameters;
  parameters.StoreText("pUrl", url);
  const bool failed = yinet::call_function("HTTP_GET", parameters).status == yinet::CallStatus::failed;
  yinet::set_log_sink(nullptr);
  return failed;
}
