#include <gmock/gmock.h>

#include <stdexcept>

#include "support/log_capture.h"
#include "yinet/host/yscript.h"

namespace yinet {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class ScriptEngineTest : public testing::Test {
 protected:
  void TearDown() override { register_script_function("Test", "Tu", nullptr); }
  LogCapture log_;
  YObject parameters_;
};

TEST_F(ScriptEngineTest, RunsARegisteredFunctionWhateverTheCase) {
  register_script_function("Test", "L\xF6sche", [](YObject& p) { p.StoreText("pErgebnis", "gel\xF6scht"); });
  EXPECT_TRUE(YScript.ExecuteFunction("TEST", "L\xD6SCHE", 0, &parameters_));
  EXPECT_EQ(parameters_.GetString("pErgebnis"), "gel\xF6scht");
  EXPECT_TRUE(log_.records().empty());
  register_script_function("test", "l\xF6sche", nullptr);
  EXPECT_FALSE(has_script_function("Test", "L\xF6sche"));
}

TEST_F(ScriptEngineTest, UnknownClassOrFunctionIsALoggedError) {
  register_script_function("Test", "Tu", [](YObject&) {});
  EXPECT_FALSE(YScript.ExecuteFunction("Niemand", "Tu", 0, &parameters_));
  EXPECT_FALSE(YScript.ExecuteFunction("TestTu", "", 0, &parameters_));
  EXPECT_THAT(log_.numbers(), ElementsAre(21002, 21002));
  EXPECT_EQ(log_.last(21002).text, "The script class TestTu or its function  is not known.");
}

TEST_F(ScriptEngineTest, AFailingFunctionIsALoggedErrorWithItsReason) {
  register_script_function("Test", "Tu", [](YObject&) { throw std::runtime_error("kaputt"); });
  EXPECT_FALSE(YScript.ExecuteFunction("Test", "Tu", 0, &parameters_));
  EXPECT_THAT(log_.last(21003).text, HasSubstr("kaputt"));
  register_script_function("Test", "Tu", [](YObject&) { throw 1; });
  EXPECT_FALSE(YScript.ExecuteFunction("Test", "Tu", 0, &parameters_));
  EXPECT_FALSE(YScript.ExecuteFunction("Test", "Tu", 0, nullptr));
  EXPECT_THAT(log_.numbers(), ElementsAre(21003, 21003, 21003));
}

TEST_F(ScriptEngineTest, AFunctionMayReplaceItselfWhileItRuns) {
  register_script_function("Test", "Tu", [text = std::string(100, 'x')](YObject& p) {
    register_script_function("Test", "Tu", [](YObject& q) { q.StoreText("wer", "neu"); });
    p.StoreText("wer", text);  // what the closure holds must still be there
  });
  EXPECT_TRUE(YScript.ExecuteFunction("Test", "Tu", 0, &parameters_));
  EXPECT_EQ(parameters_.GetString("wer").Length(), 100);
  EXPECT_TRUE(YScript.ExecuteFunction("Test", "Tu", 0, &parameters_));
  EXPECT_EQ(parameters_.GetString("wer"), "neu");
}

}  // namespace
}  // namespace yinet
