#include <gmock/gmock.h>

#include <stdexcept>

#include "support/log_capture.h"
#include "yinet/host/yscript.h"

namespace yinet {
namespace {

TEST(ScriptEngine, RunsFunctionsWhateverTheCaseAndLogsWhatFails) {
  const LogCapture log;
  YObject parameters;
  register_script_function("Test", "L\xF6sche", [text = std::string(100, 'x')](YObject& p) {
    register_script_function("Test", "L\xF6sche", nullptr);  // while it runs: what the closure holds must still be there
    p.StoreText("pErgebnis", text);
  });
  EXPECT_TRUE(YScript.ExecuteFunction("TEST", "L\xD6SCHE", 0, &parameters));
  EXPECT_EQ(parameters.GetString("pErgebnis").Length(), 100);
  EXPECT_FALSE(YScript.ExecuteFunction("Test", "L\xF6sche", 0, &parameters));
  register_script_function("Test", "Tu", [](YObject&) { throw std::runtime_error("kaputt"); });
  EXPECT_FALSE(YScript.ExecuteFunction("TestTu", "", 0, &parameters));
  EXPECT_FALSE(YScript.ExecuteFunction("Test", "Tu", 0, &parameters));
  EXPECT_THAT(log.last(21003).text, testing::HasSubstr("kaputt"));
  register_script_function("Test", "Tu", [](YObject&) { throw 1; });
  EXPECT_FALSE(YScript.ExecuteFunction("Test", "Tu", 0, &parameters));
  EXPECT_FALSE(YScript.ExecuteFunction("Test", "Tu", 0, nullptr));
  EXPECT_THAT(log.numbers(), testing::ElementsAre(21002, 21002, 21003, 21003, 21003));
  register_script_function("Test", "Tu", nullptr);
}

}  // namespace
}  // namespace yinet
