// "yinet charset": the converters there are, and files converted by them.

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "command.h"
#include "terminal.h"
#include "yinet/charset/charset.h"
#include "yinet/charset/charset_label.h"
#include "yinet/host/suggestions.h"
#include "yinet/host/text.h"

namespace yinet::cli {
namespace {

constexpr const char* kExamples = R"(Examples:
  yinet charset list
  yinet charset convert --from windows-1252 --to UTF-8 prices.csv
  yinet charset convert --from 850 --to UTF-8 < prices.txt     850 is a code page identifier

A character set goes by a name that "yinet charset list" prints, by another name of the same set, or by a code page
identifier. What the target lacks becomes its substitute, often the byte 1A. Targets with zero bytes in their letters
(UTF-16, UTF-32) are refused: results end at a zero byte.

Exit status: 0 when the text was converted, 1 when not, 2 for a wrong call.)";

struct Arguments {
  std::string from, to;
  std::string file = "-";
};

constexpr std::size_t kMostDigits = 9;  // of a code page identifier, so that it fits an int

bool is_code(std::string_view name) {
  return !name.empty() && name.size() <= kMostDigits && std::ranges::all_of(name, is_digit);
}

// The listed name of what the user means; empty when there is no such converter.
YString converter_of(const std::string& name) {
  if (charset.get_convert_charset_as_keys().Exist(name)) return YString(name);
  return YString(listed_converter(is_code(name) ? charset.get_converter_name(std::stoi(name)).str() : name));
}

int refuse_name(std::string_view option, const std::string& name) {
  const YString list = charset.get_convert_charset_list();
  const std::vector<std::string_view> known = list.Items();
  return wrong_call(std::string(option) + ": there is no character set \"" + name + "\"; did you mean " +
                    listed_with_or(nearest_names(name, known)) + "? \"yinet charset list\" prints them all.");
}

// Bytes of the unit that characters are made of; in wider ones a zero byte is part of most letters.
std::size_t unit_bytes(const YString& converter) {
  const auto starts_with = [&](std::string_view start) { return converter.StartsWithIC(start); };
  if (starts_with("UTF-32") || starts_with("UTF32")) return 4;
  return starts_with("UTF-16") || starts_with("UTF16") ? 2 : 1;
}

bool holds_zero_character(std::string_view bytes, std::size_t unit) {
  for (; bytes.size() >= unit; bytes.remove_prefix(unit))
    if (bytes.substr(0, unit).find_first_not_of('\0') == std::string_view::npos) return true;
  return false;
}

bool is_byte_order_mark(std::string_view bytes) {
  using namespace std::string_view_literals;
  constexpr std::array kMarks = {"\xFF\xFE"sv, "\xFE\xFF"sv, "\xFF\xFE\0\0"sv, "\0\0\xFE\xFF"sv};
  return std::ranges::find(kMarks, bytes) != kMarks.end();
}

int fail(const std::string& file, std::string_view why) {
  remark(file_title(file) + " cannot be converted: " + std::string(why));
  return kFailed;
}

int convert(const Arguments& arguments) {
  const YString from = converter_of(arguments.from);
  if (from.IsEmpty()) return refuse_name("--from", arguments.from);
  const YString to = converter_of(arguments.to);
  if (to.IsEmpty()) return refuse_name("--to", arguments.to);
  if (unit_bytes(to) > 1 && !to.EqualsIC(from))
    return wrong_call("--to: a result ends at its first zero byte, and " + to.str() + " is full of them; take UTF-8");
  std::string problem;
  auto bytes = read_file(arguments.file, problem);
  if (!bytes) {
    remark(problem);
    return kFailed;
  }
  const bool has_text = !bytes->empty() && !(unit_bytes(from) > 1 && is_byte_order_mark(*bytes));
  if (!to.EqualsIC(from) && holds_zero_character(*bytes, unit_bytes(from)))
    return fail(arguments.file, "it holds a character of zero bytes, at which the result would end");
  const YString result = charset.Convert(YString(*std::move(bytes)), from, to, 0);
  if (result.IsEmpty() && has_text)
    return fail(arguments.file, "the result would need more than four bytes for each of its own");
  print(result);
  return kSucceeded;
}

int list_names() {
  const YString list = charset.get_convert_charset_list();
  for (const std::string_view name : list.Items()) print(std::string(name) + "\n");
  return kSucceeded;
}

}  // namespace

Command add_charset_command(CLI::App& program) {
  CLI::App* command = program.add_subcommand("charset", "List character sets, or convert from one to another");
  command->require_subcommand(1);
  command->footer(kExamples);
  command->add_subcommand("list", "Print the names of all converters, one per line");
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* convert_app = command->add_subcommand("convert", "Convert a file or standard input to standard output");
  convert_app->footer(kExamples);
  convert_app->add_option("--from", arguments->from, "What the text is in")->required()->type_name("CHARSET");
  convert_app->add_option("--to", arguments->to, "What it shall become")->required()->type_name("CHARSET");
  convert_app->add_option("FILE", arguments->file, "File to convert; standard input when missing or \"-\"")
      ->type_name("");
  return {command, [=] { return convert_app->parsed() ? convert(*arguments) : list_names(); }};
}

}  // namespace yinet::cli
