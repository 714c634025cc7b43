// The library's other two tables, for people: its settings and its messages.

#include <CLI/CLI.hpp>

#include <memory>
#include <string>

#include "command.h"
#include "terminal.h"
#include "yinet/host/codepage.h"
#include "yinet/host/messages.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"

namespace yinet::cli {
namespace {

std::string_view unit_name(SettingUnit unit) {
  switch (unit) {
    case SettingUnit::text: return "text";
    case SettingUnit::boolean: return "0 or 1";
    case SettingUnit::milliseconds: return "ms";
    case SettingUnit::seconds: return "s";
    case SettingUnit::bytes: return "bytes";
    case SettingUnit::count: return "count";
    case SettingUnit::secret: return "text, never shown";
  }
  return "";
}

std::string shown_value(const Setting& setting) {
  const std::string value = setting_text(setting);
  return setting.unit == SettingUnit::secret && !value.empty() ? "***" : printable(value);
}

// Those whose section or name holds the text.
int list_settings(const std::string& wanted) {
  bool found = false;
  for (const Setting& setting : all_settings()) {
    const std::string path = std::string(setting.section) + "/" + std::string(setting.name);
    if (find_ignoring_case(path, wanted) == std::string::npos) continue;
    found = true;
    print(utf8_from_ansi(path + " = " + shown_value(setting)) + "\n    " + std::string(setting.meaning) + " (" +
          std::string(unit_name(setting.unit)) + "; default \"" + utf8_from_ansi(setting.default_value) +
          "\"; environment " + environment_name(setting.section, setting.name) + ")\n");
  }
  return found ? kSucceeded : wrong_call("there is no setting \"" + wanted + "\"; \"yinet settings\" lists all");
}

struct MessageQuestion {
  int number = 0;  // 0 for all
  bool full = false;
};

std::string level_text(int level) { return level == 0 ? "trace" : "level " + std::to_string(level); }

void print_message(const MessageText& message) {
  print(std::to_string(message.number) + "  " + utf8_from_ansi(message_template(message.number)) + "\n");
}

void print_full_message(const MessageText& message) {
  print(std::to_string(message.number) + " (" + level_text(message.level) +
        ")\n  English: " + std::string(message.english) + "\n  German: " + utf8_from_ansi(message.german) + "\n");
  if (!message.cure.empty()) print("  Cure: " + std::string(message.cure) + "\n");
}

int list_messages(const MessageQuestion& question) {
  if (question.number != 0 && !find_message(question.number))
    return wrong_call("there is no message " + std::to_string(question.number) + "; \"yinet messages\" lists all");
  for (const MessageText& message : all_messages()) {
    if (question.number != 0 && message.number != question.number) continue;
    if (question.full) {
      print_full_message(message);
      continue;
    }
    print_message(message);
    if (question.number != 0 && !message.cure.empty()) print("       " + std::string(message.cure) + "\n");
  }
  return kSucceeded;
}

}  // namespace

Command add_settings_command(CLI::App& program) {
  const auto wanted = std::make_shared<std::string>();
  CLI::App* command = program.add_subcommand("settings", "List the settings with their values, defaults and units");
  command->footer("Examples:\n  yinet settings\n  yinet settings DNS/\n  yinet --settings my.ini settings");
  command->add_option("NAME", *wanted, "Only those with this in their section or name")->type_name("");
  return {command, [wanted] { return list_settings(*wanted); }};
}

Command add_messages_command(CLI::App& program) {
  const auto question = std::make_shared<MessageQuestion>();
  CLI::App* command = program.add_subcommand("messages", "List the messages, or explain one");
  command->footer("Examples:\n  yinet messages\n  yinet --language de messages 21410");
  command->add_option("NUMBER", question->number, "Message to explain")->type_name("")->check(CLI::Range(1, 99999));
  command->add_flag("--full", question->full, "With level, both languages and what to do");
  return {command, [question] { return list_messages(*question); }};
}

}  // namespace yinet::cli
