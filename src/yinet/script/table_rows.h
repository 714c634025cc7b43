#pragma once

// Internal: what families write into the rows of the function table.

#include <algorithm>
#include <array>
#include <string_view>

#include "yinet/host/message_numbers.h"
#include "yinet/host/yobject.h"
#include "yinet/script/function_table.h"

namespace yinet {

constexpr ScriptParameter in_text(std::string_view key, std::string_view meaning, std::string_view default_value = "") {
  return {
      .key = key, .type = kTypeString, .direction = Direction::in, .default_value = default_value, .meaning = meaning};
}
constexpr ScriptParameter in_text_or_buffer(std::string_view key, std::string_view meaning) {
  ScriptParameter row = in_text(key, meaning);
  row.other_type = kTypeBuffer;
  return row;
}
constexpr ScriptParameter in_password(std::string_view key, std::string_view meaning) {
  ScriptParameter row = in_text(key, meaning);
  row.secret = true;
  return row;
}
constexpr ScriptParameter in_number(std::string_view key, std::string_view default_value, std::string_view meaning) {
  return {
      .key = key, .type = kTypeInteger, .direction = Direction::in, .default_value = default_value, .meaning = meaning};
}
constexpr ScriptParameter out_text(std::string_view key, std::string_view meaning) {
  return {.key = key, .type = kTypeString, .direction = Direction::out, .default_value = "", .meaning = meaning};
}

inline constexpr std::string_view kTrueWhenDone = "True when it succeeded.";

// The numbers that functions share and one's own, ascending.
template <std::size_t Shared, typename... Own>
constexpr auto messages_with(const std::array<int, Shared>& shared, Own... own) {
  std::array<int, Shared + sizeof...(Own)> numbers{};
  std::ranges::copy(std::array<int, sizeof...(Own)>{own...}, std::ranges::copy(shared, numbers.begin()).out);
  std::ranges::sort(numbers);
  return numbers;
}

// Of every request over HTTP.
inline constexpr std::array kHttpMessages = {
    message::kScriptFunctionFailed, message::kConnectFailed,       message::kHandshakeStepFailed,
    message::kCertificateRejected,  message::kTlsContextFailed,    message::kTlsConnectFailed,
    message::kConnectTlsFailed,     message::kReceiveBufferFailed, message::kSendBufferFailed,
    message::kSendBufferGaveUp,     message::kHttpConnectFailed,   message::kHttpSendFailed,
    message::kHttpReceiveFailed,    message::kHttpServerSilent,    message::kHttpLineBreakRefused,
    message::kHttpReplyTooLarge};

}  // namespace yinet
