#pragma once

// What the commands of the program share. Each command adds itself to the command line and hands back what runs it.

#include <functional>
#include <vector>

namespace CLI {
class App;
}

namespace yinet::cli {

// Exit codes of the program.
inline constexpr int kSucceeded = 0;
inline constexpr int kFailed = 1;
inline constexpr int kWrongCall = 2;

struct Command {
  CLI::App* app;
  std::function<int()> run;  // gives the exit code
};

Command add_call_command(CLI::App& program);
Command add_functions_command(CLI::App& program);
Command add_dns_command(CLI::App& program);
Command add_ftp_command(CLI::App& program);
std::vector<Command> add_file_commands(CLI::App& program);  // get, put, mkdir, rmdir, rm, exists
Command add_mail_command(CLI::App& program);
Command add_sftp_command(CLI::App& program);
Command add_address_command(CLI::App& program);
Command add_charset_command(CLI::App& program);
Command add_settings_command(CLI::App& program);
Command add_messages_command(CLI::App& program);

}  // namespace yinet::cli
