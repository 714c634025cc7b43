#include <CLI/CLI.hpp>

#include <algorithm>
#include <exception>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "command.h"
#include "global_options.h"
#include "terminal.h"
#include "yinet/host/suggestions.h"

namespace {

using yinet::cli::Command;

constexpr const char* kExamples = R"(Examples:
  yinet call HTTP_GET pUrl=https://www.example.com/
  yinet functions HTTP_POST
  yinet get sftp://me@files.example.com/reports/today.txt
  yinet dns mx example.com
  yinet --language de --trace call HTTP_GET pUrl=http://127.0.0.1:8080/

"yinet COMMAND --help" tells more about a command.)";

// In the order of the help.
constexpr Command (*kAddCommands[])(CLI::App&) = {
    yinet::cli::add_call_command,     yinet::cli::add_functions_command, yinet::cli::add_dns_command,
    yinet::cli::add_ftp_command,      yinet::cli::add_sftp_command,      yinet::cli::add_mail_command,
    yinet::cli::add_address_command,  yinet::cli::add_charset_command,   yinet::cli::add_settings_command,
    yinet::cli::add_messages_command,
};

const Command* parsed_command(const std::vector<Command>& commands) {
  const auto found = std::ranges::find_if(commands, [](const Command& command) { return command.app->parsed(); });
  return found == commands.end() ? nullptr : &*found;
}

int run(const std::vector<Command>& commands) {
  const Command* command = parsed_command(commands);
  return command ? command->run() : yinet::cli::kWrongCall;
}

// The command and what was called of its subcommands, each with a blank behind it.
std::string called_names(const CLI::App& app) {
  std::string names;
  for (const CLI::App* at = &app; !at->get_subcommands().empty();) {
    at = at->get_subcommands().front();
    names += at->get_name() + " ";
  }
  return names;
}

// What the parser says, with the way out.
int refuse(const CLI::App& app, const std::vector<Command>& commands, const CLI::ParseError& error) {
  const std::vector<std::string> extras = app.remaining(true);
  const Command* command = parsed_command(commands);
  if (!command && !extras.empty() && extras.front() == "help")
    return yinet::cli::wrong_call(
        "there is no command \"help\": \"yinet --help\" shows them all, \"yinet COMMAND --help\" tells more");
  if (!command && !extras.empty() && !extras.front().starts_with('-')) {
    std::vector<std::string> names;
    for (const Command& known : commands) names.push_back(known.app->get_name());
    const std::vector<std::string_view> known(names.begin(), names.end());
    return yinet::cli::wrong_call("there is no command \"" + extras.front() + "\"; did you mean " +
                                  yinet::listed_with_or(yinet::nearest_names(extras.front(), known, 2)) + "?");
  }
  return yinet::cli::wrong_call(std::string(error.what()) + "; \"yinet " + called_names(app) +
                                "--help\" shows how to call it");
}

int program(int argc, char** argv) {
  CLI::App app("YInet: network, mail and security functions on the command line.", "yinet");
  app.fallthrough();  // global options may stand after the command as well
  app.require_subcommand(0, 1);
  yinet::cli::GlobalOptions options;
  options.add_to(app);
  std::vector<Command> commands;
  for (const auto add : kAddCommands) commands.push_back(add(app));
  for (Command& command : yinet::cli::add_file_commands(app)) commands.push_back(std::move(command));
  app.footer(kExamples);  // earlier, it would be the commands' as well
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& help) {
    return app.exit(help);  // prints help or version
  } catch (const CLI::ParseError& error) {
    return refuse(app, commands, error);
  }
  if (app.get_subcommands().empty()) {
    yinet::cli::print(app.help());
    return yinet::cli::kSucceeded;
  }
  const int wrong = options.apply();
  return wrong ? wrong : run(commands);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const int code = program(argc, argv);
    return yinet::cli::finish_output() ? code : yinet::cli::kFailed;
  } catch (const std::exception& error) {
    yinet::cli::remark(std::string("failed: ") + error.what());
    return yinet::cli::kFailed;
  }
}
