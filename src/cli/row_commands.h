#pragma once

// A command whose subcommands are rows of a table.

#include <CLI/CLI.hpp>

#include <array>
#include <utility>
#include <vector>

#include "command.h"

namespace yinet::cli {

// Adds a subcommand for each row, by its members `name` and `help`, with what `add_options(app, row)` gives it. The command
// runs `run(row)` of the one that was called.
template <typename Row, std::size_t Count, typename AddOptions, typename Run>
Command add_row_commands(CLI::App& program, const char* name, const char* help, const char* footer,
                         const std::array<Row, Count>& rows, AddOptions add_options, Run run) {
  CLI::App* command = program.add_subcommand(name, help);
  command->require_subcommand(1);
  command->footer(footer);
  std::vector<std::pair<CLI::App*, const Row*>> apps;
  for (const Row& row : rows) {
    CLI::App* app = command->add_subcommand(row.name, row.help);
    app->footer(footer);
    add_options(*app, row);
    apps.emplace_back(app, &row);
  }
  return {command, [apps, run] {
            for (const auto& [app, row] : apps)
              if (app->parsed()) return run(*row);
            return kWrongCall;
          }};
}

}  // namespace yinet::cli
