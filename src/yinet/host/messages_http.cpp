#include <array>

#include "yinet/host/messages.h"

namespace yinet {

using namespace message;

// HTTP client and its script functions.
std::span<const MessageText> http_messages() {
  // clang-format off
  static constexpr auto kRows = std::to_array<MessageText>({
      {kHttpConnectFailed, 6, "Die HTTP-Verbindung zu $1$ ist fehlgeschlagen.", "The HTTP connection to $1$ failed.",
       "Check the URL; the message of the socket before this one has the cause."},
      {kHttpSendFailed, 6, "Die HTTP-Anfrage an $1$ konnte nicht gesendet werden.",
       "The HTTP request to $1$ could not be sent.",
       "The server closed the connection before it had the request. Try again; check its limits for uploads."},
      {kHttpReceiveFailed, 6, "Die HTTP-Antwort konnte nicht empfangen werden.",
       "The HTTP reply could not be received.",
       "The server closed the connection inside its reply. Try again; see the server's log."},
      {kHttpServerSilent, 6, "Der HTTP-Server antwortet nicht mehr.", "The HTTP server does not answer any more.",
       "Raise \"HTTP\"/\"Abfragen\" for slow servers. Replies without a length need \"HTTP\"/\"GenauLesen\"."},
      {kHttpLineBreakRefused, 6,
       "Die HTTP-Anfrage wurde nicht gesendet: Im Wert \"$1$\" steht ein Zeilenumbruch oder Nullzeichen.",
       "The HTTP request was not sent: its value \"$1$\" holds a line break or NUL.",
       "Remove the characters from the value; it may come from outside."},
      {kHttpResponseFileFailed, 6, "Die Datei $1$ f\xFCr die HTTP-Antwort kann nicht geschrieben werden: $2$",
       "The file $1$ for the HTTP reply cannot be written: $2$",
       "Check free space and rights in the temporary folder."},
      {kHttpReplyTooLarge, 6,
       "Die HTTP-Antwort ist gr\xF6\xDF"
       "er, als die Einstellung \"$1$\" erlaubt ($2$ Bytes).",
       "The HTTP reply is larger than the setting \"$1$\" allows ($2$ bytes).",
       "Raise the setting if the server may be trusted."},
      {kHttpUrlParsed, 0, "URL $1$: Host $2$, Pfad $3$, Port $4$, TLS $5$",
       "URL $1$: host $2$, path $3$, port $4$, TLS $5$", ""},
      {kHttpGetTrace, 0, "HTTP: $1$", "HTTP: $1$", ""},
      {kHttpPostTrace, 0, "HTTP-POST an $1$: $2$", "HTTP POST to $1$: $2$", ""},
  });
  // clang-format on
  return kRows;
}

}  // namespace yinet
