#pragma once

// The message catalogue: number, usual level, German and English text of every message the library can raise, and the
// place where a host plugs its own texts. Texts are Windows-1252 with placeholders "$1$" to "$9$".

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "yinet/host/export.h"
#include "yinet/host/message_numbers.h"

namespace yinet {

struct MessageText {
  int number;
  int level;  // 2, 5, 6 or 8; 0 for trace messages
  std::string_view german;
  std::string_view english;
  std::string_view cure;  // English: what the reader can do about it; empty for traces
};

// All messages, ascending by number.
YINET_API std::span<const MessageText> all_messages();
// Null when there is no such number.
YINET_API const MessageText* find_message(int number);

enum class Language { german, english };
// The setting "System"/"Sprache" ("de" or "en") unless set here; English is the default.
YINET_API Language message_language();
YINET_API void set_message_language(std::optional<Language> language);

// A host's own texts (templates, not yet filled). Numbers for which it gives nothing come from the built-in catalogue.
using MessageCatalogue = std::function<std::optional<std::string>(int number)>;
YINET_API void set_message_catalogue(MessageCatalogue catalogue);  // null restores the built-in one

// The template for a number; "Message <number>" with all nine placeholders when nobody knows it.
YINET_API std::string message_template(int number);

}  // namespace yinet
