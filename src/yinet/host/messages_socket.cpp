#include <array>

#include "yinet/host/messages.h"

namespace yinet {

using namespace message;

namespace {

constexpr std::string_view kPeerCure =
    "The peer or the network ended the connection; the extra text has the cause. Try again.";
constexpr std::string_view kReachCure =
    "Check host and port, that the service runs there, and that no firewall is in between; the extra text has the "
    "cause.";
constexpr std::string_view kTlsCure =
    "The extra text has the cause. Check that the port speaks TLS and that both sides share a TLS version and a "
    "cipher.";
constexpr std::string_view kRejectedCure =
    "Renew the server's certificate, or add its issuer to the trusted certificates; the extra text describes it.";
constexpr std::string_view kFolderCure =
    "Name an existing folder with trusted certificates; empty items are not allowed.";
constexpr std::string_view kGaveUpCure =
    "The connection never came up. Check host and port, or raise \"Kommunikation\"/\"SendeVersuche\".";
constexpr std::string_view kAddressCure =
    "Check the setting \"Kommunikation\"/\"StandardIPAdresse\": it holds an address without a port.";
constexpr std::string_view kPrepareCure = "Call PrepareForAccepting first and see that it succeeds.";
constexpr std::string_view kAcceptCure =
    "The extra text has the cause; often the process has too many open files. The listener goes on.";
constexpr std::string_view kModeCure = "Call the form of Accept that fits the mode given to PrepareForAccepting.";

}  // namespace

// Sockets and TLS.
std::span<const MessageText> socket_messages() {
  // clang-format off
  static constexpr auto kRows = std::to_array<MessageText>({
      {kPasswordBufferTooSmall, 2,
       "Das Kennwort des privaten Schl\xFCssels ist f\xFCr den Puffer der TLS-Bibliothek zu lang.",
       "The private key's password is too long for the TLS library's buffer.",
       "Protect the key with a shorter password."},
      {kCertificateListItemFailed, 2, "Der Eintrag \"$1$\" der Zertifikatsliste kann nicht geladen werden.",
       "The item \"$1$\" of the certificate list cannot be loaded.", kFolderCure},
      {kCertificateFolderFailed, 2, "Das Zertifikatsverzeichnis \"$1$\" kann nicht geladen werden.",
       "The certificate folder \"$1$\" cannot be loaded.", kFolderCure},
      {kListenTlsFailed, 6, "F\xFCr den Empfang von Verbindungen kann TLS nicht eingerichtet werden.",
       "TLS cannot be set up for accepting connections.",
       "The extra text has the cause; check the server's certificate and key."},
      {kListenAddressFailed, 6, "Die Adresse f\xFCr den Empfang von Verbindungen ist ung\xFCltig.",
       "The address for accepting connections is not valid.", kAddressCure},
      {kConnectFailed, 6, "Die Verbindung zu $1$ ist fehlgeschlagen.", "The connection to $1$ failed.", kReachCure},
      {kListenFailed, 6, "$1$ kann auf Port $2$ keine Verbindungen annehmen.",
       "$1$ cannot accept connections on port $2$.",
       "End the process that holds the port, or choose another port; ports below 1024 need privileges. The extra text "
       "has the cause."},
      {kAcceptBlockingNotListening, 2, "Wartendes Annehmen einer Verbindung: Der Socket nimmt keine Verbindungen an.",
       "Blocking accept: the socket does not listen.", kPrepareCure},
      {kAcceptBlockingFailed, 2, "Auf Port $1$ konnte keine Verbindung angenommen werden (wartend).",
       "No connection could be accepted on port $1$ (blocking).", kAcceptCure},
      {kHandshakeStepFailed, 2,
       "Der TLS-Handshake ist fehlgeschlagen; die Verbindung bleibt unverschl\xFCsselt bestehen.",
       "The TLS handshake failed; the connection stays open without encryption.", kTlsCure},
      {kCertificateRejected, 6,
       "Das Zertifikat von $1$ wurde abgelehnt (Pr\xFC"
       "fergebnis $2$).",
       "The certificate of $1$ was rejected (verification result $2$).", kRejectedCure},
      {kStartTlsContextFailed, 2, "F\xFCr die Verbindung zu $1$ kann TLS nicht eingerichtet werden.",
       "TLS cannot be set up for the connection to $1$.",
       "An earlier message says why; check the certificate folders."},
      {kAcceptNeedsBlocking, 8, "Accept() ist nur f\xFCr wartende Sockets.", "Accept() is for blocking sockets only.",
       kModeCure},
      {kAcceptNeedsNonBlocking, 8, "Accept(connection) ist nur f\xFCr nicht wartende Sockets.",
       "Accept(connection) is for non-blocking sockets only.", kModeCure},
      {kLockRequested, 0, "TLS-Sperre $1$ angefordert ($2$)", "TLS lock $1$ requested ($2$)", ""},
      {kUnlockRequested, 0, "Freigabe der TLS-Sperre $1$ angefordert", "Release of TLS lock $1$ requested", ""},
      {kSendTextGaveUp, 2, "Der Text konnte nicht gesendet werden: Die Verbindung kam nicht zustande.",
       "The text could not be sent: the connection did not come up.", kGaveUpCure},
      {kTlsContextFailed, 2, "Die TLS-Bibliothek kann nicht eingerichtet werden.", "The TLS library cannot be set up.",
       "The extra text has the cause; check the system's OpenSSL configuration and the settings under \"TLS\"."},
      {kListenTlsAddressFailed, 6, "Die Adresse f\xFCr den Empfang von TLS-Verbindungen ist ung\xFCltig.",
       "The address for accepting TLS connections is not valid.", kAddressCure},
      {kTlsConnectFailed, 2, "Der TLS-Handshake mit $1$ ist fehlgeschlagen.", "The TLS handshake with $1$ failed.",
       kTlsCure},
      {kConnectTlsFailed, 6, "Die TLS-Verbindung zu $1$ ist fehlgeschlagen.", "The TLS connection to $1$ failed.",
       kTlsCure},
      {kConnectBlockingFailed, 6, "Die wartende Verbindung zu $1$ ist fehlgeschlagen.",
       "The blocking connection to $1$ failed.", kReachCure},
      {kAcceptNotListening, 2, "Nicht wartendes Annehmen einer Verbindung: Der Socket nimmt keine Verbindungen an.",
       "Non-blocking accept: the socket does not listen.", kPrepareCure},
      {kAcceptFailed, 2, "Auf Port $1$ konnte keine Verbindung angenommen werden (nicht wartend).",
       "No connection could be accepted on port $1$ (non-blocking).", kAcceptCure},
      {kStartTlsCertificateRejected, 2,
       "Das Zertifikat von $1$ wurde beim Wechsel zu TLS abgelehnt (Pr\xFC"
       "fergebnis $2$).",
       "The certificate of $1$ was rejected when the connection changed to TLS (verification result $2$).",
       kRejectedCure},
      {kReceiveBufferFailed, 2, "Der nicht wartende Empfang von Daten ist fehlgeschlagen.",
       "Data could not be received (non-blocking).", kPeerCure},
      {kReceiveBufferBlockingFailed, 2, "Der wartende Empfang von Daten ist fehlgeschlagen.",
       "Data could not be received (blocking).", kPeerCure},
      {kReceiveTextBlockingFailed, 2, "Der wartende Empfang von Text ist fehlgeschlagen.",
       "Text could not be received (blocking).", kPeerCure},
      {kReceiveTextFailed, 2, "Der nicht wartende Empfang von Text ist fehlgeschlagen.",
       "Text could not be received (non-blocking).", kPeerCure},
      {kSendBufferBlockingFailed, 2, "Das wartende Senden von Daten ist fehlgeschlagen.",
       "Data could not be sent (blocking).", kPeerCure},
      {kSendTextFailed, 2, "Das nicht wartende Senden von Text ist fehlgeschlagen.",
       "Text could not be sent (non-blocking).", kPeerCure},
      {kSendBufferFailed, 2, "Das nicht wartende Senden von Daten ist fehlgeschlagen.",
       "Data could not be sent (non-blocking).", kPeerCure},
      {kSendTextBlockingFailed, 2, "Das wartende Senden von Text ist fehlgeschlagen.",
       "Text could not be sent (blocking).", kPeerCure},
      {kStartTlsFailed, 2, "Der Wechsel zu TLS auf der Verbindung zu $1$ ist fehlgeschlagen.",
       "The connection to $1$ could not change to TLS.", kTlsCure},
      {kLockTaken, 0, "TLS-Sperre $1$ erhalten ($2$)", "TLS lock $1$ taken ($2$)", ""},
      {kUnlocked, 0, "TLS-Sperre $1$ freigegeben", "TLS lock $1$ released", ""},
      {kSendBufferGaveUp, 2, "Die Daten konnten nicht gesendet werden: Die Verbindung kam nicht zustande.",
       "The data could not be sent: the connection did not come up.", kGaveUpCure},
      {kListenUnnamedService, 6, "Ein Dienst", "A service",
       "Part of message 21411; programs can give their service a name."},
      {kListenPortHeld, 6, "Der Port wird von \"$1$\" verwendet.", "The port is held by \"$1$\".",
       "Part of message 21411: end this process, or choose another port."},
  });
  // clang-format on
  return kRows;
}

}  // namespace yinet
