#include "yinet/host/messages.h"

#include <algorithm>
#include <atomic>
#include <vector>

#include "yinet/host/hook_scope.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/shared_slot.h"
#include "yinet/host/text.h"

namespace yinet {

// The catalogues, one per group of numbers: a new group is a new row here, and a function of that name in
// messages_<group>.cpp.
#define YINET_MESSAGE_GROUPS(row)                                                                  \
  row(host_messages) row(mail_messages) row(socket_messages) row(socks_messages) row(dns_messages) \
      row(transfer_messages) row(ftp_messages) row(ssh_messages) row(http_messages) row(soap_messages)

#define YINET_DECLARE_GROUP(group) std::span<const MessageText> group();
YINET_MESSAGE_GROUPS(YINET_DECLARE_GROUP)

namespace {

std::vector<MessageText> all_groups() {
  std::vector<MessageText> rows;
#define YINET_APPEND_GROUP(group) \
  for (const MessageText& message : group()) rows.push_back(message);
  YINET_MESSAGE_GROUPS(YINET_APPEND_GROUP)
  std::stable_sort(rows.begin(), rows.end(),
                   [](const MessageText& a, const MessageText& b) { return a.number < b.number; });
  return rows;
}

constexpr int kLanguageFromSetting = -1;
constinit thread_local bool t_in_catalogue = false;
constinit std::atomic<int> g_language = kLanguageFromSetting;

// Never destroyed: messages may still be asked for while the process ends.
SharedSlot<MessageCatalogue>& host_catalogue() {
  static auto* const slot = new SharedSlot<MessageCatalogue>;
  return *slot;
}

}  // namespace

std::span<const MessageText> all_messages() {
  static const auto* const rows = new std::vector<MessageText>(all_groups());
  return *rows;
}

const MessageText* find_message(int number) {
  const auto rows = all_messages();
  const auto found = std::lower_bound(rows.begin(), rows.end(), number,
                                      [](const MessageText& message, int wanted) { return message.number < wanted; });
  return found != rows.end() && found->number == number ? &*found : nullptr;
}

Language message_language() {
  const int language = g_language.load(std::memory_order_relaxed);
  if (language != kLanguageFromSetting) return static_cast<Language>(language);
  return starts_with_ignoring_case(setting_text(settings::kLanguage), "de") ? Language::german : Language::english;
}

void set_message_language(std::optional<Language> language) {
  g_language.store(language ? static_cast<int>(*language) : kLanguageFromSetting, std::memory_order_relaxed);
}

void set_message_catalogue(MessageCatalogue catalogue) { host_catalogue().set(std::move(catalogue)); }

std::string message_template(int number) {
  if (const auto catalogue = t_in_catalogue ? nullptr : host_catalogue().get()) {
    const HookScope in_catalogue(t_in_catalogue);
    try {
      if (auto text = (*catalogue)(number)) return *std::move(text);
    } catch (...) {  // a host's catalogue that fails has no text for this number
    }
  }
  if (const MessageText* message = find_message(number))
    return std::string(message_language() == Language::german ? message->german : message->english);
  return "Message " + std::to_string(number) + " $1$ $2$ $3$ $4$ $5$ $6$ $7$ $8$ $9$";
}

}  // namespace yinet
