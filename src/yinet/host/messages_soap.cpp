#include <array>

#include "yinet/host/messages.h"

namespace yinet {

using namespace message;

// SOAP calls.
std::span<const MessageText> soap_messages() {
  // clang-format off
  static constexpr auto kRows = std::to_array<MessageText>({
      {kSoapRequestNotBuilt, 6, "Die SOAP-Anfrage kann nicht gebildet werden: $1$",
       "The SOAP request cannot be built: $1$",
       "\"BODY\" needs one member, named like the operation. Keys must be XML names."},
      {kSoapAnswerNotXml, 6, "Der SOAP-Dienst $1$ hat nicht mit XML geantwortet (Inhaltstyp \"$2$\").",
       "The SOAP service $1$ did not answer with XML (content type \"$2$\").",
       "Without a type there was no answer: see the messages before. Otherwise check \"ENDPOINT\"; SOAP 1.2 is not spoken."},
      {kSoapParameterMissing, 6, "Der Parameter $1$ des SOAP-Aufrufs fehlt oder ist kein Objekt.",
       "The parameter $1$ of the SOAP call is missing or no record.", "Pass a record, an empty one for the answer."},
      {kSoapAnswerUnreadable, 6, "Die Antwort des SOAP-Dienstes $1$ ist nicht lesbar: $2$ (Byte $3$)",
       "The answer of the SOAP service $1$ cannot be read: $2$ (byte $3$)",
       "Where a limit is named and the service may be trusted, raise that setting; else mend the service."},
      {kSoapTrace, 0, "SOAP: $1$", "SOAP: $1$", ""},
      {kSoapRequestTrace, 0, "SOAP-Anfrage: $1$", "SOAP request: $1$", ""},
  });
  // clang-format on
  return kRows;
}

}  // namespace yinet
