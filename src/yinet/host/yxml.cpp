#include "yinet/host/yxml.h"

#include <unicode/ucnv.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <new>
#include <pugixml.hpp>
#include <unordered_map>
#include <utility>
#include <vector>

#include "yinet/host/codepage.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/host/ybase64.h"

namespace {

using namespace yinet;
using Result = std::optional<XmlError>;

constexpr std::string_view kTextKey = "#text";
constexpr char kAttributeMark = '@';

// Records nest by recursion, so a setting cannot ask for more than the smallest stack of a thread carries.
std::int64_t depth_limit() { return std::min<std::int64_t>(setting_number(settings::kXmlDepthLimit), 1000); }

// --- Encoding --------------------------------------------------------------------------------------------------------

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

Result document_as_utf8(std::string_view xml, std::string_view encoding_otherwise, std::string& utf8) {
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

// --- Characters and names --------------------------------------------------------------------------------------------

using Range = std::pair<UChar32, UChar32>;

template <std::size_t Size>
bool in_ranges(UChar32 character, const std::array<Range, Size>& ranges) {
  return std::any_of(ranges.begin(), ranges.end(),
                     [character](const Range& range) { return character >= range.first && character <= range.second; });
}

bool is_xml_character(UChar32 character) {
  constexpr auto kRanges =
      std::to_array<Range>({{'\t', '\n'}, {'\r', '\r'}, {0x20, 0xD7FF}, {0xE000, 0xFFFD}, {0x10000, 0x10FFFF}});
  return in_ranges(character, kRanges);
}

// NameStartChar of XML 1.0, fifth edition, without the colon.
bool begins_name(UChar32 character) {
  constexpr auto kRanges = std::to_array<Range>({{'A', 'Z'},
                                                 {'_', '_'},
                                                 {'a', 'z'},
                                                 {0xC0, 0xD6},
                                                 {0xD8, 0xF6},
                                                 {0xF8, 0x2FF},
                                                 {0x370, 0x37D},
                                                 {0x37F, 0x1FFF},
                                                 {0x200C, 0x200D},
                                                 {0x2070, 0x218F},
                                                 {0x2C00, 0x2FEF},
                                                 {0x3001, 0xD7FF},
                                                 {0xF900, 0xFDCF},
                                                 {0xFDF0, 0xFFFD},
                                                 {0x10000, 0xEFFFF}});
  return in_ranges(character, kRanges);
}

bool continues_name(UChar32 character) {
  constexpr auto kRanges =
      std::to_array<Range>({{'-', '.'}, {'0', '9'}, {0xB7, 0xB7}, {0x300, 0x36F}, {0x203F, 0x2040}});
  return begins_name(character) || in_ranges(character, kRanges);
}

// A name with at most one prefix: parts of name characters on both sides of one colon. The text must be valid UTF-8.
bool is_qualified_name(std::string_view utf8) {
  const auto* const bytes = reinterpret_cast<const uint8_t*>(utf8.data());
  bool at_start = true;
  bool prefixed = false;
  for (std::size_t position = 0; position < utf8.size();) {
    UChar32 character = 0;
    U8_NEXT(bytes, position, utf8.size(), character);
    if (character == ':' && !at_start && !prefixed) {
      prefixed = at_start = true;
      continue;
    }
    if (!(at_start ? begins_name(character) : continues_name(character))) return false;
    at_start = false;
  }
  return !at_start;
}

// --- Reading ---------------------------------------------------------------------------------------------------------

// The character that a reference without "&" and ";" stands for: 0 when it is none, negative when it names a character
// that XML does not have.
UChar32 referenced_character(std::string_view reference) {
  constexpr auto kNamed = std::to_array<std::pair<std::string_view, UChar32>>(
      {{"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}});
  for (const auto& [name, character] : kNamed)
    if (reference == name) return character;
  if (!reference.starts_with('#')) return 0;
  reference.remove_prefix(1);
  const int base = reference.starts_with('x') ? 16 : 10;
  if (base == 16) reference.remove_prefix(1);
  if (reference.empty()) return 0;
  UChar32 character = 0;
  for (const char c : reference) {
    const int digit = hex_value(c);
    if (digit < 0 || digit >= base) return 0;
    character = std::min<UChar32>(character * base + digit, 0x110000);  // stays beyond the last character once there
  }
  return is_xml_character(character) ? character : -1;
}

// Text of the document as text of the library. Nothing when it refers to a character that does not exist.
std::optional<std::string> library_text(std::string_view utf8) {
  constexpr std::size_t kMaxReference = 12;  // room for leading zeros; what is longer is text
  std::string plain;
  plain.reserve(utf8.size());
  while (!utf8.empty()) {
    const std::size_t ampersand = std::min(utf8.find('&'), utf8.size());
    plain += utf8.substr(0, ampersand);
    utf8.remove_prefix(ampersand);
    if (utf8.empty()) break;
    const std::size_t length = utf8.substr(1, kMaxReference + 1).find(';');
    const UChar32 character = length == std::string_view::npos ? 0 : referenced_character(utf8.substr(1, length));
    if (character < 0) return std::nullopt;
    if (character == 0) {
      plain += '&';
      utf8.remove_prefix(1);
    } else {
      append_utf8(plain, static_cast<char32_t>(character));
      utf8.remove_prefix(length + 2);
    }
  }
  return ansi_from_utf8_lossy(plain);
}

bool is_text(const pugi::xml_node& node) { return node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata; }

bool is_all_blank(std::string_view text) { return std::all_of(text.begin(), text.end(), is_blank); }

bool has_elements(const pugi::xml_node& element) {
  const auto children = element.children();
  return std::any_of(children.begin(), children.end(),
                     [](const pugi::xml_node& child) { return child.type() == pugi::node_element; });
}

// Walks a parsed document. Every function gives false once error() is set, and then nothing it filled counts.
class Reader {
 public:
  bool read_document(const pugi::xml_document& document, YObject& record) {
    pugi::xml_node root;
    for (const pugi::xml_node& node : document.children()) {
      if (node.type() == pugi::node_doctype) return fail("a DOCTYPE is not taken", node);
      if (is_text(node) && !is_all_blank(node.value())) return fail("text outside the root element", node);
      if (node.type() != pugi::node_element) continue;
      if (root) return fail("a second root element", node);
      root = node;
    }
    if (!root) return fail("no root element", document);
    return read_children(document, record, 1);
  }
  [[nodiscard]] const XmlError& error() const { return error_; }

 private:
  bool fail(std::string reason, const pugi::xml_node& node) {
    error_ = {std::move(reason), static_cast<std::size_t>(std::max<std::ptrdiff_t>(node.offset_debug(), 0))};
    return false;
  }

  bool count_entry(const pugi::xml_node& node) {
    return ++entries_ <= entry_limit_ ||
           fail("more elements and attributes than \"XML\"/\"ElementLimit\" allows", node);
  }

  // The elements inside `parent`, each into its place in `record`; `depth` is theirs.
  bool read_children(const pugi::xml_node& parent, YObject& record, int depth) {
    std::unordered_map<std::string, int> occurrences;
    for (const pugi::xml_node& child : parent.children())
      if (child.type() == pugi::node_element) ++occurrences[to_lower(name_from_utf8(child.name()))];
    for (const pugi::xml_node& child : parent.children()) {
      if (child.type() != pugi::node_element) continue;
      if (depth > depth_limit_)
        return fail("more elements inside each other than \"XML\"/\"TiefenLimit\" allows", child);
      if (!count_entry(child)) return false;
      const std::string key = name_from_utf8(child.name());
      const bool repeated = occurrences[to_lower(key)] > 1;
      const bool fine = repeated              ? read_item(child, *record.Ensure<YObjectArray>(key).New(), depth)
                        : has_elements(child) ? read_record(child, record.Ensure<YObject>(key), depth)
                                              : read_text(child, record, key) && read_attributes(child, record, key);
      if (!fine) return false;
    }
    return true;
  }

  bool read_item(const pugi::xml_node& element, YObject& item, int depth) {
    if (has_elements(element)) return read_record(element, item, depth);
    return read_text(element, item, kTextKey) && read_attributes(element, item, "");
  }

  bool read_record(const pugi::xml_node& element, YObject& record, int depth) {
    std::string text;
    if (!read_attributes(element, record, "") || !read_children(element, record, depth + 1) ||
        !collect_text(element, text))
      return false;
    if (!is_all_blank(text)) record.StoreText(kTextKey, text);
    return true;
  }

  bool read_text(const pugi::xml_node& element, YObject& record, std::string_view key) {
    std::string text;
    if (!collect_text(element, text)) return false;
    record.StoreText(key, text);
    return true;
  }

  // All pieces of text directly inside an element; between elements, what only indents them is left out.
  bool collect_text(const pugi::xml_node& element, std::string& text) {
    const bool indented = has_elements(element);
    for (const pugi::xml_node& piece : element.children()) {
      if (!is_text(piece) || (indented && is_all_blank(piece.value()))) continue;
      if (piece.type() == pugi::node_cdata) {
        text += ansi_from_utf8_lossy(piece.value());
      } else if (const auto plain = library_text(piece.value())) {
        text += *plain;
      } else {
        return fail("a reference to a character that does not exist", piece);
      }
    }
    return true;
  }

  bool read_attributes(const pugi::xml_node& element, YObject& record, const std::string& prefix) {
    for (const pugi::xml_attribute& attribute : element.attributes()) {
      if (!count_entry(element)) return false;
      const auto value = library_text(attribute.value());
      if (!value) return fail("a reference to a character that does not exist", element);
      record.StoreText(prefix + kAttributeMark + name_from_utf8(attribute.name()), *value);
    }
    return true;
  }

  const std::int64_t depth_limit_ = depth_limit();
  const std::int64_t entry_limit_ = setting_number(settings::kXmlElementLimit);
  std::int64_t entries_ = 0;
  XmlError error_;
};

Result parse(std::string_view xml, std::string_view encoding, YObject& record) {
  if (xml.size() > static_cast<std::uint64_t>(setting_number(settings::kXmlSizeLimit)))
    return XmlError{"the document is larger than \"XML\"/\"GroessenLimit\" allows", 0};
  std::string utf8;
  if (auto error = document_as_utf8(xml, encoding, utf8)) return error;
  // Two tags for an element: a document that cannot stay within the limit is not even taken apart.
  if (std::count(utf8.begin(), utf8.end(), '<') / 3 > setting_number(settings::kXmlElementLimit))
    return XmlError{"more elements and attributes than \"XML\"/\"ElementLimit\" allows", 0};

  // References are left to library_text, which knows what to refuse; fragments are allowed so that text outside the root
  // element is seen.
  constexpr unsigned kOptions = pugi::parse_cdata | pugi::parse_eol | pugi::parse_wconv_attribute |
                                pugi::parse_ws_pcdata | pugi::parse_doctype | pugi::parse_fragment;
  pugi::xml_document document;
  const auto parsed = document.load_buffer_inplace(utf8.data(), utf8.size(), kOptions, pugi::encoding_utf8);
  if (!parsed)
    return XmlError{parsed.description(), static_cast<std::size_t>(std::max<std::ptrdiff_t>(parsed.offset, 0))};

  Reader reader;
  YObject read;
  if (!reader.read_document(document, read)) return reader.error();
  read.SetFlags(record.GetFlags());
  record = std::move(read);
  return std::nullopt;
}

// --- Escaping --------------------------------------------------------------------------------------------------------

using Specials = std::string_view;
constexpr Specials kContentSpecials = "&<>\r";          // a bare CR would be read back as a line feed
constexpr Specials kAttributeSpecials = "&<>\"\t\n\r";  // and these as blanks
constexpr Specials kAllSpecials = "&<>\"'\t\n\r";

std::string_view reference_for(char special) {
  switch (special) {
    case '&': return "&amp;";
    case '<': return "&lt;";
    case '>': return "&gt;";
    case '"': return "&quot;";
    case '\'': return "&apos;";
    case '\t': return "&#9;";
    case '\n': return "&#10;";
    case '\r': return "&#13;";
    default: return "?";
  }
}

std::string escaped(std::string_view text, Specials specials) {
  std::string out;
  out.reserve(text.size() + text.size() / 8);
  while (!text.empty()) {
    const std::size_t plain = std::min(text.find_first_of(specials), text.size());
    out += text.substr(0, plain);
    text.remove_prefix(plain);
    if (text.empty()) break;
    out += reference_for(text.front());
    text.remove_prefix(1);
  }
  return out;
}

// --- Writing ---------------------------------------------------------------------------------------------------------

// Builds elements from a record. Paths in errors lead from the top to the key.
class Writer {
 public:
  Result write_record(const YObject& record, pugi::xml_node parent, const std::string& path, int depth) {
    if (depth > depth_limit_)
      return XmlError{"records nest deeper than \"XML\"/\"TiefenLimit\" allows, at " + printable(path), 0};
    std::unordered_map<std::string, pugi::xml_node> leaves;  // by name without case, for "name@attribute"
    std::vector<std::string> attributes_of_leaves;           // their leaf may stand behind them
    for (int i = 0; i < record.GetStringKeyCount(); ++i) {
      const std::string key = record.GetStringKey(i).str();
      const std::string here = joined({path, key}, "/");
      Result error;
      if (key == kTextKey) {
        error = write_text(record, key, parent, here);
      } else if (key.starts_with(kAttributeMark)) {
        error = write_attribute(record, key, key.substr(1), parent, here);
      } else if (key.find(kAttributeMark) != std::string::npos) {
        attributes_of_leaves.push_back(key);
      } else {
        error = write_entry(record, key, parent, here, depth, leaves);
      }
      if (error) return error;
    }
    for (const std::string& key : attributes_of_leaves) {
      const std::size_t mark = key.find(kAttributeMark);
      const auto leaf = leaves.find(to_lower(key.substr(0, mark)));
      const std::string here = joined({path, key}, "/");
      if (leaf == leaves.end()) return XmlError{"there is no text for the attribute " + printable(here), 0};
      if (auto error = write_attribute(record, key, key.substr(mark + 1), leaf->second, here)) return error;
    }
    return std::nullopt;
  }

 private:
  Result write_entry(const YObject& record, const std::string& key, pugi::xml_node parent, const std::string& path,
                     int depth, std::unordered_map<std::string, pugi::xml_node>& leaves) {
    const std::string name = name_to_utf8(key);
    if (!is_qualified_name(name))
      return XmlError{"\"" + printable(key) + "\" is no XML name, at " + printable(path), 0};
    if (const auto* object = record.Find<YObject>(key))
      return write_record(*object, element(parent, name), path, depth + 1);
    if (const auto* array = record.Find<YObjectArray>(key)) {
      for (int i = 0; i < array->Count(); ++i)
        if (auto error = write_record(*array->ItemPtr(i), element(parent, name), path, depth + 1)) return error;
      return std::nullopt;
    }
    const pugi::xml_node leaf = element(parent, name);
    leaves.emplace(to_lower(key), leaf);
    return write_text(record, key, leaf, path);
  }

  Result write_text(const YObject& record, const std::string& key, pugi::xml_node into, const std::string& path) {
    if (into.type() != pugi::node_element)
      return XmlError{"a text without an element around it, at " + printable(path), 0};
    std::string text;
    if (auto error = text_of(record, key, path, text)) return error;
    if (!text.empty()) checked(into.append_child(pugi::node_pcdata)).set_value(escaped(text, kContentSpecials).c_str());
    return std::nullopt;
  }

  Result write_attribute(const YObject& record, const std::string& key, const std::string& name, pugi::xml_node of,
                         const std::string& path) {
    const std::string utf8 = name_to_utf8(name);
    if (!is_qualified_name(utf8))
      return XmlError{"\"" + printable(name) + "\" is no XML name, at " + printable(path), 0};
    std::string text;
    if (auto error = text_of(record, key, path, text)) return error;
    pugi::xml_attribute attribute = of.append_attribute(utf8.c_str());
    if (!attribute) return XmlError{"an attribute without an element around it, at " + printable(path), 0};
    attribute.set_value(escaped(text, kAttributeSpecials).c_str());
    return std::nullopt;
  }

  static Result text_of(const YObject& record, const std::string& key, const std::string& path, std::string& utf8) {
    if (const auto* bytes = record.Find<YBuffer>(key)) {
      utf8 = base64_encoded(bytes->view());
      return std::nullopt;
    }
    const auto* instant = record.Find<YDateAndTime>(key);
    const std::string text = instant != nullptr ? instant->toIso().str() : record.GetString(key).str();
    if (!std::all_of(text.begin(), text.end(), [](char c) { return is_xml_character(static_cast<unsigned char>(c)); }))
      return XmlError{"a control character in the text at " + printable(path), 0};
    utf8 = utf8_from_ansi(text);
    return std::nullopt;
  }

  static pugi::xml_node element(pugi::xml_node parent, const std::string& name) {
    pugi::xml_node child = checked(parent.append_child(pugi::node_element));
    child.set_name(name.c_str());
    return child;
  }

  static pugi::xml_node checked(pugi::xml_node node) {
    if (!node) throw std::bad_alloc();  // appending an element or a text fails for nothing else
    return node;
  }

  const std::int64_t depth_limit_ = depth_limit();
};

struct AppendTo final : pugi::xml_writer {
  explicit AppendTo(std::string& text) : out(text) {}
  void write(const void* data, std::size_t size) override { out.append(static_cast<const char*>(data), size); }
  std::string& out;
};

Result write(const YObject& record, bool whole_document, std::string& xml) {
  pugi::xml_document document;
  if (auto error = Writer().write_record(record, document, "", 1)) return error;
  if (whole_document && (!document.first_child() || document.first_child().next_sibling()))
    return XmlError{"a document must have exactly one root element", 0};
  std::string text = whole_document ? "<?xml version=\"1.0\" encoding=\"UTF-8\"?>" : "";
  AppendTo writer(text);
  constexpr unsigned kFormat = pugi::format_raw | pugi::format_no_declaration | pugi::format_no_escapes;
  document.save(writer, "", kFormat, pugi::encoding_utf8);
  xml = std::move(text);
  return std::nullopt;
}

// Nothing is thrown out of the exported functions.
template <typename Work>
Result guarded(Work work) noexcept {
  try {
    return work();
  } catch (const std::exception& error) {
    return XmlError{error.what(), 0};
  }
}

}  // namespace

YString YXml::Escape(std::string_view text) {
  std::string out = escaped(text, kAllSpecials);
  std::replace_if(
      out.begin(), out.end(), [](char c) { return !is_xml_character(static_cast<unsigned char>(c)); }, '?');
  return YString(std::move(out));
}

std::optional<yinet::XmlError> YXml::Parse(std::string_view xml, YObject& record, std::string_view encoding) {
  return guarded([&] { return parse(xml, encoding, record); });
}

std::optional<yinet::XmlError> YXml::Write(const YObject& record, std::string& xml) {
  return guarded([&] { return write(record, true, xml); });
}

std::optional<yinet::XmlError> YXml::WriteElements(const YObject& record, std::string& xml) {
  return guarded([&] { return write(record, false, xml); });
}
