#pragma once

// Names under which the parts of a decoded mail become files and entries of the result.

#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

namespace yinet {

// The generated file of a mail's HTML text, and how a received file of that name is called.
inline constexpr std::string_view kMessageFile = "Nachricht.htm";
inline constexpr std::string_view kMessageFileRenamed = "Nachricht_orig.htm";

inline constexpr std::string_view kNotInFileNames = ";\"?*:/\\<>";
inline constexpr std::string_view kNoExtension = ".xxx";  // for a name without one

struct AttachmentName {
  std::string base;
  std::string extension;  // with its dot
};

// The name that a sender gave, made harmless: no separators, quotes, wildcards or control characters, always with an
// extension (".xxx" where there is none), and short enough for any disk. The name of the generated message file is left
// to that file.
AttachmentName attachment_name_from(std::string_view given);

// A name for a part without one, from the subtype of its content type.
AttachmentName attachment_name_for_subtype(std::string_view subtype);

// Gives out names so that none comes twice in one decode. Names are compared without regard to case, because the record
// that takes the attachments ignores it. A name that is taken gets "_2", "_3" ... before the extension.
class AttachmentNames {
 public:
  // `is_taken` asks for names in use elsewhere, such as keys of the result.
  std::string next_free(const AttachmentName& name, const std::function<bool(const std::string&)>& is_taken);

 private:
  std::unordered_set<std::string> taken_;               // lower case
  std::unordered_map<std::string, int> next_counters_;  // by lower-case name: where to go on counting
};

}  // namespace yinet
