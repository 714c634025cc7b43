#include "yinet/host/yerror.h"

#include "yinet/host/hook_scope.h"
#include "yinet/host/shared_slot.h"
#include "yinet/host/ylog.h"
#include "yinet/host/ytextmanager.h"

YError_class YError;

namespace yinet {

namespace {

constinit thread_local bool t_in_handler = false;

// Never destroyed: messages may be raised while the process ends.
SharedSlot<ErrorHandler>& handler_slot() {
  static auto* const slot = new SharedSlot<ErrorHandler>;
  return *slot;
}

void log_message(const ErrorMessage& message) {
  LogRecord record;
  record.kind = LogKind::error;
  record.level = message.level;
  record.number = message.number;
  record.text = message.text;
  record.extra = message.context;
  if (!message.context.empty() && !message.extra.empty()) record.extra += "; ";
  record.extra += message.extra;
  record.time = std::chrono::system_clock::now();
  write_log(record);
}

}  // namespace

void set_error_handler(ErrorHandler handler) { handler_slot().set(std::move(handler)); }

bool raise_message(int level, int number, std::string_view p1, std::string_view p2, std::string_view p3,
                   std::string_view p4) noexcept {
  try {
    return YError.Message(level, number, YTextManager.GetYText(number, p1, p2, p3, p4));
  } catch (...) {  // no memory for the text: the caller's result says enough
    return false;
  }
}

}  // namespace yinet

bool YError_class::Message(int level, int number, std::string_view text, std::string_view context, bool flag,
                           std::string_view extra) noexcept {
  try {
    const yinet::ErrorMessage message{level, number, text, context, flag, extra};
    if (const auto handler = yinet::t_in_handler ? nullptr : yinet::handler_slot().get()) {
      const yinet::HookScope in_handler(yinet::t_in_handler);
      (*handler)(message);
    } else {
      yinet::log_message(message);
    }
  } catch (...) {  // a host's handler may fail as it likes
  }
  return false;
}
