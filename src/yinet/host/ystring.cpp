#include "yinet/host/ystring.h"

#include <algorithm>

#include "yinet/host/codepage.h"
#include "yinet/host/text.h"

namespace {

// A position as an index; negative ones count as 0.
std::size_t index_of(int position) { return position < 0 ? 0 : static_cast<std::size_t>(position); }

int position_of(std::size_t index) { return index == std::string::npos ? -1 : static_cast<int>(index); }

// Index after the last character of a range that names its last one, or -1 for the end.
std::size_t end_of(int last, std::size_t size) {
  return last < 0 ? size : std::min(size, static_cast<std::size_t>(last) + 1);
}

}  // namespace

void YString::SetLength(int length, char fill) { text_.resize(index_of(length), fill); }

void YString::Reserve(int length) { text_.reserve(index_of(length)); }

char YString::operator[](int position) const {
  return position < 0 || index_of(position) >= text_.size() ? '\0' : text_[index_of(position)];
}

int YString::Find(std::string_view what, int from, bool ignore_case) const {
  if (what.empty()) return -1;
  return position_of(ignore_case ? yinet::find_ignoring_case(text_, what, index_of(from))
                                 : text_.find(what, index_of(from)));
}

bool YString::StartsWith(std::string_view start) const { return text_.starts_with(start); }
bool YString::StartsWithIC(std::string_view start) const { return yinet::starts_with_ignoring_case(text_, start); }
bool YString::EndsWith(std::string_view end) const { return text_.ends_with(end); }
bool YString::EndsWithIC(std::string_view end) const { return yinet::ends_with_ignoring_case(text_, end); }
bool YString::EqualsIC(std::string_view other) const { return yinet::equal_ignoring_case(text_, other); }

int YString::Compare(std::string_view other, int option, int length) const {
  std::string_view mine = text_;
  if (length >= 0) {
    mine = mine.substr(0, index_of(length));
    other = other.substr(0, index_of(length));
  }
  return option == 1 ? yinet::compare_ignoring_case(mine, other) : mine.compare(other);
}

YString YString::Copy(int first, int last) const {
  const std::size_t begin = index_of(first);
  const std::size_t end = end_of(last, text_.size());
  return begin < end ? YString(text_.substr(begin, end - begin)) : YString();
}

int YString::Replace(std::string_view from, std::string_view to, bool ignore_case) {
  if (from.empty()) return 0;
  std::string result;
  std::size_t done = 0;
  int count = 0;
  for (;;) {
    const std::size_t hit = ignore_case ? yinet::find_ignoring_case(text_, from, done) : text_.find(from, done);
    if (hit == std::string::npos) break;
    result.append(text_, done, hit - done).append(to);
    done = hit + from.size();
    ++count;
  }
  if (count > 0) text_ = std::move(result.append(text_, done, std::string::npos));
  return count;
}

int YString::ReplaceChar(char from, char to) {
  const auto count = std::count(text_.begin(), text_.end(), from);
  std::replace(text_.begin(), text_.end(), from, to);
  return static_cast<int>(count);
}

void YString::Insert(int position, std::string_view text) {
  text_.insert(std::min(index_of(position), text_.size()), text);
}

void YString::Delete(int first, int last) {
  const std::size_t begin = index_of(first);
  const std::size_t end = end_of(last, text_.size());
  if (begin < end) text_.erase(begin, end - begin);
}

void YString::Cut(int length) {
  if (index_of(length) < text_.size()) text_.resize(index_of(length));
}

void YString::DeleteBlanks() {
  const std::string_view kept = yinet::trimmed(text_);
  if (kept.size() != text_.size()) text_ = std::string(kept);
}

int YString::toInteger() const { return yinet::leading_int32(text_); }

bool YString::ConvertCharset(int from, int to) {
  const auto known = [](int code) { return code == kCharsetSystem || code == kCharsetUtf8; };
  if (!known(from) || !known(to)) return false;
  if (from == to) return true;
  text_ = to == kCharsetUtf8 ? yinet::utf8_from_ansi(text_) : yinet::ansi_from_utf8_lossy(text_);
  return true;
}

YString YString::FormatAll(const YString* values, std::size_t count) const {
  std::vector<std::string_view> views(values, values + count);
  return YString(yinet::format_placeholders(text_, views.data(), count));
}

const YString::ItemRules& YString::rules() const {
  static const ItemRules usual;
  return rules_ == nullptr ? usual : *rules_;
}

void YString::change_rules(ItemRules rules) { rules_ = std::make_shared<const ItemRules>(std::move(rules)); }

void YString::ItemDelimiter(std::string_view delimiters) { change_rules({std::string(delimiters), rules().trim}); }

void YString::ItemDeleteBlanks(bool on) { change_rules({rules().delimiters, on}); }

int YString::GetItemCount() const {
  if (text_.empty()) return 0;
  const std::string& delimiters = rules().delimiters;
  if (delimiters.size() == 1) return 1 + static_cast<int>(std::count(text_.begin(), text_.end(), delimiters.front()));
  return static_cast<int>(yinet::split(text_, delimiters).size());
}

YString YString::GetItem(int index) const {
  if (index < 0) return {};
  const std::string& delimiters = rules().delimiters;
  std::size_t start = 0;
  for (; index > 0; --index) {
    start = text_.find_first_of(delimiters, start);
    if (start == std::string::npos) return {};
    ++start;
  }
  const std::size_t end = text_.find_first_of(delimiters, start);
  const std::string_view item = std::string_view(text_).substr(start, end == std::string::npos ? end : end - start);
  return YString(rules().trim ? yinet::trimmed(item) : item);
}

void YString::AddItem(std::string_view item) {
  const std::string own(item);  // may be a part of this text
  if (!text_.empty()) text_ += rules().delimiters.empty() ? kItemDelimiter : rules().delimiters.front();
  text_ += own;
}

std::vector<std::string_view> YString::Items() const {
  auto items = yinet::split(text_, rules().delimiters);
  if (rules().trim) {
    for (auto& item : items) item = yinet::trimmed(item);
  }
  return items;
}
