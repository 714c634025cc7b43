#include <CLI/CLI.hpp>

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "command.h"
#include "record_input.h"
#include "terminal.h"
#include "yinet/host/text.h"
#include "yinet/host/yfile.h"
#include "yinet/host/yjson.h"
#include "yinet/host/ylog.h"
#include "yinet/script/call_function.h"
#include "yinet/script/parameter_keys.h"
#include "yinet/script/yinet_call.h"

namespace yinet::cli {
namespace {

constexpr const char* kExamples = R"(Parameters:
  KEY=TEXT     a text; integers and truth values are read from it where the function wants them
  KEY:=JSON    any JSON value: 5, true, "text", {"$base64": "AQID"}, {"key": "value"}
  KEY=@FILE    the bytes of a file, of standard input for "-"; write KEY=@@x for the text "@x"

Examples:
  yinet call HTTP_GET pUrl=https://www.example.com/
  yinet call HTTP_POST pUrl=http://127.0.0.1:8080/ pContentType=text/xml pContent=@order.xml
  echo '{"pUrl": "http://127.0.0.1:8080/"}' | yinet call HTTP_GET --json -

Exit status: 0 when "_RETV" says success or is absent, 1 when it says failure, 2 for a wrong call.)";

constexpr std::string_view kTemporaryPrefix = "TEMP:";

struct Arguments {
  std::string function;
  std::vector<std::string> parameters;
  std::string json_file;
};

Problem take_text(std::string_view text, YObject& record, const std::string& key) {
  TextArgument taken = text_from_argument(text);
  if (taken.kept_as_utf8) remark(kept_as_utf8_text(key));
  record.Store<YString>(key, YString(std::move(taken.text)));
  return std::nullopt;
}

// As a buffer: where the function wants a text, the bytes become one as they are.
Problem take_file(std::string_view name, YObject& record, const std::string& key) {
  std::string problem;
  const auto bytes = read_file(std::string(name), problem);
  if (!bytes) return problem;
  record.Store<YBuffer>(key, YBuffer(*bytes));
  return std::nullopt;
}

Problem take_parameter(const std::string& argument, YObject& record) {
  const std::size_t equals = argument.find('=');
  if (equals == std::string::npos || equals == 0) return "write KEY=TEXT, KEY:=JSON or KEY=@FILE";
  const bool is_json = argument[equals - 1] == ':';
  const std::string key = text_from_argument(argument.substr(0, equals - (is_json ? 1 : 0))).text;
  const std::string_view value = std::string_view(argument).substr(equals + 1);
  if (key.empty()) return "write the parameter's name before \":=\"";
  if (is_json) return take_json(value, record, key);
  if (value.starts_with("@@")) return take_text(value.substr(1), record, key);
  if (value.starts_with('@')) return take_file(value.substr(1), record, key);
  return take_text(value, record, key);
}

Problem take_all(const Arguments& arguments, YObject& record) {
  if (!arguments.json_file.empty()) {
    if (const auto problem = take_json_file(arguments.json_file, record)) return "--json " + *problem;
  }
  for (const std::string& argument : arguments.parameters)
    if (const auto problem = take_parameter(argument, record)) return argument + ": " + *problem;
  return std::nullopt;
}

// Keys in the order in which they come. The answer repeats none, so none is looked for before it is added: there may be a
// million of them.
template <typename Key, typename Value, typename Less, typename Allocator>
struct AppendedMap : nlohmann::ordered_map<Key, Value, Less, Allocator> {
  using Base = nlohmann::ordered_map<Key, Value, Less, Allocator>;
  using Base::Base;
  Value& operator[](const Key& key) { return this->emplace_back(key, Value()).second; }
};

// The record as the library gives it back, all texts UTF-8.
using Json = nlohmann::basic_json<AppendedMap>;

// A result that lies in the temporary folder is of little use without the folder's name.
void remark_temporary_files(const Json& record) {
  for (const auto& [key, value] : record.items()) {
    const std::string text = value.is_string() ? text_from_argument(value.get<std::string>()).text : std::string();
    if (starts_with_ignoring_case(text, kTemporaryPrefix) && YFile::Exist(text))
      remark(key + " is the file " + YFileManager.ResolveSystemPath(text));
  }
}

void remark_failure(const std::string& function, const Json& record) {
  const std::string status = text_from_argument(record.value(std::string(key::kStatus), "")).text;
  remark(function + " failed" + (status.empty() ? "" : ": " + shown(status)));
}

void mask_url_passwords_in(Json& value) {
  if (value.is_string()) value = mask_url_passwords(value.get<std::string>());
  if (!value.is_structured()) return;
  for (Json& inner : value) mask_url_passwords_in(inner);
}

// What is printed ends up in logs and mails.
void mask_passwords(const ScriptFunction& function, Json& record) {
  for (auto& [key, value] : record.items()) {
    const ScriptParameter* parameter = find_parameter(function, text_from_argument(key).text);
    if (!parameter) continue;
    if (parameter->secret) value = "***";
    else if (parameter->direction == Direction::in) mask_url_passwords_in(value);
  }
}

struct FreeAnswer {
  void operator()(char* text) const { yinet_free(text); }
};

int call(const Arguments& arguments) {
  const ScriptFunction* function = find_script_function(arguments.function);
  if (!function) return wrong_call(unknown_function_text(arguments.function) + " \"yinet functions\" lists them all.");
  YObject parameters;
  if (const auto problem = take_all(arguments, parameters)) return wrong_call(*problem);
  const std::string name(function->name);
  char* text = nullptr;
  const int status = yinet_call(name.c_str(), YJSON::Write(parameters).c_str(), &text);
  const std::unique_ptr<char, FreeAnswer> answer(text);
  if (!answer) throw std::bad_alloc();
  Json record = Json::parse(answer.get());
  if (status == YINET_WRONG_CALL) {
    const std::string problem = record.value("error", "");
    return wrong_call(problem + (problem.ends_with('?') ? " \"" : "; \"") + "yinet functions " + name +
                      "\" explains its parameters");
  }
  mask_passwords(*function, record);
  print(record.dump(2) + "\n");
  remark_temporary_files(record);
  if (status == YINET_SUCCEEDED) return kSucceeded;
  remark_failure(name, record);
  return kFailed;
}

}  // namespace

Command add_call_command(CLI::App& program) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* command = program.add_subcommand("call", "Run a script function and print its parameters as JSON");
  command->footer(kExamples);
  command->add_option("FUNCTION", arguments->function, "Name of the function")->required()->type_name("");
  command->add_option("PARAMETER", arguments->parameters, "KEY=TEXT, KEY:=JSON or KEY=@FILE")->type_name("");
  command
      ->add_option("--json", arguments->json_file, "Read parameters from a JSON file first, \"-\" for standard input")
      ->type_name("FILE");
  return {command, [arguments] { return call(*arguments); }};
}

}  // namespace yinet::cli
