// "yinet address": display names and bare addresses of address lists, as mails hold them.

#include <CLI/CLI.hpp>

#include <memory>
#include <string>

#include "command.h"
#include "terminal.h"
#include "yinet/host/text.h"
#include "yinet/mime/mail_parser.h"

namespace yinet::cli {
namespace {

constexpr const char* kExamples = R"(Examples:
  yinet address name '"Max Muster" <max@example.org>'      prints Max Muster
  yinet address list 'Max <max@example.org>, lager@example.org'
  yinet address list - < recipients.txt     separated by "," or one per line

A comma always separates, also inside quotes: "Muster, Max" <max@example.org> are two items. A line of standard input that
begins with a blank goes on with the line before it, as in a mail's header.

Exit status: 0 when something was found, 1 when not, 2 for a wrong call.)";

// Lines are items, except where one goes on with the one before it.
std::string joined_lines(std::string_view text) {
  std::string list;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\r') continue;
    const bool goes_on = i + 1 < text.size() && (text[i + 1] == ' ' || text[i + 1] == '\t');
    list += text[i] != '\n' ? text[i] : goes_on ? ' ' : ',';
  }
  return list;
}

// The list as the library's text; nothing, after a remark, when standard input cannot be read.
std::optional<YString> taken(const std::string& argument) {
  if (argument != "-") return to_ansi(argument);
  std::string problem;
  const auto input = read_file(argument, problem);
  if (input) return to_ansi(joined_lines(trimmed(*input)));
  remark(problem);
  return std::nullopt;
}

int print_name(const YString& address) {
  const YString name = MailParser.ExtractDisplayName(address);
  if (!name.IsEmpty()) {
    print(shown(name) + "\n");
    return kSucceeded;
  }
  remark("there is no display name: nothing stands before a \"<\"");
  return kFailed;
}

// One per line; blanks around an address and items without one are nothing to look at.
int print_addresses(const YString& list) {
  const YString addresses = MailParser.ExtractMailAddress(list, YString(std::string(1, YString::kItemDelimiter)));
  int code = kFailed;
  for (const std::string_view item : addresses.Items()) {
    const std::string_view address = trimmed(item);
    if (address.empty()) continue;
    print(shown(address) + "\n");
    code = kSucceeded;
  }
  if (code != kSucceeded) remark("the list is empty");
  return code;
}

}  // namespace

Command add_address_command(CLI::App& program) {
  CLI::App* command = program.add_subcommand("address", "Take address lists of mails apart");
  command->require_subcommand(1);
  command->footer(kExamples);
  const auto text = std::make_shared<std::string>();
  CLI::App* name = command->add_subcommand("name", "Print the display name of an address");
  CLI::App* list = command->add_subcommand("list", "Print the bare addresses, one per line");
  for (CLI::App* const app : {name, list}) {
    app->footer(kExamples);
    app->add_option("TEXT", *text, "Addresses separated by \",\", \"-\" for standard input")->required()->type_name("");
  }
  return {command, [=] {
            const auto addresses = taken(*text);
            if (!addresses) return kFailed;
            return name->parsed() ? print_name(*addresses) : print_addresses(*addresses);
          }};
}

}  // namespace yinet::cli
