#include "yinet/host/xml_encoding.h"

#include <unicode/ucnv.h>
#include <unicode/utf8.h>

#include <limits>
#include <memory>

#include "yinet/host/codepage.h"
#include "yinet/host/text.h"

namespace yinet {
namespace {

using Result = std::optional<XmlError>;

struct CloseConverter {
  void operator()(UConverter* converter) const { ucnv_close(converter); }
};

Result converted_to_utf8(std::string_view xml, const std::string& encoding, std::string& utf8) {
  constexpr std::size_t kMaxLabel = 60;  // longer than any name of an encoding; a comma would hand ICU options
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<UConverter, CloseConverter> converter;
  if (encoding.size() <= kMaxLabel && encoding.find(',') == std::string::npos)
    converter.reset(ucnv_open(encoding.c_str(), &status));
  if (!converter || U_FAILURE(status)) return XmlError{"unknown encoding \"" + printable(encoding) + "\"", 0};
  ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  if (xml.size() > static_cast<std::size_t>(std::numeric_limits<int32_t>::max()) / 4)
    return XmlError{"the document is too large to be converted", 0};
  const auto length = static_cast<int32_t>(xml.size());
  UErrorCode sizing = U_ZERO_ERROR;
  const int32_t needed = ucnv_toAlgorithmic(UCNV_UTF8, converter.get(), nullptr, 0, xml.data(), length, &sizing);
  if (sizing != U_BUFFER_OVERFLOW_ERROR && U_FAILURE(sizing))
    return XmlError{"the document is not in its encoding \"" + printable(encoding) + "\"", 0};
  utf8.resize(static_cast<std::size_t>(needed));
  ucnv_toAlgorithmic(UCNV_UTF8, converter.get(), utf8.data(), needed, xml.data(), length, &status);
  if (U_FAILURE(status)) return XmlError{"the document is not in its encoding \"" + printable(encoding) + "\"", 0};
  return std::nullopt;
}

// The encoding that the XML declaration names; empty without one.
std::string declared_encoding(std::string_view xml) {
  constexpr std::size_t kMaxDeclaration = 256;
  std::string_view declaration = trimmed_front(xml.substr(0, kMaxDeclaration));
  if (!declaration.starts_with("<?xml")) return "";
  declaration = declaration.substr(0, declaration.find("?>"));
  const std::size_t name = declaration.find("encoding");
  if (name == std::string_view::npos) return "";
  const std::size_t open = declaration.find_first_of("\"'", name);
  if (open == std::string_view::npos) return "";
  const std::size_t close = declaration.find(declaration[open], open + 1);
  return std::string(declaration.substr(open + 1, close == std::string_view::npos ? close : close - open - 1));
}

// What the declared name really means. A declaration that can be read as bytes is not in UTF-16: services say so when
// they turn their platform's text into UTF-8 without a look at it. Latin-1 is taken for Windows-1252, because its senders
// mean the euro sign and the quotation marks of that and never the control characters in their place.
std::string meant_encoding(const std::string& declared) {
  if (declared.empty() || starts_with_ignoring_case(declared, "utf-16") || equal_ignoring_case(declared, "utf8"))
    return "utf-8";
  for (const std::string_view latin : {"iso-8859-1", "latin1", "us-ascii", "ascii"})
    if (equal_ignoring_case(declared, latin)) return "windows-1252";
  return to_lower(declared);
}

std::string encoding_of(std::string_view xml, std::string_view otherwise) {
  const std::string declared = declared_encoding(xml);
  return meant_encoding(declared.empty() ? std::string(otherwise) : declared);
}

std::size_t first_malformed(std::string_view utf8) {
  const auto* const bytes = reinterpret_cast<const uint8_t*>(utf8.data());
  std::size_t position = 0;
  while (position < utf8.size()) {
    const std::size_t start = position;
    UChar32 character = 0;
    U8_NEXT(bytes, position, utf8.size(), character);
    if (character < 0) return start;
  }
  return position;
}

}  // namespace

std::optional<XmlError> xml_as_utf8(std::string_view xml, std::string_view encoding_otherwise, std::string& utf8) {
  if (xml.starts_with("\xEF\xBB\xBF")) {
    utf8 = xml.substr(3);
  } else if (xml.starts_with("\xFF\xFE") || xml.starts_with(std::string_view("<\0", 2))) {
    if (auto error = converted_to_utf8(xml.substr(xml.front() == '<' ? 0 : 2), "utf-16le", utf8)) return error;
  } else if (xml.starts_with("\xFE\xFF") || xml.starts_with(std::string_view("\0<", 2))) {
    if (auto error = converted_to_utf8(xml.substr(xml.front() == '\0' ? 0 : 2), "utf-16be", utf8)) return error;
  } else if (const std::string encoding = encoding_of(xml, encoding_otherwise); encoding == "utf-8") {
    utf8 = xml;
  } else if (auto error = converted_to_utf8(xml, encoding, utf8)) {
    return error;
  }
  if (const std::size_t nul = utf8.find('\0'); nul != std::string::npos) return XmlError{"a NUL character", nul};
  if (!is_valid_utf8(utf8)) return XmlError{"not valid UTF-8", first_malformed(utf8)};
  return std::nullopt;
}

}  // namespace yinet
