#pragma once

// Where the parts of a mail, their headers and their bodies begin and end: positions in its text. Internal to decoding;
// what a search has found is remembered in the state of the decode.

#include <cstddef>
#include <string_view>

#include "yinet/mime/mail_decode_state.h"

namespace yinet {

// Searches that are charged to the budget of the decode, so that boundaries that never come cannot cost more than a few
// walks over the mail; once it is used up, the next part is made the last. The end of a part is also the start of the next
// one: the last hit is remembered. Searches end where the part around ends; positions are npos for nowhere.
class BoundarySearch {
 public:
  BoundarySearch(std::string_view text, std::string_view boundary, MailDecodeState& state)
      : text_(text.substr(0, state.end)), boundary_(boundary), last_(state.last_boundary), budget_(*state.budget) {}

  // The boundary at or after `from`: anywhere in the text or, in a readable decode, as a delimiter line.
  [[nodiscard]] std::size_t next(std::size_t from) const;
  // Position of the dashes before the closing delimiter at or after `from`.
  [[nodiscard]] std::size_t close(std::size_t from) const;
  // Without a closing delimiter the part ends at its last delimiter behind the first.
  [[nodiscard]] std::size_t last_delimiter(std::size_t first) const;
  // First position of the part whose delimiter has its boundary at `at`.
  [[nodiscard]] std::size_t part_start(std::size_t at) const;
  // Readable decode: whether the boundary at `at` stands in a closing delimiter.
  [[nodiscard]] bool closes(std::size_t at) const;
  // Where a part ends whose body begins at `body_start`: before the dashes of the next delimiter.
  [[nodiscard]] std::size_t part_end(std::size_t body_start) const;

 private:
  // Hits that begin at or after `from` and end at or before `limit`.
  [[nodiscard]] std::size_t search(std::size_t from, std::size_t limit) const;
  [[nodiscard]] std::size_t find(std::string_view what, std::size_t from,
                                 std::size_t limit = std::string_view::npos) const;
  [[nodiscard]] bool at_line_start(std::size_t at) const { return at == 0 || text_[at - 1] == '\n'; }
  [[nodiscard]] bool is_delimiter(std::size_t at) const;

  std::string_view text_;
  std::string_view boundary_;
  BoundaryHit& last_;
  MailDecodeBudget& budget_;
};

// Where the header of a part ends and its body begins.
struct PartLayout {
  std::size_t header_start = 0;
  std::size_t header_end = 0;  // behind the line end of the last header line
  std::size_t body_start = 0;
  bool has_header = true;
};

// Of the part at `start`; `parent_boundary` is that of the multipart around it, empty without one.
PartLayout lay_out(std::string_view text, std::size_t start, std::string_view parent_boundary, MailDecodeState& state);

}  // namespace yinet
