// Log lines: whatever a text holds, one line comes out, without a control character, as valid UTF-8 or JSON, and without
// the secret.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>

#include "yinet/host/codepage.h"
#include "yinet/host/ylog.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string secret = "geheim";
  const yinet::SecretScope scope(secret);
  yinet::LogRecord record;
  record.text.assign(reinterpret_cast<const char*>(data), size);
  record.extra = record.text;
  const std::string line = yinet::log_line(record);
  const auto is_control = [](char c) { return (c >= 0 && c < ' ') || c == 0x7F; };
  if (std::any_of(line.begin(), line.end(), is_control) || !yinet::is_valid_utf8(line)) std::abort();
  if (line.find(secret) != std::string::npos) std::abort();
  const std::string json = yinet::log_json_line(record);
  const auto is_plain = [](char c) { return c >= ' ' && c <= '~'; };
  if (!std::all_of(json.begin(), json.end(), is_plain)) std::abort();
  if (nlohmann::json::parse(json).at("text").get<std::string>().find(secret) != std::string::npos) std::abort();
  return 0;
}
