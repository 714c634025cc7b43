// HTTP_GET and HTTP_POST: one request each, with the body of the reply left in a temporary file.

#include <array>

#include "yinet/host/message_numbers.h"
#include "yinet/host/ybuffer.h"
#include "yinet/host/yobject.h"
#include "yinet/http/http.h"
#include "yinet/http/http_body_file.h"
#include "yinet/script/families.h"
#include "yinet/script/functions.h"
#include "yinet/script/parameter_keys.h"
#include "yinet/script/script_frame.h"

namespace yinet {
namespace {

// "_RETV" stays true when the file can't be written: the request itself has succeeded.
void store_body(YObject& parameters, const YBuffer& body) {
  if (!parameters.GetBool(key::kResult)) return;
  if (auto name = write_body_file(body.view())) parameters.Store<YString>(key::kResponseFile, std::move(*name));
}

void http_get(YObject& parameters) {
  YString& status = live_text(parameters, key::kStatus);
  HTTP http;
  YBuffer body;
  YString content_type;
  store_result(parameters, http.Get(parameters.GetString(key::kUrl), body, content_type, status));
  store_body(parameters, body);
}

YBuffer content_of(const YObject& parameters) {
  if (const auto* bytes = parameters.Find<YBuffer>(key::kContent)) return *bytes;
  if (const auto* text = parameters.Find<YString>(key::kContent)) return YBuffer(std::string_view(*text));
  return {};
}

void http_post(YObject& parameters) {
  YString& status = live_text(parameters, key::kStatus);
  HTTP http;
  YBuffer body;
  YString response_content_type;
  store_result(parameters, http.POST(parameters.GetString(key::kUrl), content_of(parameters),
                                     parameters.GetString(key::kContentType), body, response_content_type, status));
  store_body(parameters, body);
}

constexpr ScriptParameter kUrlParameter{
    .key = key::kUrl,
    .type = kTypeString,
    .direction = Direction::in,
    .default_value = "",
    .meaning = "The address, http:// or https://; without a scheme it is read as one of plain HTTP."};
constexpr ScriptParameter kStatusParameter{
    .key = key::kStatus,
    .type = kTypeString,
    .direction = Direction::out,
    .default_value = "",
    .meaning = "Status line of the reply without its first word, such as \"404 Not Found\"."};
constexpr ScriptParameter kResponseFileParameter{
    .key = key::kResponseFile,
    .type = kTypeString,
    .direction = Direction::out,
    .default_value = "",
    .meaning = "Name of a new temporary file with the body of the reply; stored on success only."};

constexpr std::array kGetParameters = {kUrlParameter, kStatusParameter, kResponseFileParameter};
constexpr std::array kPostParameters = {kUrlParameter,
                                        ScriptParameter{.key = key::kContent,
                                                        .type = kTypeString,
                                                        .direction = Direction::in,
                                                        .default_value = "",
                                                        .meaning = "The body to send, as text or as a buffer of bytes.",
                                                        .other_type = kTypeBuffer},
                                        ScriptParameter{.key = key::kContentType,
                                                        .type = kTypeString,
                                                        .direction = Direction::in,
                                                        .default_value = "text/plain",
                                                        .meaning = "Media type of the body that is sent."},
                                        kStatusParameter, kResponseFileParameter};

constexpr std::string_view kResultMeaning = "True when the server answered with status 200.";
constexpr std::array kMessages = {
    message::kScriptFunctionFailed, message::kTemporaryFolderUnusable, message::kConnectFailed,
    message::kHandshakeStepFailed,  message::kCertificateRejected,     message::kTlsContextFailed,
    message::kTlsConnectFailed,     message::kConnectTlsFailed,        message::kReceiveBufferFailed,
    message::kSendBufferFailed,     message::kSendBufferGaveUp,        message::kHttpConnectFailed,
    message::kHttpSendFailed,       message::kHttpReceiveFailed,       message::kHttpServerSilent,
    message::kHttpLineBreakRefused, message::kHttpResponseFileFailed,  message::kHttpReplyTooLarge};
constexpr std::array<std::string_view, 1> kGetExample = {"pUrl=https://www.example.com/"};
constexpr std::array<std::string_view, 3> kPostExample = {"pUrl=https://www.example.com/form", "pContent=name=value",
                                                          "pContentType=application/x-www-form-urlencoded"};
constexpr std::array kFunctions = {
    ScriptFunction{.name = "HTTP_GET",
                   .entry = &HTTP_GET,
                   .family = "HTTP",
                   .summary = "Fetches a document by HTTP or HTTPS into a temporary file.",
                   .parameters = kGetParameters,
                   .result_type = kTypeBool,
                   .result_meaning = kResultMeaning,
                   .messages = kMessages,
                   .example = kGetExample},
    ScriptFunction{.name = "HTTP_POST",
                   .entry = &HTTP_POST,
                   .family = "HTTP",
                   .summary = "Sends content by HTTP or HTTPS and keeps the reply in a temporary file.",
                   .parameters = kPostParameters,
                   .result_type = kTypeBool,
                   .result_meaning = kResultMeaning,
                   .messages = kMessages,
                   .example = kPostExample}};

}  // namespace

std::span<const ScriptFunction> http_functions() { return kFunctions; }

}  // namespace yinet

void HTTP_GET(YObject* arguments) { yinet::run_script_function("HTTP_GET", arguments, yinet::http_get); }
void HTTP_POST(YObject* arguments) { yinet::run_script_function("HTTP_POST", arguments, yinet::http_post); }
