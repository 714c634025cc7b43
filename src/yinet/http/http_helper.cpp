#include "yinet/http/http_helper.h"

#include <algorithm>

#include "yinet/host/contained.h"
#include "yinet/host/text.h"
#include "yinet/http/http_body.h"
#include "yinet/http/http_message.h"

constinit HttpHelper_class HttpHelper;

namespace {

using yinet::contained;

constexpr std::size_t kNone = std::string_view::npos;

template <typename... Outputs>
void clear(Outputs*... outputs) {
  ((outputs ? outputs->Clear() : void()), ...);
}

void give(YString* output, std::string_view text) {
  if (output) *output = YString(text);
}

bool is_quoted(std::string_view text) {
  return text.size() >= 2 && text.front() == text.back() && (text.front() == '"' || text.front() == '\'');
}

bool store_parameter(std::string_view item, YObject* parameters) {
  const std::size_t equals = std::min(item.find('='), item.size());
  std::string_view value = yinet::trimmed(item.substr(std::min(equals + 1, item.size())));
  if (is_quoted(value)) value = value.substr(1, value.size() - 2);
  else if (value.find('=') != kNone) return false;
  if (parameters) parameters->StoreText(yinet::trimmed(item.substr(0, equals)), value);
  return true;
}

}  // namespace

bool HttpHelper_class::ExtractMessageParts(const YBuffer& message, YString* header, YBuffer* body) const noexcept {
  return contained(false, [&] {
    const bool in_place = body == &message;
    clear(header, in_place ? nullptr : body);
    const auto halves = yinet::split_message(message.view());
    if (!halves) return false;
    give(header, halves->header);
    if (in_place) {
      const auto size = static_cast<long>(halves->body.size());
      body->Move(0, body->Size() - size, size);
      body->SetSize(size);
    } else if (body) {
      body->Add(halves->body);
    }
    return true;
  });
}

bool HttpHelper_class::ParseRequestStartLine(const YString& startLine, YString* method, YString* path,
                                             YObject* query) const noexcept {
  return contained(false, [&] {
    clear(method, path, query);
    std::string_view line = startLine;
    const std::size_t version = yinet::find_ignoring_case(line, " HTTP/");
    if (version == kNone || version == 0) return false;
    line = line.substr(0, version);
    const std::string_view word = line.substr(0, line.find(' '));
    if (word.empty()) return false;
    give(method, word);
    line.remove_prefix(word.size());
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    const std::size_t question = std::min(line.find('?'), line.size());
    give(path, yinet::percent_decoded(line.substr(0, question)));
    if (!query || question == line.size()) return true;
    return yinet::for_each_query_pair(line.substr(question + 1), [query](const std::string& name, std::string value) {
      query->Store<YString>(name, YString(std::move(value)));
      return true;
    });
  });
}

bool HttpHelper_class::ParseResponseStartLine(const YString& startLine, int* status) const noexcept {
  return contained(false, [&] {
    constexpr std::string_view kProtocol = "HTTP";
    if (status) *status = -1;
    std::string_view line = startLine;
    if (!yinet::starts_with_ignoring_case(line, kProtocol)) return false;
    const std::size_t blank = line.find(' ', kProtocol.size());
    const std::size_t digits = blank == kNone ? kNone : line.find_first_not_of(' ', blank);
    if (digits == kNone) return false;
    const int number = yinet::leading_int32(line.substr(digits, line.find(' ', digits) - digits));
    if (status) *status = number;
    return number != 0;
  });
}

bool HttpHelper_class::ParseHeader(YString header, YString* startLine, YObject* fields) const noexcept {
  return contained(false, [&] {
    clear(startLine, fields);
    std::string_view text = header;
    if (text.empty()) return true;
    const std::string_view first = text.substr(0, text.find_first_of("\r\n"));
    // Absolute request URLs have a colon; those of other methods are taken for a field, and relied on as that.
    if (first.find(':') == kNone || yinet::starts_with_ignoring_case(text, "GET ")) {
      if (first.empty()) return false;
      give(startLine, first);
      text.remove_prefix(first.size());
    }
    YObject unwanted;
    return yinet::parse_field_lines(text, fields ? *fields : unwanted);
  });
}

bool HttpHelper_class::ParseHeaderValue(const YString& value, YString* main, YObject* parameters) const noexcept {
  return contained(false, [&] {
    clear(main, parameters);
    std::string_view rest = value;
    const std::size_t first = std::min(rest.find(';'), rest.size());
    give(main, yinet::trimmed(rest.substr(0, first)));
    rest.remove_prefix(first);
    while (!rest.empty()) {
      rest.remove_prefix(1);
      const std::size_t end = std::min(rest.find(';'), rest.size());
      const std::string_view item = rest.substr(0, end);
      // Nothing between two ";", as behind the last one, is no parameter.
      if (!yinet::trimmed(item).empty() && !store_parameter(item, parameters)) return false;
      rest.remove_prefix(end);
    }
    return true;
  });
}

YString HttpHelper_class::CreateHeader(const YObject& fields) const noexcept {
  return contained(YString(), [&] { return YString(yinet::field_lines(fields).value_or(std::string())); });
}

bool HttpHelper_class::ParseBody(const YString& contentType, const YBuffer& body, YObject* fields) const noexcept {
  return contained(false, [&] {
    YObject unwanted;
    clear(fields);
    return yinet::parse_http_body(contentType, body.view(), fields ? *fields : unwanted);
  });
}
