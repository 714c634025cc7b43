#include "yinet/mime/mail_decode_state.h"

#include <algorithm>

#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/host/yfile.h"

namespace yinet {

namespace {

// Headers of sound mails do not overlap, so little is added to what the size of the mail allows.
constexpr std::int64_t kHeaderExtra = 1024 * 1024;

}  // namespace

std::shared_ptr<MailDecodeBudget> make_mail_decode_budget(std::int64_t size) {
  auto budget = std::make_shared<MailDecodeBudget>();
  // Beyond these no mail reaches a limit, and the numbers still can be multiplied.
  constexpr std::int64_t kMostFactor = 1'000'000;
  constexpr std::int64_t kMostExtra = std::int64_t{1} << 50;
  const std::int64_t extra = std::min(setting_number(settings::kMailContentExtra), kMostExtra);
  const std::int64_t factor = std::min(setting_number(settings::kMailContentFactor), kMostFactor);
  const std::int64_t content = size * factor + extra;
  budget->depth_limit = static_cast<int>(std::min<std::int64_t>(setting_number(settings::kMailDepthLimit), 500));
  budget->parts_left = setting_number(settings::kMailPartLimit);
  budget->content_left = content;
  budget->embedded_left = content;
  budget->headers_left = size * factor + kHeaderExtra;
  budget->search_left = 16 * size + 8 * extra;
  budget->readable = setting_flag(settings::kMailReadable);
  return budget;
}

bool MailDecodeBudget::is_in_folder(const YString& folder, const std::string& name) {
  const auto [entry, is_new] = folders_.try_emplace(folder.str());
  if (is_new) {
    const int limit = setting_int(settings::kMailFolderNames);
    for (const YString& known : YFileManager.ListFolder(folder.IsEmpty() ? YString(".") : folder, limit))
      entry->second.insert(to_lower(known));
  }
  return entry->second.contains(to_lower(name));
}

void MailDecodeState::forget_positions() {
  notice.reset();
  last_line_end.reset();
  blank_line_from = 1;
  blank_line_at = 0;
  last_boundary = {};
}

MailDecodeState::~MailDecodeState() {
  if (!discards_files) return;
  for (const auto& [file, content] : files) YFile::Delete(YString(file));
}

}  // namespace yinet
