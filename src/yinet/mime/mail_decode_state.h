#pragma once

// What one decode of a mail keeps besides the fields of the message. Not part of the interface.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "yinet/host/yobject.h"
#include "yinet/mime/attachment_names.h"

namespace yinet {

// Shared by a mail and the mails embedded in it: the limits that keep hostile nesting from multiplying, and the names
// in use.
struct MailDecodeBudget {
  int depth_limit = 0;  // multiparts and embedded mails inside each other
  std::int64_t parts_left = 0;
  std::int64_t content_left = 0;   // bytes of parts that become files or text
  std::int64_t embedded_left = 0;  // bytes of embedded mails, which are kept while they are decoded
  std::int64_t headers_left = 0;   // bytes of part headers
  std::int64_t search_left = 0;    // bytes walked in vain for boundaries
  bool readable = false;           // decode as a person would want it

  YObject* result = nullptr;  // while Decode runs
  AttachmentNames names;
  std::unordered_map<std::string, std::string> information_keys;  // last key given out per attachment name

  // Whether a folder held a file of this name, letter case aside, when it was first asked about. Folders with very many
  // files are known only in part; there the disk itself, which minds letter case, still refuses names in use.
  bool is_in_folder(const YString& folder, const std::string& name);

 private:
  std::unordered_map<std::string, std::unordered_set<std::string>> folders_;
};

// What the settings allow a mail of this size.
std::shared_ptr<MailDecodeBudget> make_mail_decode_budget(std::int64_t size);

// Where a boundary stands at or after `from` and before `end`; npos for nowhere.
struct BoundaryHit {
  std::string boundary;  // empty: none known
  std::size_t from = 0;
  std::size_t end = 0;
  std::size_t at = 0;
};

struct MailDecodeState {
  ~MailDecodeState();
  void forget_positions();  // in a text that was changed

  std::shared_ptr<MailDecodeBudget> budget;
  int depth = 0;                // of the part being decoded, enclosing mails included
  bool discards_files = false;  // what the result did not take goes with the message
  bool last_part = false;       // the part being decoded is the last that fits: it keeps the rest
  // Readable decode: where the part ends in which is being decoded. Its own boundaries count up to there only, so that a
  // multipart without its closing delimiter does not take what follows it in the multipart around it.
  std::size_t end = std::string_view::npos;
  std::optional<std::size_t> notice;         // position of the size notice; npos when there is none
  std::optional<std::size_t> last_line_end;  // position of the last CRLF; npos when there is none
  std::size_t blank_line_from = 1;           // the last search for a blank line, and what it found: none at first
  std::size_t blank_line_at = 0;
  BoundaryHit last_boundary;
  std::unordered_map<std::string, YBuffer> files;  // written and not taken by the result yet, with what they hold
};

// True, and the amount taken, as long as something is left.
inline bool charge(std::int64_t& left, std::int64_t amount) {
  if (left <= 0) return false;
  left -= amount;
  return true;
}

}  // namespace yinet
