#include "yinet/host/settings.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <fstream>
#include <functional>
#include <limits>
#include <mutex>
#include <shared_mutex>
#include <system_error>
#include <unordered_map>
#include <utility>

#include "yinet/host/codepage.h"
#include "yinet/host/flag_word.h"
#include "yinet/host/hook_scope.h"
#include "yinet/host/messages.h"
#include "yinet/host/setting_check.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/shared_slot.h"
#include "yinet/host/text.h"
#include "yinet/host/ylog.h"

namespace yinet {

namespace {

constexpr std::string_view kFileVariable = "YINET_SETTINGS";
constexpr std::string_view kVariablePrefix = "YINET_";
constexpr std::size_t kMaxFileBytes = std::size_t{1024} * 1024;  // a settings file, not a device that never ends

constinit thread_local bool t_in_source = false;

using Values = std::unordered_map<std::string, std::string>;

// One key for both names; NUL is in neither.
std::string key_of(std::string_view section, std::string_view name) {
  std::string key = to_lower(section);
  key.push_back('\0');
  return key += to_lower(name);
}

std::optional<std::int64_t> number_in(std::string_view text) {
  text = trimmed(text);
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  if (text.empty() || !std::all_of(text.begin(), text.end(), is_digit)) return std::nullopt;
  if (negative) return 0;
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc::result_out_of_range ? std::numeric_limits<std::int64_t>::max() : number;
}

// A value in all the forms that readers ask for.
struct Value {
  std::string text;  // as written, or the default where that is no number or flag, so that it says what holds
  std::int64_t number = 0;
  bool flag = false;
};

Value value_of(const Setting& setting, std::string text) {
  Value value;
  value.number = number_in(text).value_or(number_in(setting.default_value).value_or(0));
  value.flag = flag_word(text).value_or(flag_word(setting.default_value).value_or(false));
  if (setting_misfit(setting, text).empty()) value.text = std::move(text);
  else value.text = setting.unit == SettingUnit::boolean ? setting.default_value : std::to_string(value.number);
  return value;
}

// Something to be logged about settings that people wrote: a message and what fills it.
struct Problem {
  int number;
  std::string first, second, third = {};
};
using Problems = std::vector<Problem>;

void log_problems(const Problems& problems) {
  for (const auto& [number, first, second, third] : problems)
    YLog.Event(find_message(number)->level, number, first, second, third);
}

void judge_value(const Setting& row, const std::string& name, const std::string& value, Problems& problems) {
  if (setting_misfit(row, value).empty()) return;
  problems.push_back({message::kSettingMisfit, name, value, value_of(row, value).text});
}

void judge_entry(const SettingsText::Entry& entry, Problems& problems) {
  const std::string name = entry.section + "/" + entry.name;
  if (const Setting* row = find_setting_row(entry.section, entry.name)) judge_value(*row, name, entry.value, problems);
  else if (std::string meant = setting_meant_by(entry.section, entry.name); !meant.empty())
    problems.push_back({message::kSettingUnknown, name, std::move(meant)});
}

// The file as text, or why it cannot be read.
std::pair<std::string, std::string> read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return {"", std::generic_category().message(errno)};
  std::string text(kMaxFileBytes + 1, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (file.bad()) return {"", "it cannot be read"};
  text.resize(static_cast<std::size_t>(file.gcount()));
  if (text.size() > kMaxFileBytes) return {"", "it is larger than a settings file may be (1 MB)"};
  return {std::move(text), ""};
}

// All layers below the plugged source, and the values of the table's rows as they stand without a source.
class Registry {
 public:
  // Takes the environment as it is now: reading it later could meet a thread that changes it.
  Registry() {
    std::string path;
    for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
      const std::string_view text = *variable;
      const std::size_t equals = text.find('=');
      if (equals == std::string_view::npos || !text.starts_with(kVariablePrefix)) continue;
      if (text.substr(0, equals) == kFileVariable) path = text.substr(equals + 1);
      environment_.emplace(text.substr(0, equals), name_from_utf8(text.substr(equals + 1)));
    }
    const auto rows = all_settings();
    for (std::size_t row = 0; row < rows.size(); ++row)
      rows_by_key_.emplace(key_of(rows[row].section, rows[row].name), row);
    judge_environment();
    if (!path.empty()) {
      if (const std::string error = read_layer(path, file_, file_problems_); !error.empty())
        file_problems_ = {{message::kSettingsFileFailed, name_from_utf8(path), error}};
    }
    has_problems_ = !file_problems_.empty() || !environment_problems_.empty();
    resolve_all();
  }

