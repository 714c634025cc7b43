#include "yinet/script/function_table.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <set>
#include <string>

#include "yinet/host/messages.h"
#include "yinet/host/text.h"
#include "yinet/host/yobject.h"
#include "yinet/script/call_function.h"

namespace yinet {
namespace {

bool is_plain_sentence(std::string_view text) {
  return !text.empty() && text.ends_with('.') && std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

TEST(FunctionTable, RowsAreUniqueAndComplete) {
  std::set<std::string> names;
  for (const ScriptFunction& function : all_script_functions()) {
    SCOPED_TRACE(function.name);
    EXPECT_TRUE(names.insert(to_lower(function.name)).second);
    EXPECT_EQ(function.name, to_upper(function.name));
    EXPECT_EQ(find_script_function(to_lower(function.name)), &function);
    EXPECT_NE(function.entry, nullptr);
    EXPECT_TRUE(is_plain_sentence(function.summary)) << function.summary;
    EXPECT_TRUE(is_plain_sentence(function.result_meaning)) << function.result_meaning;
    for (const int number : function.messages) EXPECT_NE(find_message(number), nullptr) << number;
    std::set<std::string> keys;
    for (const ScriptParameter& parameter : function.parameters) {
      EXPECT_TRUE(keys.insert(to_lower(parameter.key)).second) << parameter.key;
      EXPECT_TRUE(parameter.key.starts_with('p')) << parameter.key;
      EXPECT_TRUE(is_plain_sentence(parameter.meaning)) << parameter.key;
      EXPECT_NE(type_name(parameter.type), type_name(kTypeAny)) << parameter.key;
      const std::string_view names = parameter.type == kTypeObject ? parameter.meaning : parameter.key;  // a record's keys
      EXPECT_EQ(parameter.secret, find_ignoring_case(names, "passw") != std::string_view::npos) << parameter.key;
      EXPECT_EQ(find_parameter(function, to_upper(parameter.key)), &parameter);
    }
  }
}

// What the row promises must hold for the function itself: defaults and example are values that it takes.
TEST(FunctionTable, DefaultsAndExamplesFitTheParameters) {
  for (const ScriptFunction& function : all_script_functions()) {
    SCOPED_TRACE(function.name);
    YObject record;
    for (const ScriptParameter& parameter : function.parameters)
      if (!parameter.default_value.empty()) record.StoreText(parameter.key, parameter.default_value);
    EXPECT_EQ(fit_parameters(function, record), std::nullopt);
    YObject example;
    for (const std::string_view argument : function.example) {
      const std::size_t equals = argument.find_first_of(":=");
      ASSERT_NE(equals, std::string_view::npos) << argument;
      EXPECT_NE(find_parameter(function, argument.substr(0, equals)), nullptr) << argument;
    }
  }
}

}  // namespace
}  // namespace yinet
