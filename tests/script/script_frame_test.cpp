#include "yinet/script/script_frame.h"

#include <gmock/gmock.h>

#include <stdexcept>

#include "support/log_capture.h"
#include "yinet/host/messages.h"
#include "yinet/script/function_table.h"
#include "yinet/script/functions.h"
#include "yinet/script/parameter_keys.h"

namespace yinet {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(ScriptFrame, TheBodyWorksOnTheFirstRecordOfTheBlock) {
  YObject block;
  block.Ensure<YObject>("first").StoreText("pIn", "x");
  block.Ensure<YObject>("second");
  run_script_function("TEST", &block, [](YObject& parameters) {
    live_text(parameters, key::kStatus) = "saw " + parameters.GetString("pIn");
    store_result(parameters, true);
  });
  EXPECT_EQ(block.Find<YObject>("first")->GetString(key::kStatus), "saw x");
  EXPECT_TRUE(*block.Find<YObject>("first")->Find<bool>(key::kResult));
  EXPECT_EQ(block.Find<YObject>("second")->GetStringKeyCount(), 0);
}

TEST(ScriptFrame, LiveTextKeepsWhatTheScriptSuppliedAndReplacesOtherTypes) {
  YObject parameters;
  parameters.StoreText("pStatus", "kept");
  EXPECT_EQ(&live_text(parameters, "pStatus"), parameters.Find<YString>("pStatus"));
  EXPECT_EQ(live_text(parameters, "pStatus"), "kept");
  parameters.Store<std::int32_t>("pNumber", 7);
  EXPECT_EQ(live_text(parameters, "pNumber"), "");
  EXPECT_EQ(parameters.GetType("pNumber"), kTypeString);
  EXPECT_EQ(live_text(parameters, "pNew"), "");
  EXPECT_EQ(parameters.GetType("pNew"), kTypeString);
}

TEST(ScriptFrame, NothingIsThrownIntoTheHost) {
  LogCapture log;
  YObject block;
  YObject& parameters = block.Ensure<YObject>("p");
  run_script_function("HTTP_GET", &block, [](YObject& record) {
    store_result(record, true);
    throw std::runtime_error("the reason");
  });
  ASSERT_NE(parameters.Find<bool>(key::kResult), nullptr);
  EXPECT_FALSE(*parameters.Find<bool>(key::kResult));
  run_script_function("HTTP_GET", &block, [](YObject&) { throw 1; });
  run_guarded("X", [] { throw std::bad_alloc(); });
  EXPECT_THAT(log.numbers(), ElementsAre(message::kScriptFunctionFailed, message::kScriptFunctionFailed,
                                         message::kScriptFunctionFailed));
  EXPECT_THAT(log.records()[0].text, testing::AllOf(testing::HasSubstr("HTTP_GET"), testing::HasSubstr("the reason")));
}

TEST(ScriptFunctions, SurviveBlocksWithoutARecordAndWriteNothing) {
  LogCapture log;
  ASSERT_FALSE(all_script_functions().empty());
  for (const ScriptFunction& function : all_script_functions()) {
    SCOPED_TRACE(function.name);
    function.entry(nullptr);
    YObject empty;
    function.entry(&empty);
    EXPECT_EQ(empty.GetStringKeyCount(), 0);
    YObject text;
    text.StoreText("first", "no record");
    text.Ensure<YObject>("second");
    function.entry(&text);
    EXPECT_EQ(text.GetStringKeyCount(), 2);
    EXPECT_EQ(text.Find<YObject>("second")->GetStringKeyCount(), 0);
    YObject by_number;
    by_number.Ensure<YObject>(0);  // an integer key: not the first entry under a string key
    function.entry(&by_number);
    EXPECT_EQ(by_number.Find<YObject>(0)->GetStringKeyCount(), 0);
  }
  EXPECT_THAT(log.numbers(), IsEmpty());
}

TEST(ScriptFunctions, TlsSetUpSetsNothing) {
  YObject block;
  YObject& parameters = block.Ensure<YObject>("p");
  SECURESOCKETGLOBALSSLINIT(&block);
  EXPECT_EQ(parameters.GetStringKeyCount(), 0);
}

}  // namespace
}  // namespace yinet
