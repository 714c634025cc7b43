#pragma once

#include "yinet/host/export.h"
#include "yinet/host/yobject.h"
#include "yinet/host/ystring.h"

// Converts text between character sets with the converters of ICU. A set goes by a converter name, exactly as ICU lists
// it but for letter case, or by a code page identifier that a fixed table maps to a name; the table also holds names that
// ICU does not list, and those convert nothing.
//
// A result ends at its first zero byte, so targets like UTF-16 come out cut. A name that is not listed, a converter that
// does not open and a text that outgrows four bytes per input byte give an empty result. Only an unknown identifier is
// logged (21080). Nothing is thrown.
//
// The operations may be called on one object by any number of threads; `option` changes nothing.
class YINET_API charset_class {
 public:
  charset_class();
  charset_class(const charset_class& other) = default;
  charset_class& operator=(const charset_class& other) = default;
  ~charset_class() = default;

  YString Convert(YString text, YString from, YString to, int option) const noexcept;
  YString Convert(YString text, int from, int to, int option) const noexcept;
  // "ANSI" is Windows-1252.
  YString ConvertFromANSI(YString text, YString to, int option) const noexcept;
  YString ConvertFromANSI(YString text, int to, int option) const noexcept;
  YString ConvertToANSI(YString text, YString from, int option) const noexcept;
  YString ConvertToANSI(YString text, int from, int option) const noexcept;

  // One key per converter that ICU lists, without values.
  YObject get_convert_charset_as_keys() const;
  // The same names as an item list.
  YString get_convert_charset_list() const;
  // Empty, and logged, for an identifier that the table lacks.
  YString get_converter_name(int code) const noexcept;

 private:
  // What ICU lists. The same for all objects, and made at the first use: ICU then reads its data from the disk, which
  // loading the library shall not cost.
  static const YObject& m_ConverterKeys();

  YString m_ANSIName;
};
YINET_API extern charset_class charset;
