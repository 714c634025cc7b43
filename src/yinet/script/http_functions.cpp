// HTTP_GET and HTTP_POST: one request each, with the body of the reply left in a temporary file.

#include <array>

#include "yinet/host/message_numbers.h"
#include "yinet/host/ybuffer.h"
#include "yinet/host/yobject.h"
#include "yinet/http/http.h"
#include "yinet/script/families.h"
#include "yinet/script/functions.h"
#include "yinet/script/parameter_keys.h"
#include "yinet/script/response_file.h"
#include "yinet/script/script_frame.h"
#include "yinet/script/table_rows.h"

namespace yinet {
namespace {

// "_RETV" stays true when the file can't be written: the request itself has succeeded.
void store_body(YObject& parameters, const YBuffer& body) {
  if (!parameters.GetBool(key::kResult)) return;
  if (auto name = write_response_file(body.view())) parameters.Store<YString>(key::kResponseFile, std::move(*name));
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

constexpr ScriptParameter kUrlRow =
    in_text(key::kUrl, "The address, http:// or https://; without a scheme it is read as one of plain HTTP.");
constexpr ScriptParameter kStatusRow =
    out_text(key::kStatus, "Status line of the reply without its first word, such as \"404 Not Found\".");
constexpr ScriptParameter kResponseFileRow =
    out_text(key::kResponseFile, "Name of a new temporary file with the body of the reply; stored on success only.");

constexpr std::array kGetParameters = {kUrlRow, kStatusRow, kResponseFileRow};
constexpr std::array kPostParameters = {
    kUrlRow, in_text_or_buffer(key::kContent, "The body to send, as text or as a buffer of bytes."),
    in_text(key::kContentType, "Media type of the body that is sent.", "text/plain"), kStatusRow, kResponseFileRow};

constexpr std::string_view kResultMeaning = "True when the server answered with status 200.";
constexpr auto kMessages =
    messages_with(kHttpMessages, message::kTemporaryFolderUnusable, message::kHttpResponseFileFailed);
constexpr std::array<std::string_view, 1> kGetExample = {"pUrl=https://www.example.com/"};
constexpr std::array<std::string_view, 3> kPostExample = {"pUrl=https://www.example.com/form", "pContent=name=value",
                                                          "pContentType=application/x-www-form-urlencoded"};
constexpr auto kFunctions = std::to_array<ScriptFunction>(
    {{"HTTP_GET", &HTTP_GET, "HTTP", "Fetches a document by HTTP or HTTPS into a temporary file.", kGetParameters,
      kTypeBool, kResultMeaning, kMessages, kGetExample},
     {"HTTP_POST", &HTTP_POST, "HTTP", "Sends content by HTTP or HTTPS and keeps the reply in a temporary file.",
      kPostParameters, kTypeBool, kResultMeaning, kMessages, kPostExample}});

}  // namespace

std::span<const ScriptFunction> http_functions() { return kFunctions; }

}  // namespace yinet

YINET_SCRIPT_FUNCTION(HTTP_GET, yinet::http_get)
YINET_SCRIPT_FUNCTION(HTTP_POST, yinet::http_post)
