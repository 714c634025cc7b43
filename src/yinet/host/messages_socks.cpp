#include <array>

#include "yinet/host/messages.h"

namespace yinet {

using namespace message;

namespace {

constexpr std::string_view kDroppedCure =
    "The proxy ended the connection. Check that it is a SOCKS proxy of this version and that it lets this machine in.";
constexpr std::string_view kNoSocksCure =
    "Check host and port of the proxy: what answers there speaks another protocol.";
constexpr std::string_view kRefusedCure =
    "The proxy does not connect to this target: check the target and the proxy's rules; the extra text has its code.";
constexpr std::string_view kCredentialsCure = "Check user name and password of the proxy.";

}  // namespace

// SOCKS proxies.
std::span<const MessageText> socks_messages() {
  // clang-format off
  static constexpr auto kRows = std::to_array<MessageText>({
      {kSocks5MethodNotRead, 6, "Der SOCKS-5-Proxy $1$ hat kein Anmeldeverfahren genannt.",
       "The SOCKS 5 proxy $1$ named no method of authentication.", kDroppedCure},
      {kSocks5GreetingNotSent, 6, "Der SOCKS-5-Proxy $1$ konnte nicht angesprochen werden.",
       "The SOCKS 5 proxy $1$ could not be addressed.", kDroppedCure},
      {kSocks5WrongVersion, 6, "Der Proxy $1$ antwortet nicht mit SOCKS 5.", "The proxy $1$ does not answer in SOCKS 5.",
       kNoSocksCure},
      {kSocks5AuthenticationFailed, 6, "Die Anmeldung am SOCKS-5-Proxy ist fehlgeschlagen.",
       "The login to the SOCKS 5 proxy failed.", "An earlier message says why."},
      {kSocks5MethodUnsupported, 6, "$1$ beherrscht kein Anmeldeverfahren, das der SOCKS-5-Proxy $2$ verlangt.",
       "$1$ has no method of authentication that the SOCKS 5 proxy $2$ wants.",
       "Give user name and password of the proxy, or allow one of these methods there."},
      {kSocks5CredentialsRejected, 6, "Der SOCKS-5-Proxy lehnt Benutzer oder Kennwort ab.",
       "The SOCKS 5 proxy rejects user name or password.", kCredentialsCure},
      {kSocks5CredentialsReplyNotRead, 6, "Der SOCKS-5-Proxy $1$ hat auf die Anmeldung nicht geantwortet.",
       "The SOCKS 5 proxy $1$ did not answer the login.", kCredentialsCure},
      {kSocks4TailNotRead, 6, "Die Antwort des SOCKS-4-Proxys $1$ ist unvollst\xE4ndig.",
       "The answer of the SOCKS 4 proxy $1$ is not complete.", kDroppedCure},
      {kSocks4ReplyNotRead, 6, "Der SOCKS-4-Proxy $1$ hat nicht geantwortet.", "The SOCKS 4 proxy $1$ did not answer.",
       kDroppedCure},
      {kSocks5CredentialsNotSent, 6, "Die Anmeldung konnte nicht an den SOCKS-5-Proxy $1$ gesendet werden.",
       "The login could not be sent to the SOCKS 5 proxy $1$.", kDroppedCure},
      {kSocks5ConnectNotSent, 6, "Der Verbindungswunsch konnte nicht an den SOCKS-5-Proxy $1$ gesendet werden.",
       "The request to connect could not be sent to the SOCKS 5 proxy $1$.", kDroppedCure},
      {kSocks4RequestNotSent, 6, "Der Verbindungswunsch konnte nicht an den SOCKS-4-Proxy $1$ gesendet werden.",
       "The request to connect could not be sent to the SOCKS 4 proxy $1$.", kDroppedCure},
      {kSocks5ConnectRefused, 6, "Der SOCKS-5-Proxy $1$ stellt keine Verbindung zu $2$ her.",
       "The SOCKS 5 proxy $1$ makes no connection to $2$.", kRefusedCure},
      {kSocks4Refused, 6, "Der SOCKS-4-Proxy $1$ stellt keine Verbindung zu $2$ her.",
       "The SOCKS 4 proxy $1$ makes no connection to $2$.", kRefusedCure},
      {kSocks4OtherAddress, 6, "Der SOCKS-4-Proxy $1$ nennt in seiner Antwort eine andere Adresse ($2$).",
       "The SOCKS 4 proxy $1$ names another address in its answer ($2$).",
       "Some proxies never name their own address: set \"Kommunikation\"/\"SocksGenau\" to 1 for them."},
  });
  // clang-format on
  return kRows;
}

}  // namespace yinet
