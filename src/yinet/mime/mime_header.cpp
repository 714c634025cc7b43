// YMIMEMessage: from the header block of a part to the fields of its record.

#include <string>
#include <string_view>
#include <unordered_map>

#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/structured_value.h"
#include "yinet/host/text.h"
#include "yinet/host/ylog.h"
#include "yinet/mime/header_decoding.h"
#include "yinet/mime/mail_decode_state.h"
#include "yinet/mime/part_record.h"
#include "yinet/mime/ymime_message.h"

namespace {

using yinet::equal_ignoring_case;
using yinet::starts_with_ignoring_case;

constexpr int kTraceChannel = 2100;

// Stores fields under their names, repeated ones as "Received.2", "Received.3" ... Remembers where counting stopped, so
// that a hundred thousand equal names cost no more each than one.
class FieldStore {
 public:
  explicit FieldStore(YObject& record) : record_(record) {}

  std::string free_key(std::string_view name) {
    if (!record_.Exist(name)) return std::string(name);
    int& counter = counters_.try_emplace(yinet::to_lower(name), 2).first->second;
    for (;; ++counter) {
      std::string key = yinet::formatted("$1$.$2$", name, std::to_string(counter));
      if (!record_.Exist(key)) return key;
    }
  }

 private:
  YObject& record_;
  std::unordered_map<std::string, int> counters_;
};

// Address headers are left for the recipient parser, content headers for the splitting below. The last line of a block is
// decoded even when it is an address header.
bool is_decoded(std::string_view key, bool is_last) {
  if (starts_with_ignoring_case(key, "Content-")) return false;
  return is_last || (!equal_ignoring_case(key, "To") && !equal_ignoring_case(key, "CC"));
}

// How the parameters of one structured header become fields.
struct ParameterRule {
  std::string_view continuation;  // name whose "name*0*", "name*1*" ... are joined
  bool charset_as_is;             // a "charset" is stored without decoding
  int trace_before;
  int trace_after;
};
constexpr ParameterRule kContentTypeRule = {"name", true, yinet::message::kMailNameParameter,
                                            yinet::message::kMailNameParameterDecoded};
constexpr ParameterRule kDispositionRule = {"filename", false, yinet::message::kMailFileParameter,
                                            yinet::message::kMailFileParameterDecoded};

void store_decoded(YObject& record, std::string_view name, std::string_view value, const ParameterRule& rule) {
  YLog.DebugEvent(kTraceChannel, rule.trace_before, name, value);
  const YString& stored = record.StoreText(name, yinet::decode_header_value(value));
  YLog.DebugEvent(kTraceChannel, rule.trace_after, name, stored);
}

void store_parameters(YObject& record, const yinet::StructuredValue& value, const ParameterRule& rule) {
  const std::string continued_name = std::string(rule.continuation) + "*";
  std::string continued;
  for (const auto& parameter : value.parameters) {
    if (starts_with_ignoring_case(parameter.name, continued_name)) {
      continued += parameter.value;
    } else if (rule.charset_as_is && equal_ignoring_case(parameter.name, "charset")) {
      record.StoreText(parameter.name, parameter.value);
      YLog.DebugEvent(kTraceChannel, yinet::message::kMailCharsetParameter, parameter.name, parameter.value);
    } else {
      store_decoded(record, parameter.name, parameter.value, rule);
    }
  }
  if (!continued.empty()) store_decoded(record, rule.continuation, continued, rule);
}

std::string with_spaces_for_tabs(const YString& value) {
  YString text = value;
  text.ReplaceChar('\t', ' ');
  return std::move(text).str();
}

}  // namespace

int YMIMEMessage::m_GetItemCode(const YString& word) { return static_cast<int>(yinet::encoded_word_kind(word)); }

void YMIMEMessage::m_DecodeValue(YString& value) { value = YString(yinet::decode_header_value(value)); }

void YMIMEMessage::m_DecodeHeader(YObject* record, YString& header) {
  if (record == nullptr) return;
  YLog.DebugEvent(kTraceChannel, yinet::message::kMailHeaderTrace);
  FieldStore fields(*record);
  yinet::unfold_header(header, [&](std::string_view line, bool is_last) {
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos || colon == 0) return;
    const std::string key = fields.free_key(line.substr(0, colon));
    const std::string_view value = yinet::trimmed(line.substr(colon + 1));
    if (is_decoded(key, is_last)) record->StoreText(key, yinet::decode_header_value(value));
    else record->StoreText(key, value);
  });

  const bool readable = decode_state_ != nullptr && decode_state_->budget->readable;
  if (const std::string type = with_spaces_for_tabs(record->GetString(yinet::part::kContentType)); !type.empty()) {
    const auto value = yinet::split_structured_value(type, readable);
    const auto halves = yinet::split(value.first, "/");
    record->StoreText(yinet::part::kMedia, halves.empty() ? std::string_view() : halves[0]);
    record->StoreText(yinet::part::kSubtype, halves.size() < 2 ? std::string_view() : halves[1]);
    store_parameters(*record, value, kContentTypeRule);
  }
  if (const std::string disposition = with_spaces_for_tabs(record->GetString(yinet::part::kContentDisposition));
      !disposition.empty()) {
    store_parameters(*record, yinet::split_structured_value(disposition, readable), kDispositionRule);
  }
}
