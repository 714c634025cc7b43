#pragma once

// The bytes of an XML document as UTF-8. Internal to YXml.

#include <optional>
#include <string>
#include <string_view>

#include "yinet/host/yxml.h"

namespace yinet {

// Of the encoding that the byte order mark tells, else the declaration, else `encoding_otherwise`, else UTF-8. What comes
// out is valid and without NUL; otherwise the reason comes back.
std::optional<XmlError> xml_as_utf8(std::string_view xml, std::string_view encoding_otherwise, std::string& utf8);

}  // namespace yinet
