// The table of all script functions, the frame around each of them, values fitted to the table, the C interface.

#include <gmock/gmock.h>

#include <stdexcept>

#include "support/log_capture.h"
#include "yinet/script/script_frame.h"
#include "yinet/yinet.h"

namespace yinet {
namespace {

using testing::HasSubstr;

TEST(FunctionTable, RowsAreUniqueCompleteAndTrue) {
  for (const ScriptFunction& function : all_script_functions()) {
    SCOPED_TRACE(function.name);
    EXPECT_EQ(function.name, to_upper(function.name));
    EXPECT_EQ(find_script_function(to_lower(function.name)), &function) << "not another row of that name";
    EXPECT_TRUE(function.summary.ends_with('.') && function.result_meaning.ends_with('.'));
    for (const int number : function.messages) EXPECT_NE(find_message(number), nullptr) << number;
    YObject defaults;
    for (const ScriptParameter& parameter : function.parameters) {
      SCOPED_TRACE(parameter.key);
      EXPECT_TRUE(parameter.key.starts_with('p') && parameter.meaning.ends_with('.') && parameter.type != kTypeAny);
      const bool is_record = parameter.type == kTypeObject;  // whose meaning names its keys
      const auto password = find_ignoring_case(is_record ? parameter.meaning : parameter.key, "passw");
      EXPECT_EQ(parameter.secret, password != std::string_view::npos);
      EXPECT_EQ(find_parameter(function, to_upper(parameter.key)), &parameter);
      if (!parameter.default_value.empty()) defaults.StoreText(parameter.key, parameter.default_value);
    }
    EXPECT_EQ(fit_parameters(function, defaults), std::nullopt) << "defaults are values that it takes";
    for (const std::string_view argument : function.example)
      EXPECT_NE(find_parameter(function, argument.substr(0, argument.find_first_of(":="))), nullptr) << argument;
  }
}

TEST(ScriptFrame, TheBodyWorksOnTheFirstRecordAndThrowsNothingIntoTheHost) {
  const LogCapture log;
  YObject block;
  YObject& parameters = block.Ensure<YObject>("first");
  parameters.Store<std::int32_t>("pNumber", 7);
  run_script_function("HTTP_GET", &block, [](YObject& record) {
    live_text(record, key::kStatus) = "saw";
    live_text(record, "pNumber") += "new";  // another type is replaced
    store_result(record, true);
  });
  EXPECT_EQ(YJSON::Write(parameters), R"({"pNumber":"new","pStatus":"saw","_RETV":true})");
  run_script_function("HTTP_GET", &block, [](YObject&) { throw std::runtime_error("the reason"); });
  EXPECT_FALSE(*parameters.Find<bool>(key::kResult));
  EXPECT_THAT(log.records()[0].text, testing::AllOf(HasSubstr("HTTP_GET"), HasSubstr("the reason")));
  run_script_function("HTTP_GET", &block, [](YObject&) { throw 1; });
  run_guarded("X", [] { throw std::bad_alloc(); });
  EXPECT_EQ(log.numbers(), std::vector<int>(3, message::kScriptFunctionFailed));
}

TEST(ScriptFunctions, SurviveBlocksWithoutARecordAndWriteNothing) {
  const LogCapture log;
  for (const ScriptFunction& function : all_script_functions()) {
    function.entry(nullptr);
    YObject block;
    function.entry(&block);
    block.Ensure<YObject>(0);  // an integer key: not the first entry under a string key
    block.StoreText("first", "no record");
    block.Ensure<YObject>("second");
    function.entry(&block);
    EXPECT_EQ(YJSON::Write(block), R"({"first":"no record","second":{}})") << function.name;
    EXPECT_TRUE(block.Find<YObject>(0)->IsEmpty() && log.numbers().empty()) << function.name;
  }
}

TEST(FitParameters, ValuesBecomeWhatTheTableSaysOrAreToldWithTheProblem) {
  constexpr Direction in = Direction::in;
  const ScriptParameter parameters[] = {{"pText", kTypeString, in, {}, {}},
                                        {"pNumber", kTypeInteger, in, {}, {}},
                                        {"pFlag", kTypeBool, in, {}, {}},
                                        {"pBytes", kTypeBuffer, in, {}, {}},
                                        {"pDate", kTypeDateTime, in, {}, {}},
                                        {"pRecord", kTypeObject, in, {}, {}},
                                        {"pEither", kTypeString, in, {}, {}, kTypeBuffer}};
  ScriptFunction function{};
  function.name = "TEST";
  function.parameters = parameters;
  const std::pair<std::string_view, std::string_view> rows[] = {
      {R"({"pNumber":" +7 "})", R"({"pNumber":7})"},
      {R"({"pFlag":"Ja"})", R"({"pFlag":true})"},
      {R"({"pText":{"$base64":"AAE="}})", R"({"pText":"\u0000\u0001"})"},
      {R"({"pBytes":"abc"})", R"({"pBytes":{"$base64":"YWJj"}})"},
      {R"({"pText":5,"pEither":{"$base64":"YWJj"}})", R"({"pText":"5","pEither":{"$base64":"YWJj"}})"},
      {R"({"PTEXT":null,"_RETV":5})", R"({"PTEXT":null,"_RETV":5})"},
      {R"({"pNumber":"+-5"})", R"(pNumber needs an integer, not "+-5")"},
      {R"({"pDate":"gestern"})", R"(pDate needs a date-time, not "gestern")"},
      {R"({"pRecord":"x"})", R"(pRecord needs a record, not "x")"},
      {R"({"pNumber":[{}]})", "pNumber needs an integer, not records"},
      {R"({"pTxt":"x"})", R"(TEST has no parameter "pTxt"; did you mean pText?)"}};
  for (const auto& [given, expected] : rows) {
    YObject record;
    ASSERT_FALSE(YJSON::Parse(given, record)) << given;
    const auto problem = fit_parameters(function, record);
    EXPECT_EQ(problem ? *problem : YJSON::Write(record), expected);
  }
}

TEST(CInterface, AnswersInJsonWhateverItIsGiven) {
  const auto call = [](const char* function, const char* json) {  // the status, and the answer
    char* answer = nullptr;
    const int status = yinet_call(function, json, &answer);
    const std::string told = std::to_string(status) + " " + (answer ? answer : "null");
    yinet_free(answer);
    return told;
  };
  for (const char* json : {static_cast<const char*>(nullptr), "", "{}", R"({"_RETV":false})"})
    EXPECT_EQ(call("SecureSocketGlobalSSLInit", json), "0 {}");
  EXPECT_EQ(call("mime_dekodiere", R"({"pEMLDatei": "/nowhere/\u00fc"})"),
            "1 {\"pEMLDatei\":\"/nowhere/\xC3\xBC\",\"pMail\":{},\"_RETV\":false}");
  EXPECT_THAT(call(nullptr, nullptr), testing::StartsWith(R"(2 {"error":"no script function is named \"\"; did you)"));
  EXPECT_LT(call(std::string(1'000'000, 'a').c_str(), "").size(), 300U);
  EXPECT_LT(call("http_get", ("{\"" + std::string(1'000'000, 'a') + "\":1}").c_str()).size(), 300U);
  EXPECT_THAT(call("download", ""), HasSubstr("did you mean FTPS_DOWNLOADDATEI"));
  EXPECT_THAT(call("SECURESOCKETGLOBALSSLINIT", R"({"pUrl":""})"), HasSubstr("; it takes none"));
  EXPECT_EQ(yinet_call("SECURESOCKETGLOBALSSLINIT", "{}", nullptr), YINET_SUCCEEDED);
  yinet_free(nullptr);
}

}  // namespace
}  // namespace yinet
