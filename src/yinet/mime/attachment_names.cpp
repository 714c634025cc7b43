#include "yinet/mime/attachment_names.h"

#include <algorithm>

#include "yinet/host/codepage.h"
#include "yinet/host/text.h"
#include "yinet/host/yfile.h"

namespace yinet {
namespace {

// A file name has 255 bytes at most; a counter must still fit.
constexpr std::size_t kMaxNameBytes = 240;
constexpr std::size_t kMaxExtensionBytes = 64;

bool is_harmful(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 32 || byte == 127 || kNotInFileNames.find(c) != std::string_view::npos;
}

std::string without_harmful_characters(std::string_view text) {
  std::string result(text);
  std::replace_if(result.begin(), result.end(), is_harmful, '_');
  return result;
}

// Cuts until the form on disk has at most `limit` bytes, never inside a UTF-8 sequence.
void shorten(std::string& text, std::size_t limit) {
  while (name_to_utf8(text).size() > limit) {
    const bool utf8 = is_valid_utf8(text);
    // Even if every character takes three bytes on disk, this much has to go.
    const std::size_t excess = std::max<std::size_t>(1, (name_to_utf8(text).size() - limit) / 3);
    text.resize(text.size() - std::min(excess, text.size()));
    while (utf8 && !text.empty() && !is_valid_utf8(text)) text.pop_back();
  }
}

AttachmentName fitted(AttachmentName name) {
  shorten(name.extension, kMaxExtensionBytes);
  shorten(name.base, kMaxNameBytes - name_to_utf8(name.extension).size());
  return name;
}

}  // namespace

AttachmentName attachment_name_from(std::string_view given) {
  if (given.starts_with('"')) given.remove_prefix(1);
  YString name(without_harmful_characters(given));
  if (name.EqualsIC(kMessageFile)) name = YString(kMessageFileRenamed);
  AttachmentName result{YFile::ExtractName(name).str(), YFile::ExtractExtension(name).str()};
  if (result.extension.empty() || result.extension == ".") result.extension = kNoExtension;
  return fitted(std::move(result));
}

AttachmentName attachment_name_for_subtype(std::string_view subtype) {
  if (subtype.empty()) return {"Embedded", std::string(kNoExtension)};
  if (subtype == "calendar") return {"Termin", ".ics"};
  return fitted({"Embedded", "." + without_harmful_characters(subtype)});
}

std::string AttachmentNames::next_free(const AttachmentName& name,
                                       const std::function<bool(const std::string&)>& is_taken) {
  std::string candidate = name.base + name.extension;
  int& counter = next_counters_.try_emplace(to_lower(candidate), 1).first->second;
  for (;; ++counter) {
    if (counter > 1) candidate = name.base + "_" + std::to_string(counter) + name.extension;
    if (!taken_.contains(to_lower(candidate)) && !is_taken(candidate)) break;
  }
  taken_.insert(to_lower(candidate));
  ++counter;
  return candidate;
}

}  // namespace yinet
