#include "yinet/http/soap_call.h"

#include "yinet/host/codepage.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/ylog.h"
#include "yinet/host/yobject.h"
#include "yinet/host/yxml.h"
#include "yinet/http/http.h"
#include "yinet/http/http_body.h"
#include "yinet/http/soap_envelope.h"

namespace yinet {
namespace {

constexpr std::string_view kContentType = "text/xml";

// The value is a quoted URI (SOAP 1.1, section 6.1.1), and servers insist on the quotes.
YString action_value(const YString& action) { return action.StartsWith("\"") ? action : "\"" + action + "\""; }

}  // namespace

bool execute_soap_call(const YObject& call, YObject& answer) {
  std::string request;
  if (const auto problem = write_soap_envelope(call, request)) {
    YLog.Event(message::kErrorLevel, message::kSoapRequestNotBuilt, *problem);
    return false;
  }
  if (debug_traces()) YLog.DebugEvent(kSoapTraceChannel, message::kSoapRequestTrace, ansi_from_utf8_lossy(request));

  HTTP http;
  if (call.Exist(soap::kAction)) http.set_request_field("SOAPAction", action_value(call.GetString(soap::kAction)));
  const YString endpoint = call.GetString(soap::kEndpoint);
  YBuffer body;
  YString content_type;
  YString status;
  const bool posted = http.POST(endpoint, YBuffer(request), YString(kContentType), body, content_type, status);
  if (media_type(content_type) != kContentType) {
    YLog.Event(message::kErrorLevel, message::kSoapAnswerNotXml, endpoint, content_type);
    return false;
  }
  if (body.Size() == 0) return posted;
  if (const auto error = YXml::Parse(body.view(), answer, charset_parameter(content_type))) {
    YLog.Event(message::kErrorLevel, message::kSoapAnswerUnreadable, endpoint, error->reason,
               std::to_string(error->position));
    return false;
  }
  return posted;
}

}  // namespace yinet