  // What is wrong with the file and the environment is reported by the first look-up after the registry stands: the log
  // asks for settings itself.
  void report_problems() {
    if (!has_problems_.load(std::memory_order_relaxed) || !has_problems_.exchange(false)) return;
    Problems environment, file;
    {
      const std::unique_lock guard(mutex_);
      environment.swap(environment_problems_);
      file.swap(file_problems_);
    }
    log_problems(environment);
    log_problems(file);
  }

  // Calls `use` with the value of a row of the table.
  template <typename Use>
  auto with_row(const Setting& setting, std::size_t row, Use use) {
    report_problems();
    if (!t_in_source && source_.get() != nullptr)
      return use(value_of(setting, find(setting.section, setting.name).value_or("")));
    const std::shared_lock guard(mutex_);
    return use(rows_[row]);
  }

  std::optional<std::string> find(std::string_view section, std::string_view name) {
    report_problems();
    const std::string key = key_of(section, name);
    {
      const std::shared_lock guard(mutex_);
      if (const auto found = overrides_.find(key); found != overrides_.end()) return found->second;
    }
    // Called without the lock: it may look up settings itself, which then come from the layers below it.
    if (const auto source = t_in_source ? nullptr : source_.get()) {
      const HookScope in_source(t_in_source);
      try {
        if (auto value = (*source)(section, name)) return value;
      } catch (...) {  // counts as no value
      }
      const std::shared_lock guard(mutex_);
      return default_of(key);
    }
    const std::shared_lock guard(mutex_);
    if (auto value = below_source(key, section, name)) return value;
    return default_of(key);
  }

  void override_value(std::string_view section, std::string_view name, std::optional<std::string> value) {
    const std::string key = key_of(section, name);
    Problems problems;
    if (const Setting* row = value ? find_setting_row(section, name) : nullptr)
      judge_value(*row, std::string(section) + "/" + std::string(name), *value, problems);
    log_problems(problems);
    const std::unique_lock guard(mutex_);
    if (value) overrides_.insert_or_assign(key, std::move(*value));
    else overrides_.erase(key);
    if (const auto row = rows_by_key_.find(key); row != rows_by_key_.end()) resolve(row->second);
  }

  void change_default(std::string_view section, std::string_view name, std::string value) {
    const std::string key = key_of(section, name);
    const std::unique_lock guard(mutex_);
    defaults_.insert_or_assign(key, std::move(value));
    if (const auto row = rows_by_key_.find(key); row != rows_by_key_.end()) resolve(row->second);
  }

  void plug(SettingsSource source) { source_.set(std::move(source)); }

  std::string use_file(const std::string& path) {
    Values values;
    Problems problems;
    if (std::string error = read_layer(path, values, problems); !error.empty()) return error;
    {
      const std::unique_lock guard(mutex_);
      file_ = std::move(values);
      file_problems_ = std::move(problems);
      has_problems_ = true;
      resolve_all();
    }
    report_problems();
    return "";
  }

 private:
  void judge_environment() {
    std::unordered_map<std::string, const Setting*> rows;
    for (const Setting& row : all_settings()) rows.emplace(environment_name(row.section, row.name), &row);
    for (const auto& [variable, value] : environment_) {
      if (const auto row = rows.find(variable); row != rows.end())
        judge_value(*row->second, variable, value, environment_problems_);
      else if (std::string meant = variable_meant_by(variable); !meant.empty())
        environment_problems_.push_back({message::kSettingUnknown, variable, std::move(meant)});
    }
  }

  static std::string read_layer(const std::string& path, Values& values, Problems& problems) {
    const auto [text, problem] = read_file(path);
    if (!problem.empty()) return problem;
    SettingsText parsed = parse_settings(text);
    if (!parsed.error.empty()) return parsed.error;
    for (auto& entry : parsed.entries) {
      judge_entry(entry, problems);
      values.insert_or_assign(key_of(entry.section, entry.name), std::move(entry.value));
    }
    return "";
  }

  std::optional<std::string> default_of(const std::string& key) const {
    if (const auto found = defaults_.find(key); found != defaults_.end()) return found->second;
    const auto row = rows_by_key_.find(key);
    if (row == rows_by_key_.end()) return std::nullopt;
    return std::string(all_settings()[row->second].default_value);
  }

  std::optional<std::string> below_source(const std::string& key, std::string_view section,
                                          std::string_view name) const {
    if (const auto found = environment_.find(environment_name(section, name)); found != environment_.end())
      return found->second;
    if (const auto found = file_.find(key); found != file_.end()) return found->second;
    return std::nullopt;
  }

  void resolve(std::size_t row) {
    const Setting& setting = all_settings()[row];
    const std::string key = key_of(setting.section, setting.name);
    std::optional<std::string> text;
    if (const auto found = overrides_.find(key); found != overrides_.end()) text = found->second;
    if (!text) text = below_source(key, setting.section, setting.name);
    if (!text) text = default_of(key);
    rows_[row] = value_of(setting, *text);
  }

