#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>
#include <string>

#include "command.h"
#include "terminal.h"
#include "yinet/host/codepage.h"
#include "yinet/host/messages.h"
#include "yinet/host/yobject.h"
#include "yinet/script/call_function.h"
#include "yinet/script/function_table.h"
#include "yinet/script/parameter_keys.h"

namespace yinet::cli {
namespace {

constexpr const char* kExamples = R"(Examples:
  yinet functions               lists all script functions
  yinet functions HTTP_GET      explains one)";

std::string padded(std::string_view text, std::size_t width) {
  return std::string(text) + std::string(width > text.size() ? width - text.size() : 0, ' ');
}

std::string_view direction_name(Direction direction) {
  switch (direction) {
    case Direction::in: return "in";
    case Direction::out: return "out";
    case Direction::in_out: return "in/out";
  }
  return "";
}

int list_functions() {
  std::size_t width = 0;
  for (const ScriptFunction& function : all_script_functions()) width = std::max(width, function.name.size());
  std::string_view family;
  for (const ScriptFunction& function : all_script_functions()) {
    if (function.family != family) print((family.empty() ? "" : "\n") + std::string(function.family) + "\n");
    family = function.family;
    print("  " + padded(function.name, width + 2) + std::string(function.summary) + "\n");
  }
  return kSucceeded;
}

std::string type_text(const ScriptParameter& parameter) {
  std::string text(type_name(parameter.type));
  if (parameter.other_type) text += " or " + std::string(type_name(parameter.other_type));
  return text;
}

void print_parameters(const ScriptFunction& function) {
  if (function.parameters.empty()) return print("\nParameters: none\n");
  std::size_t key_width = 0;
  std::size_t type_width = 0;
  for (const ScriptParameter& parameter : function.parameters) {
    key_width = std::max(key_width, parameter.key.size() + 2);
    type_width = std::max(type_width, type_text(parameter).size() + 2);
  }
  print("\nParameters:\n");
  for (const ScriptParameter& parameter : function.parameters) {
    print("  " + padded(parameter.key, key_width) + padded(type_text(parameter), type_width) +
          padded(direction_name(parameter.direction), 8) + std::string(parameter.meaning));
    if (!parameter.default_value.empty()) print(" Default: " + std::string(parameter.default_value) + ".");
    print("\n");
  }
}

void print_result(const ScriptFunction& function) {
  print("\nResult:\n  ");
  if (function.result_type != kTypeAny)
    print(std::string(key::kResult) + " (" + std::string(type_name(function.result_type)) + "): ");
  print(std::string(function.result_meaning) + "\n");
}

void print_messages(const ScriptFunction& function) {
  if (function.messages.empty()) return;
  print("\nMessages:\n");
  for (const int number : function.messages)
    print("  " + std::to_string(number) + "  " + utf8_from_ansi(message_template(number)) + "\n");
}

// An argument as it is typed into a shell.
std::string quoted(std::string_view argument) {
  constexpr std::string_view kPlain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-+=:/.,@%";
  if (argument.find_first_not_of(kPlain) == std::string_view::npos) return std::string(argument);
  std::string text = "'";
  for (const char c : argument) text += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return text + "'";
}

void print_example(const ScriptFunction& function) {
  print("\nExample:\n  yinet call " + std::string(function.name));
  for (const std::string_view argument : function.example) print(" " + quoted(argument));
  print("\n");
}

int explain(const std::string& name) {
  const ScriptFunction* function = find_script_function(name);
  if (!function) return wrong_call(unknown_function_text(name) + " \"yinet functions\" lists them all.");
  print(std::string(function->name) + " (" + std::string(function->family) + ")\n" + std::string(function->summary) +
        "\n");
  print_parameters(*function);
  print_result(*function);
  print_messages(*function);
  print_example(*function);
  return kSucceeded;
}

}  // namespace

Command add_functions_command(CLI::App& program) {
  const auto name = std::make_shared<std::string>();
  CLI::App* command = program.add_subcommand("functions", "List the script functions, or explain one");
  command->footer(kExamples);
  command->add_option("NAME", *name, "Function to explain")->type_name("");
  return {command, [name] { return name->empty() ? list_functions() : explain(*name); }};
}

}  // namespace yinet::cli
