#include "yinet/host/yxml.h"

#include <algorithm>
#include <array>
#include <new>
#include <pugixml.hpp>
#include <unordered_map>
#include <utility>
#include <vector>

#include "yinet/host/codepage.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/host/xml_characters.h"
#include "yinet/host/xml_encoding.h"
#include "yinet/host/ybase64.h"

namespace {

using namespace yinet;
using Result = std::optional<XmlError>;

constexpr std::string_view kTextKey = "#text";
constexpr char kAttributeMark = '@';

// Records nest by recursion, so a setting cannot ask for more than the smallest stack of a thread carries.
std::int64_t depth_limit() { return std::min<std::int64_t>(setting_number(settings::kXmlDepthLimit), 1000); }

// --- Reading ---------------------------------------------------------------------------------------------------------

// The character that a reference without "&" and ";" stands for: 0 when it is none, negative when it names a character
// that XML does not have.
std::int32_t referenced_character(std::string_view reference) {
  constexpr auto kNamed = std::to_array<std::pair<std::string_view, std::int32_t>>(
      {{"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}});
  for (const auto& [name, character] : kNamed)
    if (reference == name) return character;
  if (!reference.starts_with('#')) return 0;
  reference.remove_prefix(1);
  const int base = reference.starts_with('x') ? 16 : 10;
  if (base == 16) reference.remove_prefix(1);
  if (reference.empty()) return 0;
  std::int32_t character = 0;
  for (const char c : reference) {
    const int digit = hex_value(c);
    if (digit < 0 || digit >= base) return 0;
    character =
        std::min<std::int32_t>(character * base + digit, 0x110000);  // stays beyond the last character once there
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
    const std::int32_t character = length == std::string_view::npos ? 0 : referenced_character(utf8.substr(1, length));
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

// How many elements begin in a document, outside of comments and CDATA sections.
std::int64_t count_elements(std::string_view xml) {
  constexpr auto kSkipped =
      std::to_array<std::pair<std::string_view, std::string_view>>({{"<!--", "-->"}, {"<![CDATA[", "]]>"}});
  std::int64_t count = 0;
  for (auto at = xml.find('<'); at != std::string_view::npos; at = xml.find('<', at + 1)) {
    for (const auto& [begin, end] : kSkipped) {
      if (xml.substr(at).starts_with(begin)) at = std::min(xml.find(end, at + begin.size()), xml.size() - 1);
    }
    constexpr std::string_view kNoElement = "/!?";
    const bool element =
        xml[at] == '<' && at + 1 < xml.size() && kNoElement.find(xml[at + 1]) == std::string_view::npos;
    if (element) ++count;
  }
  return count;
}

Result parse(std::string_view xml, std::string_view encoding, YObject& record) {
  if (xml.size() > static_cast<std::uint64_t>(setting_number(settings::kXmlSizeLimit)))
    return XmlError{"the document is larger than \"XML\"/\"GroessenLimit\" allows", 0};
  std::string utf8;
  if (auto error = xml_as_utf8(xml, encoding, utf8)) return error;
  // A document that cannot stay within the limit is not even taken apart.
  if (count_elements(utf8) > setting_number(settings::kXmlElementLimit))
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
    if (!is_qualified_xml_name(name))
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
    if (!is_qualified_xml_name(utf8))
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
