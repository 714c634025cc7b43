#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "yinet/host/export.h"
#include "yinet/host/yobject.h"

namespace yinet {

// Why a JSON text could not be taken, with its position in bytes.
struct JsonError {
  std::string reason;  // English, UTF-8
  std::size_t position = 0;
};

// What reading a text changed on the way in.
struct JsonNotes {
  // Keys (with their path) of texts that Windows-1252 cannot hold and that went in as their UTF-8 bytes.
  std::vector<std::string> kept_as_utf8;
};

}  // namespace yinet

// Records as JSON (UTF-8), one mapping both ways, in order: strings; item lists keep their delimiter as \u0001; integers
// and bools; buffers are {"$base64": "..."}; date-times {"$date": "2026-11-21T10:00:00+01:00"}; records are objects,
// arrays of records arrays of objects. A key without a value and JSON null stand for each other. A number that is no
// 32-bit integer comes in as text, an array of texts and numbers as an item list; any other mixture in an array is an
// error. Integer-keyed entries and flags have no form in JSON. The setting kJsonDepthLimit bounds nesting.
class YINET_API YJSON {
 public:
  // UTF-8. `indent` 0 writes one line.
  static std::string Write(const YObject& record, int indent = 0);
  // Reads one JSON object into `record`, adding to what it holds. Nothing is changed on failure.
  static std::optional<yinet::JsonError> Parse(std::string_view json, YObject& record,
                                               yinet::JsonNotes* notes = nullptr);
  // Reads one JSON value of any kind and stores it under `key`.
  static std::optional<yinet::JsonError> ParseValue(std::string_view json, std::string_view key, YObject& record,
                                                    yinet::JsonNotes* notes = nullptr);
};
