#pragma once

// SOAP 1.1 requests as XML. Pure.

#include <optional>
#include <string>
#include <string_view>

class YObject;

namespace yinet {

// Keys of a call's description.
namespace soap {
inline constexpr std::string_view kEndpoint = "ENDPOINT";
inline constexpr std::string_view kNamespace = "NAMESPACE";
inline constexpr std::string_view kHeader = "HEADER";      // optional
inline constexpr std::string_view kBody = "BODY";          // one record, named like the operation
inline constexpr std::string_view kAction = "SOAPACTION";  // optional
}  // namespace soap

// The envelope for the call, UTF-8 with its declaration. The operation is the first entry of "BODY"; its parameters are
// read as texts, and a "BODY" whose entry is no record has none. Every name gets the prefix of the service's namespace.
// Otherwise `xml` stays as it is and the reason comes back: no operation, a key that is no XML name, a control
// character in a text, or a header nested deeper than "XML"/"TiefenLimit".
std::optional<std::string> write_soap_envelope(const YObject& call, std::string& xml);

}  // namespace yinet
