#include <CLI/CLI.hpp>

#include "global_options.h"

#include <string_view>

#include "command.h"
#include "terminal.h"
#include "yinet/host/codepage.h"
#include "yinet/host/messages.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/suggestions.h"
#include "yinet/host/text.h"
#include "yinet/host/version.h"
#include "yinet/host/ylog.h"

namespace yinet::cli {
namespace {

// Settings outside the table may belong to the host or carry a name of their own (drive letters), so this is no error.
void remark_unknown_setting(const std::string& path) {
  std::vector<std::string> paths;
  for (const Setting& setting : all_settings())
    paths.push_back(std::string(setting.section) + "/" + std::string(setting.name));
  const std::vector<std::string_view> known(paths.begin(), paths.end());
  remark(utf8_from_ansi("the library has no setting \"" + path + "\" of its own; the nearest are " +
                        listed_with_or(nearest_names(path, known))));
}

}  // namespace

void GlobalOptions::add_to(CLI::App& program) {
  program.set_version_flag("--version", std::string("yinet ") + yinet_version());
  program.add_option("--settings", settings_file_, "Read settings from this file")->type_name("FILE");
  program.add_option("--set", assignments_, "Set one setting; may be given several times")
      ->type_name("SECTION/KEY=VALUE")
      ->allow_extra_args(false);  // or it would swallow the command behind it
  program.add_flag("--trace", trace_, "Log what happens step by step");
  program.add_option("--log", log_form_, "Form of the log on standard error")
      ->type_name("FORM")
      ->check(CLI::IsMember({"text", "json"}));
  program.add_option("--language", language_, "Language of the messages")
      ->type_name("LANGUAGE")
      ->check(CLI::IsMember({"de", "en"}));
}

int GlobalOptions::apply() const {
  remarks_as_json(log_form_ == "json");
  set_log_sink(&print_log);
  if (trace_) set_debug_traces(true);
  if (!language_.empty()) set_message_language(language_ == "de" ? Language::german : Language::english);
  if (!settings_file_.empty())
    if (const auto problem = load_settings_file(settings_file_))
      return wrong_call("--settings " + settings_file_ + ": " + *problem);
  for (const std::string& assignment : assignments_)
    if (const int code = apply_setting(assignment)) return code;
  return kSucceeded;
}

int GlobalOptions::apply_setting(const std::string& assignment) const {
  const std::size_t equals = assignment.find('=');
  const std::size_t slash = assignment.find('/');
  if (equals == std::string::npos || slash == std::string::npos || slash == 0 || slash + 1 >= equals)
    return wrong_call("--set " + assignment + ": write SECTION/KEY=VALUE, for example --set DNS/Server=127.0.0.1:53");
  const std::string section = text_from_argument(assignment.substr(0, slash)).text;
  const std::string name = text_from_argument(assignment.substr(slash + 1, equals - slash - 1)).text;
  const std::string value = text_from_argument(assignment.substr(equals + 1)).text;
  if (const Setting* row = find_setting_row(section, name)) {
    const std::string_view problem = setting_misfit(*row, value);
    if (!problem.empty()) return wrong_call("--set " + assignment + ": " + std::string(problem));
  } else {
    remark_unknown_setting(section + "/" + name);
  }
  set_setting(section, name, value);
  return kSucceeded;
}

}  // namespace yinet::cli
