#pragma once

#include <functional>
#include <string_view>

#include "yinet/host/export.h"
#include "yinet/host/ystring.h"

namespace yinet {

struct ErrorMessage {
  int level;
  int number;
  std::string_view text;
  std::string_view context;
  bool flag;
  std::string_view extra;
};

// Receives what YError.Message raises; null restores the default, an entry in the log. Called from any thread.
using ErrorHandler = std::function<void(const ErrorMessage&)>;
YINET_API void set_error_handler(ErrorHandler handler);

// The common form: the catalogue's text for `number` with these parameters, no context. Gives false.
YINET_API bool raise_message(int level, int number, std::string_view p1 = {}, std::string_view p2 = {},
                             std::string_view p3 = {}, std::string_view p4 = {}) noexcept;

}  // namespace yinet

// The host's error facility. Safe from several threads.
class YINET_API YError_class {
 public:
  // Always false, so that a caller can pass it on as its result.
  bool Message(int level, int number, std::string_view text, std::string_view context = {}, bool flag = false,
               std::string_view extra = {}) noexcept;
};
YINET_API extern YError_class YError;
