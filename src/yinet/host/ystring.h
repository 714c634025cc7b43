#pragma once

#include <concepts>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "yinet/host/export.h"

// 8-bit text in Windows-1252. A value type: it owns its characters, any byte (NUL too) may occur. Positions are 0-based
// ints, a failed search gives -1, and a range names its first and last character, both included, with -1 for the end.
// Not synchronised: one thread at a time may change an object, several may read it.
//
// Item lists: a text is read as items between delimiter characters (0x01 unless set otherwise; several delimiter
// characters form a set). n delimiters make n+1 items, the empty text has none. Walk a list with Items(), which costs
// one pass; GetItem(i) searches from the front each time.
class YINET_API YString {
 public:
  static constexpr char kItemDelimiter = '\x01';
  // Codes of ConvertCharset.
  static constexpr int kCharsetSystem = 0;  // Windows-1252
  static constexpr int kCharsetUtf8 = 5;

  YString() = default;
  YString(const char* text) : text_(text ? text : "") {}
  YString(std::string text) noexcept : text_(std::move(text)) {}
  YString(std::string_view text) : text_(text) {}
  YString(const char* text, int length) : text_(text, static_cast<std::size_t>(length < 0 ? 0 : length)) {}
  // The number in decimal.
  template <std::integral Number>
  requires(!std::same_as<Number, char> && !std::same_as<Number, bool>) explicit YString(Number number)
      : text_(std::to_string(number)) {}

  [[nodiscard]] int Length() const { return static_cast<int>(text_.size()); }
  [[nodiscard]] bool IsEmpty() const { return text_.empty(); }
  [[nodiscard]] const char* Ptr() const { return text_.c_str(); }  // zero-terminated, valid until the next change
  [[nodiscard]] char* Ptr() { return text_.data(); }
  void SetLength(int length, char fill = '\0');
  void Reserve(int length);
  void Clear() { text_.clear(); }
  char operator[](int position) const;  // NUL outside the text

  // For code inside the library, which works on standard text.
  [[nodiscard]] const std::string& str() const& { return text_; }
  [[nodiscard]] std::string str() && { return std::move(text_); }
  [[nodiscard]] std::string& str() & { return text_; }
  operator std::string_view() const { return text_; }  // NOLINT(google-explicit-constructor)

  // clang-format off
  YString& operator+=(std::string_view text) { text_.append(text); return *this; }
  YString& operator+=(const std::string& text) { text_.append(text); return *this; }
  YString& operator+=(const YString& text) { text_.append(text.text_); return *this; }
  YString& operator+=(const char* text) { text_.append(text); return *this; }
  YString& operator+=(char character) { text_.push_back(character); return *this; }
  // clang-format on
  friend YString operator+(const YString& a, const YString& b) { return YString(a.text_ + b.text_); }
  friend YString operator+(const YString& a, const char* b) { return YString(a.text_ + b); }
  friend YString operator+(const char* a, const YString& b) { return YString(a + b.text_); }
  friend bool operator==(const YString& a, const YString& b) { return a.text_ == b.text_; }
  friend bool operator==(const YString& a, const char* b) { return a.text_ == b; }
  friend auto operator<=>(const YString& a, const YString& b) { return a.text_ <=> b.text_; }

  // Searches at or after `from`; the empty text is never found.
  [[nodiscard]] int Find(std::string_view what, int from = 0, bool ignore_case = false) const;
  [[nodiscard]] int FindIC(std::string_view what, int from = 0) const { return Find(what, from, true); }
  [[nodiscard]] bool StartsWith(std::string_view start) const;
  [[nodiscard]] bool StartsWithIC(std::string_view start) const;
  [[nodiscard]] bool EndsWith(std::string_view end) const;
  [[nodiscard]] bool EndsWithIC(std::string_view end) const;
  [[nodiscard]] bool Equals(std::string_view other) const { return std::string_view(text_) == other; }
  [[nodiscard]] bool EqualsIC(std::string_view other) const;
  // Option 0 compares bytes, option 1 without regard to letter case; length -1 is the whole text, otherwise only that
  // many characters of either side count. <0, 0 or >0.
  [[nodiscard]] int Compare(std::string_view other, int option = 0, int length = -1) const;

  // The characters `first` to `last`, both included; what lies outside the text is left out.
  [[nodiscard]] YString Copy(int first, int last = -1) const;
  // Replaces all occurrences in one pass and gives their number.
  int Replace(std::string_view from, std::string_view to, bool ignore_case = false);
  int ReplaceChar(char from, char to);
  void Insert(int position, std::string_view text);  // at the end when the position lies beyond it
  void Delete(int first, int last = -1);             // both included
  void Cut(int length);                              // keeps the first `length` characters
  void DeleteBlanks();                               // space, tab, CR and LF, at both ends

  // Optional sign and digits at the start; 0 without digits; saturates at 32 bits.
  [[nodiscard]] int toInteger() const;

  // Converts in place from one code to another (kCharset...). Characters that the target lacks become "?". False, and
  // no change, for a code that is not known.
  bool ConvertCharset(int from, int to);

  // "$1$" to "$9$" and "$2:04$" replaced by the values, in one pass. See yinet::format_placeholders.
  template <typename... Values>
  [[nodiscard]] YString Format(const Values&... values) const {
    const YString texts[sizeof...(Values) + 1] = {as_text(values)..., YString()};
    return FormatAll(texts, sizeof...(Values));
  }

  void ItemDelimiter(std::string_view delimiters);  // a set of characters
  [[nodiscard]] const std::string& ItemDelimiter() const { return rules().delimiters; }
  void ItemDeleteBlanks(bool on);  // GetItem and Items give trimmed items
  [[nodiscard]] int GetItemCount() const;
  [[nodiscard]] YString GetItem(int index) const;  // empty outside the list
  void AddItem(std::string_view item);             // no leading delimiter in an empty list
  // All items in one pass; the views end with the next change of this text.
  [[nodiscard]] std::vector<std::string_view> Items() const;

 private:
  template <typename Value>
  static YString as_text(const Value& value) {
    return YString(value);
  }
  [[nodiscard]] YString FormatAll(const YString* values, std::size_t count) const;

  struct ItemRules {
    std::string delimiters = std::string(1, kItemDelimiter);
    bool trim = false;
  };
  [[nodiscard]] const ItemRules& rules() const;
  void change_rules(ItemRules rules);

  std::string text_;
  std::shared_ptr<const ItemRules> rules_;  // null for the usual ones, which most texts never change
};
