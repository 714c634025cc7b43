// SOAP_EXECUTEFUNCTION: one operation of a web service.

#include <array>

#include "yinet/host/codepage.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/yjson.h"
#include "yinet/host/ylog.h"
#include "yinet/host/yobject.h"
#include "yinet/http/soap_call.h"
#include "yinet/script/families.h"
#include "yinet/script/functions.h"
#include "yinet/script/parameter_keys.h"
#include "yinet/script/script_frame.h"
#include "yinet/script/table_rows.h"

namespace yinet {
namespace {

std::string text_form(const YObject& record) {
  return debug_traces() ? ansi_from_utf8_lossy(YJSON::Write(record)) : std::string();
}

YObject* record_parameter(YObject& parameters, std::string_view key) {
  auto* record = parameters.Find<YObject>(key);
  if (!record) YLog.Event(message::kErrorLevel, message::kSoapParameterMissing, key);
  return record;
}

void soap_execute_function(YObject& parameters) {
  store_result(parameters, false);
  const YObject* call = record_parameter(parameters, key::kSoapCall);
  YObject* answer = call ? record_parameter(parameters, key::kSoapAnswer) : nullptr;
  if (!answer) return;
  YLog.DebugStart(kSoapTraceChannel, message::kSoapTrace, text_form(*call));
  answer->Clear();
  const bool done = execute_soap_call(*call, *answer);
  YLog.DebugEnd(kSoapTraceChannel, message::kSoapTrace, text_form(*answer));
  store_result(parameters, done);
}

constexpr std::array kParameters = {
    ScriptParameter{.key = key::kSoapCall,
                    .type = kTypeObject,
                    .direction = Direction::in,
                    .default_value = "",
                    .meaning =
                        "ENDPOINT is the service's URL, NAMESPACE its namespace (services refuse calls without), BODY "
                        "holds one record, named like "
                        "the operation, with its parameters as texts; optional are HEADER, a record for the SOAP "
                        "header, and SOAPACTION, the value of that HTTP field."},
    ScriptParameter{.key = key::kSoapAnswer,
                    .type = kTypeObject,
                    .direction = Direction::out,
                    .default_value = "",
                    .meaning =
                        "The answer or the fault: elements by name, inner ones in records, repeated ones in arrays, "
                        "attributes as name@attribute."}};
constexpr auto kMessages = messages_with(kHttpMessages, message::kSoapRequestNotBuilt, message::kSoapAnswerNotXml,
                                         message::kSoapParameterMissing, message::kSoapAnswerUnreadable,
                                         message::kSoapTrace, message::kSoapRequestTrace);
constexpr std::array<std::string_view, 1> kExample = {
    R"(pParam:={"ENDPOINT": "http://127.0.0.1:8080/stock", "NAMESPACE": "urn:stock", "BODY": {"Count": {"Item": "4711"}}})"};
constexpr auto kFunctions = std::to_array<ScriptFunction>(
    {{"SOAP_EXECUTEFUNCTION", &SOAP_EXECUTEFUNCTION, "SOAP",
      "Calls one operation of a SOAP 1.1 web service over HTTP or HTTPS.", kParameters, kTypeBool,
      "True when the service answered with status 200 and its answer could be read.", kMessages, kExample}});

}  // namespace

std::span<const ScriptFunction> soap_functions() { return kFunctions; }

}  // namespace yinet

YINET_SCRIPT_FUNCTION(SOAP_EXECUTEFUNCTION, yinet::soap_execute_function)
