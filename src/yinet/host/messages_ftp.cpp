#include <array>

#include "yinet/host/messages.h"

namespace yinet {

using namespace message;

namespace {

constexpr std::string_view kReplyCure =
    "Check file name and permissions on the server. Its answer is in the trace (--trace); the context holds the last "
    "one, "
    "mostly that to QUIT.";
constexpr std::string_view kCheckCure =
    "The transfer is not to be trusted: try again, and compare the file with its original.";

}  // namespace

// FTP. Context texts and traces have level 0.
std::span<const MessageText> ftp_messages() {
  // clang-format off
  static constexpr auto kRows = std::to_array<MessageText>({
      {kFtpUploadFailed, 6, "Die Datei $1$ konnte nicht zu $2$ \xFC" "bertragen werden.",
       "The file $1$ could not be uploaded to $2$.", kReplyCure},
      {kFtpUploadContext, 0,
       "Server: $1$, Benutzer: $2$, Kennwort: $3$, Quelldatei: $4$ ($5$), Zieldatei: $6$ ($7$), Antwort: $8$",
       "Server: $1$, User: $2$, Password: $3$, Source file: $4$ ($5$), Target file: $6$ ($7$), Reply: $8$", ""},
      {kFtpDeleteFailed, 6, "Die Datei $1$ konnte auf $2$ nicht gel\xF6scht werden.",
       "The file $1$ could not be deleted on $2$.", kReplyCure},
      {kFtpDeleteContext, 0, "Server: $1$, Benutzer: $2$, Kennwort: $3$, Datei: $4$ ($5$), Antwort: $6$",
       "Server: $1$, User: $2$, Password: $3$, File: $4$ ($5$), Reply: $6$", ""},
      {kFtpLineBreakRefused, 6, "Der FTP-Befehl $1$ wurde nicht gesendet: Sein Text enth\xE4lt CR, LF oder NUL.",
       "The FTP command $1$ was not sent: its text holds CR, LF or NUL.",
       "Take line breaks and NUL bytes out of user name, password and file names."},
      {kFtpTlsRefused, 6, "Der FTP-Server $1$ lehnt TLS ab: $2$", "The FTP server $1$ refuses TLS: $2$",
       "Use FTP type 1 for a server without TLS; user name, password and files then travel in clear."},
      {kFtpPassiveAnswerUnusable, 6, "Der FTP-Server $1$ nennt keine brauchbare Datenadresse: $2$",
       "The FTP server $1$ names no usable data address: $2$", "Check the passive mode of the server."},
      {kFtpReplyTooLarge, 6, "Eine Antwort des FTP-Servers $1$ ist l\xE4nger als $2$ Bytes.",
       "A reply of the FTP server $1$ is longer than $2$ bytes.",
       "Check host and port; \"FTP\"/\"AntwortGroesse\" raises the limit."},
      {kFtpClientCertificateFailed, 6, "Das Client-Zertifikat \"$1$\" kann nicht geladen werden.",
       "The client certificate \"$1$\" cannot be loaded.",
       "The PEM file must hold a certificate and its key, without a password; the extra text has the cause."},
      {kFtpCommandRefused, 0, "FTP: der Server lehnt $1$ ab: $2$", "FTP: the server refuses $1$: $2$", ""},
      {kFtpLocalCopyFailed, 6, "Die Datei $1$ konnte nicht nach $2$ kopiert werden.",
       "The file $1$ could not be copied to $2$.", "Check both names; an existing file is not replaced."},
      {kFtpLocalCopyContext, 0, "Server: $1$, Benutzer: $2$, Kennwort: $3$, Datei: $4$, Zielverzeichnis: $5$",
       "Server: $1$, User: $2$, Password: $3$, File: $4$, Target folder: $5$", ""},
      {kFtpRemoteFileMissing, 6, "Die Datei $1$ gibt es auf dem Server nicht; nach $2$ wurde nichts \xFC" "bertragen.",
       "There is no file $1$ on the server; nothing was downloaded to $2$.", kReplyCure},
      {kFtpMissingContext, 0, "Server: $1$, Benutzer: $2$, Kennwort: $3$, Datei: $4$, Antwort: $5$",
       "Server: $1$, User: $2$, Password: $3$, File: $4$, Reply: $5$", ""},
      {kFtpDownloadFailed, 6, "Die Datei $1$ konnte nicht nach $2$ \xFC" "bertragen werden.",
       "The file $1$ could not be downloaded to $2$.", kReplyCure},
      {kFtpDownloadContext, 0,
       "Server: $1$, Benutzer: $2$, Kennwort: $3$, Datei: $4$, Lokale Datei: $5$, Antwort: $6$",
       "Server: $1$, User: $2$, Password: $3$, File: $4$, Local file: $5$, Reply: $6$", ""},
      {kFtpUploadSizeDiffers, 6, "Nach dem Hochladen hat die Datei $1$ auf $2$ eine andere Gr\xF6\xDF" "e.",
       "After the upload the file $1$ has another size on $2$.", kCheckCure},
      {kFtpUploadCheckMissing, 6, "Nach dem Hochladen gibt es die Datei $1$ auf $2$ nicht.",
       "After the upload there is no file $1$ on $2$.", kCheckCure},
      {kFtpUploadCheckUnreadable, 6, "Nach dem Hochladen ist die Gr\xF6\xDF" "e der Datei $1$ auf $2$ nicht zu erfahren.",
       "After the upload the size of the file $1$ on $2$ cannot be found out.", kCheckCure},
      {kFtpDownloadSizeDiffers, 6, "Nach dem Herunterladen hat die Datei $1$ eine andere Gr\xF6\xDF" "e als auf $2$.",
       "After the download the file $1$ has another size than on $2$.", kCheckCure},
      {kFtpDownloadCheckMissing, 6, "Nach dem Herunterladen gibt es die Datei $1$ auf $2$ nicht mehr.",
       "After the download the file $1$ is no longer on $2$.", kCheckCure},
      {kFtpDownloadCheckUnreadable, 6,
       "Nach dem Herunterladen ist die Gr\xF6\xDF" "e der Datei $1$ auf $2$ nicht zu erfahren.",
       "After the download the size of the file $1$ on $2$ cannot be found out.", kCheckCure},
      {kFtpSizeCheckFailed, 6, "Der Gr\xF6\xDF" "envergleich der Datei $1$ mit $2$ ist fehlgeschlagen.",
       "The size of the file $1$ could not be compared with the one on $2$.",
       "The transfer itself succeeded; check that the server allows a second login."},
      {kFtpConnecting, 0, "FTP: Verbindung zu $1$", "FTP: connecting to $1$", ""},
      {kFtpConnected, 0, "FTP: mit $1$ verbunden", "FTP: connected to $1$", ""},
      {kFtpConnectFailed, 0, "FTP: keine Verbindung zu $1$", "FTP: no connection to $1$", ""},
      {kFtpSocksFailed, 0, "FTP: SOCKS-Proxy $1$ verweigert $2$", "FTP: SOCKS proxy $1$ refuses $2$", ""},
      {kFtpProxyConnected, 0, "FTP: \xFC" "ber den Proxy $1$ mit $2$ verbunden",
       "FTP: connected to $2$ through proxy $1$", ""},
      {kFtpProxyFailed, 0, "FTP: keine Verbindung \xFC" "ber den Proxy $1$ zu $2$",
       "FTP: no connection to $2$ through proxy $1$", ""},
      {kFtpProxyStep, 0, "FTP: Verbindung zum Proxy $1$, Ergebnis $2$", "FTP: connection to proxy $1$, result $2$", ""},
      {kFtpProxyConnecting, 0, "FTP: Verbindung zum Proxy $1$", "FTP: connecting to proxy $1$", ""},
      {kFtpSocksStep, 0, "FTP: SOCKS-Dialog mit $1$, Ergebnis $2$", "FTP: SOCKS dialogue with $1$, result $2$", ""},
      {kFtpProxyLogin, 0, "FTP: Anmeldung an $1$ \xFC" "ber den FTP-Proxy $2$",
       "FTP: login to $1$ through the FTP proxy $2$", ""},
      {kFtpProxyLoginAccepted, 0, "FTP: Benutzer vom FTP-Proxy $1$ angenommen",
       "FTP: user accepted by the FTP proxy $1$", ""},
      {kFtpProxyLoginRefused, 0, "FTP: Benutzer vom FTP-Proxy $1$ abgelehnt", "FTP: user refused by the FTP proxy $1$", ""},
      {kFtpUploadBegins, 0, "FTP: Hochladen von $1$ nach $2$", "FTP: uploading $1$ to $2$", ""},
      {kFtpDownloadBegins, 0, "FTP: Herunterladen von $1$ nach $2$", "FTP: downloading $1$ to $2$", ""},
      {kFtpTransferBegins, 0, "FTP: Daten von $1$ beginnen", "FTP: data of $1$ begins", ""},
      {kFtpTransferEnds, 0, "FTP: Daten von $1$ vollst\xE4ndig", "FTP: data of $1$ has ended", ""},
      {kFtpTransferBroken, 0, "FTP: Daten von $1$ abgebrochen", "FTP: data of $1$ broken off", ""},
      {kFtpDataConnecting, 0, "FTP: Datenverbindung zu $1$:$2$", "FTP: data connection to $1$:$2$", ""},
      {kFtpDataFailed, 0, "FTP: keine Datenverbindung zu $1$:$2$", "FTP: no data connection to $1$:$2$", ""},
      {kFtpDataConnected, 0, "FTP: Datenverbindung zu $1$:$2$ steht", "FTP: data connection to $1$:$2$ is there", ""},
  });
  // clang-format on
  return kRows;
}

}  // namespace yinet
