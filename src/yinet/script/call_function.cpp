#include "yinet/script/call_function.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

#include "yinet/host/codepage.h"
#include "yinet/host/flag_word.h"
#include "yinet/host/suggestions.h"
#include "yinet/host/text.h"
#include "yinet/host/yjson.h"
#include "yinet/script/parameter_keys.h"

namespace yinet {
namespace {

constexpr std::string_view kBlockKey = "PARAMETER";  // any name will do: only the position counts
constexpr std::size_t kShownText = 60;

std::string shown(std::string_view ansi) {
  return utf8_from_ansi(printable(ansi.substr(0, kShownText))) + (ansi.size() > kShownText ? "..." : "");
}

std::optional<std::int32_t> whole_number(std::string_view text) {
  text = trimmed(text);
  if (text.starts_with('+') && text.size() > 1 && is_digit(text[1])) text.remove_prefix(1);
  std::int32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

// One conversion per wanted type; false when the value cannot be that. The entry has another type than the wanted one.
bool convert_to_integer(YObject& record, std::string_view key) {
  if (record.GetType(key) == kTypeBool) return record.Store<std::int32_t>(key, record.GetInteger(key)), true;
  const auto number = whole_number(record.GetString(key));
  if (number) record.Store<std::int32_t>(key, *number);
  return number.has_value();
}

bool convert_to_flag(YObject& record, std::string_view key) {
  const auto flag = flag_word(record.GetString(key));
  if (flag) record.Store<bool>(key, *flag);
  return flag.has_value();
}

bool convert_to_text(YObject& record, std::string_view key) {
  switch (record.GetType(key)) {
    case kTypeBool:
    case kTypeInteger:
    case kTypeBuffer:
    case kTypeDateTime: return record.Store<YString>(key, record.GetString(key)), true;
    default: return false;
  }
}

bool convert_to_buffer(YObject& record, std::string_view key) {
  const YString* text = record.Find<YString>(key);
  if (!text) return false;
  record.Store<YBuffer>(key, YBuffer(std::string_view(*text)));
  return true;
}

bool convert_to_date(YObject& record, std::string_view key) {
  const YString* text = record.Find<YString>(key);
  YDateAndTime date;
  if (!text || !date.SetIso(trimmed(*text))) return false;
  record.Store<YDateAndTime>(key, date);
  return true;
}

// An empty list in JSON does not say what it is a list of.
bool convert_to_records(YObject& record, std::string_view key) {
  const YString* text = record.Find<YString>(key);
  if (!text || !text->IsEmpty()) return false;
  record.Store<YObjectArray>(key, {});
  return true;
}

bool convert(YObject& record, std::string_view key, std::uint8_t wanted) {
  switch (wanted) {
    case kTypeBool: return convert_to_flag(record, key);
    case kTypeInteger: return convert_to_integer(record, key);
    case kTypeString: return convert_to_text(record, key);
    case kTypeBuffer: return convert_to_buffer(record, key);
    case kTypeDateTime: return convert_to_date(record, key);
    case kTypeObjectArray: return convert_to_records(record, key);
    default: return false;
  }
}

bool fits(const ScriptParameter& parameter, std::uint8_t type) {
  // A key without a value counts as absent everywhere.
  return type == kTypeAny || parameter.type == kTypeAny || type == parameter.type || type == parameter.other_type;
}

std::string with_article(std::uint8_t type) {
  const std::string name(type_name(type));
  if (type == kTypeObjectArray) return name;  // "records"
  const bool vowel = std::string_view("aeiou").find(name.front()) != std::string_view::npos;
  return (vowel ? "an " : "a ") + name;
}

std::string shown_value(const YObject& record, std::string_view key) {
  const YString text = record.GetString(key);
  if (text.IsEmpty()) return with_article(record.GetType(key));
  return "\"" + shown(text) + "\"";
}

std::string unknown_parameter_text(const ScriptFunction& function, std::string_view key) {
  std::vector<std::string_view> known;
  for (const ScriptParameter& parameter : function.parameters) known.push_back(parameter.key);
  const std::string start = std::string(function.name) + " has no parameter \"" + shown(key) + "\"";
  if (known.empty()) return start + "; it takes none";
  return start + "; did you mean " + listed_with_or(nearest_names(key, known)) + "?";
}

std::string wrong_value_text(const YObject& parameters, const ScriptParameter& parameter) {
  return std::string(parameter.key) + " needs " + with_article(parameter.type) + ", not " +
         shown_value(parameters, parameter.key);
}

bool says_failure(const YObject& parameters) {
  switch (parameters.GetType(key::kResult)) {
    case kTypeBool: return !parameters.GetBool(key::kResult);
    case kTypeInteger: return parameters.GetInteger(key::kResult) <= 0;
    case kTypeString: return parameters.GetString(key::kResult).IsEmpty();
    default: return false;
  }
}

// A script has declared the record that receives results before it calls; other callers need not.
void supply_result_records(const ScriptFunction& function, YObject& parameters) {
  for (const ScriptParameter& parameter : function.parameters)
    if (parameter.direction == Direction::out && parameter.type == kTypeObject)
      parameters.Ensure<YObject>(parameter.key);
}

void run(const ScriptFunction& function, YObject& parameters) {
  YObject block;
  YObject& inner = block.Store<YObject>(kBlockKey, std::move(parameters));
  function.entry(&block);
  parameters = std::move(inner);
}

}  // namespace

std::string unknown_function_text(std::string_view name) {
  std::vector<std::string_view> known;
  for (const ScriptFunction& function : all_script_functions()) known.push_back(function.name);
  return "no script function is named \"" + shown(name) + "\"; did you mean " +
         listed_with_or(nearest_names(name, known)) + "?";
}

std::string kept_as_utf8_text(std::string_view key) {
  return shown(key) + ": a text that Windows-1252 cannot hold went in as its UTF-8 bytes";
}

std::optional<std::string> fit_parameters(const ScriptFunction& function, YObject& parameters) {
  for (int i = 0; i < parameters.GetStringKeyCount(); ++i) {
    const YString key = parameters.GetStringKey(i);
    if (equal_ignoring_case(key, key::kResult)) continue;
    const ScriptParameter* parameter = find_parameter(function, key);
    if (!parameter) return unknown_parameter_text(function, key);
    if (!fits(*parameter, parameters.GetType(key)) && !convert(parameters, key, parameter->type))
      return wrong_value_text(parameters, *parameter);
  }
  return std::nullopt;
}

CallOutcome call_function(std::string_view name, YObject& parameters) {
  const ScriptFunction* function = find_script_function(name);
  if (!function) return {CallStatus::wrong_call, unknown_function_text(name)};
  if (auto problem = fit_parameters(*function, parameters)) return {CallStatus::wrong_call, std::move(*problem)};
  parameters.Delete(key::kResult);
  supply_result_records(*function, parameters);
  run(*function, parameters);
  return {says_failure(parameters) ? CallStatus::failed : CallStatus::succeeded, {}};
}

JsonCallOutcome call_function_json(std::string_view name, std::string_view json, int indent) {
  JsonCallOutcome outcome;
  YObject parameters;
  JsonNotes notes;
  if (!trimmed(json).empty()) {
    if (const auto error = YJSON::Parse(json, parameters, &notes)) {
      outcome.problem =
          "the parameters are no JSON object: " + error->reason + " at byte " + std::to_string(error->position);
      return outcome;
    }
  }
  for (const std::string& key : notes.kept_as_utf8) outcome.notes.push_back(kept_as_utf8_text(key));
  CallOutcome called = call_function(name, parameters);
  outcome.status = called.status;
  outcome.problem = std::move(called.problem);
  if (outcome.status != CallStatus::wrong_call) outcome.json = YJSON::Write(parameters, indent);
  return outcome;
}

}  // namespace yinet
