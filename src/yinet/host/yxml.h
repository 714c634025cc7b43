#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "yinet/host/export.h"
#include "yinet/host/yobject.h"
#include "yinet/host/ystring.h"

namespace yinet {

// Why an XML document could not be read or a record not be written.
struct XmlError {
  std::string reason;        // English; a failed write names the key with its path
  std::size_t position = 0;  // reading only: byte in the document as UTF-8
};

}  // namespace yinet

// XML documents (1.0) to records and back. Stateless, safe from several threads; nothing is ever fetched.
//
// An element with elements inside becomes a record under its name, any other (a leaf) a text. Elements of one name beside
// each other become an array of records under that name, in their order; names count as one when they differ in letter
// case only, because keys do. Attributes of a leaf stand beside it as "name@attribute"; attributes of a record stand in
// it as "@attribute", and so do those of a leaf in an array, whose text is "#text" there. Text between the elements of a
// record is its "#text" too. Namespace prefixes stay in the names as written, declarations are attributes like others.
//
// Writing goes the same way back. Integers, flags and date-times (ISO) become text, buffers base64, a key without a value
// an empty element; integer keys and entry flags have no form in XML. An array of one record comes back as that record.
class YINET_API YXml {
 public:
  // The text with the characters escaped that have a meaning in XML, fit for content and attribute values alike; line
  // ends and tabs as references, other control characters, which XML cannot hold, as "?".
  static YString Escape(std::string_view text);

  // Reads one document into `record`, whose entries it replaces; they stay as they were on failure. The encoding is that
  // of the byte order mark, else the declared one, else `encoding` (what came with the document), else UTF-8; texts become
  // Windows-1252 ("?" for what it lacks), names that it cannot hold stay as their UTF-8 bytes. A reference is one of the
  // five of XML or numeric; a "&" that begins none stays as it is. Refused: a DOCTYPE, NUL, bytes that the encoding does
  // not have, and what exceeds the settings under "XML" (depth, size, number of elements and attributes).
  [[nodiscard]] static std::optional<yinet::XmlError> Parse(std::string_view xml, YObject& record,
                                                            std::string_view encoding = {});

  // Writes a document with its declaration, UTF-8. The record must hold exactly one element. Fails, and leaves `xml`
  // alone, for keys that are no XML names, control characters in texts, an attribute without its leaf, and records
  // nested deeper than the setting.
  [[nodiscard]] static std::optional<yinet::XmlError> Write(const YObject& record, std::string& xml);
  // The same without declaration, for any number of elements.
  [[nodiscard]] static std::optional<yinet::XmlError> WriteElements(const YObject& record, std::string& xml);
};