  void resolve_all() {
    rows_.resize(all_settings().size());
    for (std::size_t row = 0; row < rows_.size(); ++row) resolve(row);
  }

  SharedSlot<SettingsSource> source_;
  std::unordered_map<std::string, std::size_t> rows_by_key_;  // fixed after construction, like environment_
  Values environment_;                                        // by name of the variable
  mutable std::shared_mutex mutex_;                           // guards what follows
  Values overrides_;
  Values file_;
  Values defaults_;
  std::vector<Value> rows_;
  Problems environment_problems_, file_problems_;  // not logged yet
  std::atomic<bool> has_problems_ = false;
};

// Made by the first look-up and never destroyed: threads may still ask while the process ends.
Registry& registry() {
  static Registry* const instance = new Registry;
  return *instance;
}

// Readers are given rows of the table; a row of anybody else's is looked up by its names.
template <typename Use>
auto read(const Setting& setting, Use use) {
  const auto rows = all_settings();
  const bool inside = !std::less<>()(&setting, rows.data()) && std::less<>()(&setting, rows.data() + rows.size());
  if (inside) return registry().with_row(setting, static_cast<std::size_t>(&setting - rows.data()), use);
  return use(
      value_of(setting, registry().find(setting.section, setting.name).value_or(std::string(setting.default_value))));
}

}  // namespace

std::string setting_text(const Setting& setting) {
  return read(setting, [](const Value& value) { return value.text; });
}

std::int64_t setting_number(const Setting& setting) {
  return read(setting, [](const Value& value) { return value.number; });
}

int setting_int(const Setting& setting) {
  return static_cast<int>(std::min<std::int64_t>(setting_number(setting), std::numeric_limits<int>::max()));
}

bool setting_flag(const Setting& setting) {
  return read(setting, [](const Value& value) { return value.flag; });
}

std::optional<std::string> find_setting(std::string_view section, std::string_view name) {
  return registry().find(section, name);
}

void set_setting(std::string_view section, std::string_view name, std::optional<std::string> value) {
  registry().override_value(section, name, std::move(value));
}

void set_setting_default(std::string_view section, std::string_view name, std::string value) {
  registry().change_default(section, name, std::move(value));
}

void set_settings_source(SettingsSource source) { registry().plug(std::move(source)); }

std::optional<std::string> load_settings_file(std::string_view path) {
  std::string error = registry().use_file(std::string(path));
  if (error.empty()) return std::nullopt;
  return error;
}

SettingsText parse_settings(std::string_view text) {
  SettingsText result;
  std::string section;
  int line_number = 0;
  const auto fail = [&](std::string_view reason) {
    return SettingsText{{}, "line " + std::to_string(line_number) + ": " + std::string(reason)};
  };
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);  // the mark that editors on Windows write
  while (!text.empty()) {
    ++line_number;
    const std::size_t end = text.find('\n');
    const std::string_view line = trimmed(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.empty() || line.front() == '#' || line.front() == ';') continue;
    if (line.find('\0') != std::string_view::npos) return fail("a NUL byte");
    if (!is_valid_utf8(line)) return fail("not valid UTF-8");
    if (line.front() == '[') {
      if (line.back() != ']') return fail("\"]\" is missing after the section's name");
      section = name_from_utf8(trimmed(line.substr(1, line.size() - 2)));
      if (section.empty()) return fail("a section without a name");
      continue;
    }
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) return fail("neither \"[Section]\" nor \"Name = value\"");
    if (section.empty()) return fail("a setting before the first \"[Section]\"");
    const std::string_view name = trimmed(line.substr(0, equals));
    if (name.empty()) return fail("a setting without a name");
    result.entries.push_back({section, name_from_utf8(name), name_from_utf8(trimmed(line.substr(equals + 1)))});
  }
  return result;
}

std::string environment_name(std::string_view section, std::string_view name) {
  std::string variable(kVariablePrefix);
  const auto append = [&variable](std::string_view text) {
    for (const char c : text) {
      switch (lower_case(c)) {
        case '\xE4': variable += "AE"; break;
        case '\xF6': variable += "OE"; break;
        case '\xFC': variable += "UE"; break;
        case '\xDF': variable += "SS"; break;
        default: {
          const char lower = lower_case(c);
          if (lower >= 'a' && lower <= 'z') variable += static_cast<char>(lower - 'a' + 'A');
          else variable += is_digit(c) ? c : '_';
        }
      }
    }
  };
  append(section);
  variable += '_';
  append(name);
  return variable;
}

}  // namespace yinet
