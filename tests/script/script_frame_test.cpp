#include "yinet/script/script_frame.h"

#include <gmock/gmock.h>

#include <stdexcept>

#include "support/log_capture.h"
#include "yinet/host/messages.h"
#include "yinet/host/yjson.h"
#include "yinet/script/function_table.h"
#include "yinet/script/parameter_keys.h"

namespace yinet {
namespace {

TEST(ScriptFrame, TheBodyWorksOnTheFirstRecordOfTheBlock) {
  YObject block;
  block.Ensure<YObject>("first").StoreText("pIn", "x");
  run_script_function("TEST", &block, [](YObject& parameters) {
    live_text(parameters, key::kStatus) = "saw " + parameters.GetString("pIn");
    store_result(parameters, true);
  });
  YObject& parameters = *block.Find<YObject>("first");
  EXPECT_EQ(live_text(parameters, key::kStatus), "saw x");
  EXPECT_TRUE(*parameters.Find<bool>(key::kResult));
  parameters.Store<std::int32_t>("pNumber", 7);
  EXPECT_EQ(live_text(parameters, "pNumber"), "") << "other types are replaced";
  EXPECT_EQ(&live_text(parameters, "pNumber"), parameters.Find<YString>("pNumber"));
}

TEST(ScriptFrame, NothingIsThrownIntoTheHost) {
  LogCapture log;
  YObject block;
  YObject& parameters = block.Ensure<YObject>("p");
  run_script_function("HTTP_GET", &block, [](YObject& record) {
    store_result(record, true);
    throw std::runtime_error("the reason");
  });
  EXPECT_FALSE(*parameters.Find<bool>(key::kResult));
  EXPECT_THAT(log.records()[0].text, testing::AllOf(testing::HasSubstr("HTTP_GET"), testing::HasSubstr("the reason")));
  run_script_function("HTTP_GET", &block, [](YObject&) { throw 1; });
  run_guarded("X", [] { throw std::bad_alloc(); });
  EXPECT_EQ(log.numbers(), std::vector<int>(3, message::kScriptFunctionFailed));
}

TEST(ScriptFunctions, SurviveBlocksWithoutARecordAndWriteNothing) {
  LogCapture log;
  for (const ScriptFunction& function : all_script_functions()) {
    function.entry(nullptr);
    YObject block;
    function.entry(&block);
    block.Ensure<YObject>(0);  // an integer key: not the first entry under a string key
    block.StoreText("first", "no record");
    block.Ensure<YObject>("second");
    function.entry(&block);
    EXPECT_EQ(YJSON::Write(block), R"({"first":"no record","second":{}})") << function.name;
    EXPECT_TRUE(block.Find<YObject>(0)->IsEmpty()) << function.name;
  }
  EXPECT_TRUE(log.numbers().empty());
}

}  // namespace
}  // namespace yinet
