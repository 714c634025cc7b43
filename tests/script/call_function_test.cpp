#include "yinet/script/call_function.h"

#include <gmock/gmock.h>

#include "yinet/host/yjson.h"
#include "yinet/script/yinet_call.h"

namespace yinet {
namespace {

using testing::HasSubstr;

constexpr ScriptParameter takes(std::string_view key, std::uint8_t type, std::uint8_t other_type = 0) {
  return {
      .key = key, .type = type, .direction = Direction::in, .default_value = {}, .meaning = {}, .other_type = other_type};
}

constexpr ScriptParameter kParameters[] = {
    takes("pText", kTypeString), takes("pNumber", kTypeInteger), takes("pFlag", kTypeBool), takes("pBytes", kTypeBuffer),
    takes("pDate", kTypeDateTime), takes("pRecord", kTypeObject), takes("pRecords", kTypeObjectArray),
    takes("pEither", kTypeString, kTypeBuffer)};

ScriptFunction test_function() {
  ScriptFunction function{};
  function.name = "TEST";
  function.parameters = kParameters;
  return function;
}

// The record after it was fitted, as JSON; the problem instead when there is one.
std::string fitted(std::string_view json) {
  YObject record;
  if (const auto error = YJSON::Parse(json, record)) return error->reason;
  if (const auto problem = fit_parameters(test_function(), record)) return *problem;
  return YJSON::Write(record);
}

TEST(FitParameters, ValuesBecomeWhatTheTableSaysOrAreToldAsWrong) {
  using Case = std::pair<std::string_view, std::string_view>;
  for (const auto& [given, expected] : {
           Case{R"({"pNumber":" +7 "})", R"({"pNumber":7})"},
           Case{R"({"pFlag":"Ja"})", R"({"pFlag":true})"},
           Case{R"({"pText":{"$base64":"AAE="}})", R"({"pText":"\u0000\u0001"})"},
           Case{R"({"pBytes":"abc"})", R"({"pBytes":{"$base64":"YWJj"}})"},
           Case{R"({"pEither":{"$base64":"YWJj"}})", R"({"pEither":{"$base64":"YWJj"}})"},
           Case{R"({"pEither":5})", R"({"pEither":"5"})"},
           Case{R"({"pText":null})", R"({"pText":null})"},
           Case{R"({"PTEXT":"x","_RETV":5})", R"({"PTEXT":"x","_RETV":5})"},
           Case{R"({"pNumber":"+-5"})", R"(pNumber needs an integer, not "+-5")"},
           Case{R"({"pNumber":""})", "pNumber needs an integer, not a text"},
           Case{R"({"pFlag":2})", R"(pFlag needs a bool, not "2")"},
           Case{R"({"pBytes":5})", R"(pBytes needs a buffer, not "5")"},
           Case{R"({"pDate":"gestern"})", R"(pDate needs a date-time, not "gestern")"},
           Case{R"({"pRecord":"x"})", R"(pRecord needs a record, not "x")"},
           Case{R"({"pTxt":"x"})", R"(TEST has no parameter "pTxt"; did you mean pText?)"},
       })
    EXPECT_EQ(fitted(given), expected);
}

// What the C interface answers, with its status in front.
std::string c_call(const char* function, const char* json) {
  char* answer = nullptr;
  const int status = yinet_call(function, json, &answer);
  const std::string told = std::to_string(status) + " " + (answer ? answer : "null");
  yinet_free(answer);
  return told;
}

TEST(CInterface, AnswersInJsonWhateverItIsGiven) {
  for (const char* json : {static_cast<const char*>(nullptr), "", "{}", R"({"_RETV":false})"})
    EXPECT_EQ(c_call("SecureSocketGlobalSSLInit", json), "0 {}");
  EXPECT_EQ(c_call("mime_dekodiere", R"({"pEMLDatei": "/nowhere/\u00fc"})"),
            "1 {\"pEMLDatei\":\"/nowhere/\xC3\xBC\",\"pMail\":{},\"_RETV\":false}");
  EXPECT_THAT(c_call(nullptr, nullptr), testing::StartsWith(R"(2 {"error":"no script function is named \"\"; did you)"));
  EXPECT_THAT(c_call("HTTP_GTE", "{}"), HasSubstr("did you mean HTTP_GET?"));
  EXPECT_THAT(c_call("SECURESOCKETGLOBALSSLINIT", R"({"pUrl":""})"), HasSubstr("; it takes none"));
  EXPECT_THAT(c_call("HTTP_GET", "{\"a\":"), HasSubstr("at byte"));
  EXPECT_EQ(c_call("SOAP_EXECUTEFUNCTION", R"({"pParam":{}})"), R"(1 {"pParam":{},"pErg":{},"_RETV":false})");
  EXPECT_EQ(yinet_call("SECURESOCKETGLOBALSSLINIT", "{}", nullptr), YINET_SUCCEEDED);
  yinet_free(nullptr);
}

}  // namespace
}  // namespace yinet
