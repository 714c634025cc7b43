#include "record_input.h"

#include "terminal.h"
#include "yinet/host/yjson.h"
#include "yinet/script/call_function.h"

namespace yinet::cli {

Problem take_json(std::string_view json, YObject& record, const std::string& key) {
  JsonNotes notes;
  const auto error = key.empty() ? YJSON::Parse(json, record, &notes) : YJSON::ParseValue(json, key, record, &notes);
  if (error) return error->reason + " at byte " + std::to_string(error->position);
  for (const std::string& path : notes.kept_as_utf8) remark(kept_as_utf8_text(path));
  return std::nullopt;
}

Problem take_json_file(const std::string& name, YObject& record) {
  std::string problem;
  const auto json = read_file(name, problem);
  if (!json) return problem;
  if (const auto wrong = take_json(*json, record, {})) return file_title(name) + ": " + *wrong;
  return std::nullopt;
}

}  // namespace yinet::cli
