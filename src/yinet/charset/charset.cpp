#include "yinet/charset/charset.h"

#include <unicode/ucnv.h>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "yinet/charset/charset_label.h"
#include "yinet/charset/converter_names.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/host/ylog.h"

charset_class charset;

namespace {

// Room that a conversion may use, per byte of the text.
constexpr std::size_t kUnitsPerByte = 2;
constexpr std::size_t kBytesPerByte = 4;

constexpr int kWarningLevel = 2;

struct CloseConverter {
  void operator()(UConverter* converter) const noexcept { ucnv_close(converter); }
};
using Converter = std::unique_ptr<UConverter, CloseConverter>;

// ICU keeps what belongs to a name, so opening costs a fraction of a microsecond. Null on failure.
Converter open_converter(const YString& name) {
  UErrorCode error = U_ZERO_ERROR;
  Converter converter(ucnv_open(name.Ptr(), &error));
  return U_SUCCESS(error) ? std::move(converter) : nullptr;
}

// Encodes UTF-16 that comes in pieces. Keeps the bytes before the first zero byte, but counts all of them.
class Encoder {
 public:
  Encoder(UConverter& converter, std::size_t limit) : converter_(converter), limit_(limit) {}

  // False on a conversion error, one byte too many included.
  bool add(const UChar* from, const UChar* end, bool is_last) {
    UErrorCode error = U_ZERO_ERROR;
    do {
      error = U_ZERO_ERROR;
      char* to = piece_.data();
      ucnv_fromUnicode(&converter_, &to, piece_.data() + piece_.size(), &from, end, nullptr, is_last, &error);
      if (!keep({piece_.data(), static_cast<std::size_t>(to - piece_.data())})) return false;
    } while (error == U_BUFFER_OVERFLOW_ERROR);
    return U_SUCCESS(error);
  }

  std::string take() { return std::move(out_); }

 private:
  bool keep(std::string_view bytes) {
    count_ += bytes.size();
    if (count_ > limit_) return false;
    if (!at_zero_) {
      const std::size_t zero = bytes.find('\0');
      at_zero_ = zero != std::string_view::npos;
      out_.append(bytes.substr(0, zero));
    }
    return true;
  }

  UConverter& converter_;
  std::size_t limit_;
  std::size_t count_ = 0;
  bool at_zero_ = false;
  std::string out_;
  std::array<char, 8192> piece_;
};

// Piece by piece through UTF-16, so that a large text needs no second and third copy of itself. The text ends at a zero
// character. Nothing on a conversion error.
std::optional<std::string> converted(std::string_view text, UConverter& from, UConverter& to) {
  std::array<UChar, 4096> units;
  std::size_t units_left = kUnitsPerByte * text.size();
  Encoder encoder(to, kBytesPerByte * text.size());
  const char* in = text.data();
  bool at_zero = false;
  bool is_last = false;
  do {
    UErrorCode error = U_ZERO_ERROR;
    UChar* end = units.data();
    ucnv_toUnicode(&from, &end, units.data() + units.size(), &in, text.data() + text.size(), nullptr, true, &error);
    if (U_FAILURE(error) && error != U_BUFFER_OVERFLOW_ERROR) return std::nullopt;
    is_last = error != U_BUFFER_OVERFLOW_ERROR;
    const auto count = static_cast<std::size_t>(end - units.data());
    if (count > units_left) return std::nullopt;
    units_left -= count;
    if (at_zero) continue;  // what follows only counts
    UChar* const zero = std::find(units.data(), end, u'\0');
    at_zero = zero != end;
    if (!encoder.add(units.data(), zero, is_last || at_zero)) return std::nullopt;
  } while (!is_last);
  return encoder.take();
}

}  // namespace

charset_class::charset_class() : m_ANSIName(yinet::kAnsiConverter) {}

YString charset_class::Convert(YString text, YString from, YString to, int) const noexcept try {
  if (from.EqualsIC(to)) return text;
  const YObject& known = m_ConverterKeys();
  if (!known.Exist(from) || !known.Exist(to)) return {};
  const Converter source = open_converter(from);
  const Converter target = open_converter(to);
  if (!source || !target) return {};
  return converted(text, *source, *target).value_or(std::string());
} catch (...) {
  return {};
}

YString charset_class::Convert(YString text, int from, int to, int option) const noexcept {
  YString source = get_converter_name(from);  // in this order: unknown ones are logged
  return Convert(std::move(text), std::move(source), get_converter_name(to), option);
}

YString charset_class::ConvertFromANSI(YString text, YString to, int option) const noexcept {
  return Convert(std::move(text), m_ANSIName, std::move(to), option);
}

YString charset_class::ConvertFromANSI(YString text, int to, int option) const noexcept {
  return Convert(std::move(text), m_ANSIName, get_converter_name(to), option);
}

YString charset_class::ConvertToANSI(YString text, YString from, int option) const noexcept {
  return Convert(std::move(text), std::move(from), m_ANSIName, option);
}

YString charset_class::ConvertToANSI(YString text, int from, int option) const noexcept {
  return Convert(std::move(text), get_converter_name(from), m_ANSIName, option);
}

YObject charset_class::get_convert_charset_as_keys() const { return m_ConverterKeys(); }

YString charset_class::get_convert_charset_list() const {
  YString list;
  const YObject& keys = m_ConverterKeys();
  for (int i = 0; i < keys.GetStringKeyCount(); ++i) list.AddItem(keys.GetStringKey(i));
  return list;
}

YString charset_class::get_converter_name(int code) const noexcept try {
  const std::string_view name = yinet::converter_name(code);
  if (name.empty()) YLog.Event(kWarningLevel, yinet::message::kCharsetUnknown, std::to_string(code));
  return name;
} catch (...) {
  return {};
}

const YObject& charset_class::m_ConverterKeys() {
  // Never destroyed: a conversion may still be asked for while the process ends.
  static const YObject* const keys = [] {
    auto* const names = new YObject;
    for (std::int32_t i = 0; i < ucnv_countAvailable(); ++i)
      names->Set(ucnv_getAvailableName(i), yinet::kTypeAny, nullptr, 0);
    return names;
  }();
  return *keys;
}

namespace yinet {

namespace {

// Mails say "iso-8859-1" or "us-ascii" and hold the quotation marks, dashes and euro signs of Windows-1252.
constexpr std::array<std::string_view, 2> kMeansWindows1252 = {"ISO-8859-1", "US-ASCII"};

constexpr std::size_t kLongestLabel = 60;  // no charset's name is longer

bool may_name_converter(std::string_view label) {
  return !label.empty() && label.size() <= kLongestLabel &&
         label.find_first_of(std::string_view(",\0", 2)) == label.npos;
}

}  // namespace

std::string listed_converter(std::string_view label) {
  if (!may_name_converter(label)) return {};
  UErrorCode error = U_ZERO_ERROR;
  const char* const listed = ucnv_getAlias(std::string(label).c_str(), 0, &error);
  return listed && U_SUCCESS(error) ? listed : std::string();
}

std::string converter_for_label(std::string_view label) {
  std::string name(label);
  if (!setting_flag(settings::kMailCharsetAliases)) return name;
  if (std::string listed = listed_converter(label); !listed.empty()) name = std::move(listed);
  // A label that may name no converter is none of these either.
  if (std::ranges::find(kMeansWindows1252, name) != kMeansWindows1252.end()) return kAnsiConverter;
  return name;
}

}  // namespace yinet
