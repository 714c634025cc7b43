#include <array>

#include "yinet/host/messages.h"

namespace yinet {

using namespace message;

namespace {

constexpr std::string_view kProtocolCure = "Use ftp, ftps or sftp for this.";
constexpr std::string_view kDetailsCure = "The details name server, user and path; check them, and the rights there.";

}  // namespace

// File transfer through libcurl, whose own words are the parameter of the failures from 21540 on.
std::span<const MessageText> transfer_messages() {
  // clang-format off
  static constexpr auto kRows = std::to_array<MessageText>({
      {kTransferHandleFailed, 6, "Die \xDC" "bertragungsbibliothek kann nicht benutzt werden.",
       "The transfer library cannot be used.", "Memory may be short."},
      {kTransferNoProtocol, 6, "Es ist kein Protokoll angegeben.", "No protocol is given.",
       "Give a server URL such as sftp://host, or the protocol."},
      {kTransferNoServer, 6, "Es ist kein Server angegeben.", "No server is given.", "Give host, or host:port."},
      {kTransferProtocolUnknown, 6, "Das Protokoll $1$ wird nicht unterst\xFCtzt.", "The protocol $1$ is not supported.",
       "Protocols are http, https, ftp, ftps and sftp."},
      {kTransferNoProxyProtocol, 6, "Es ist kein Proxy-Protokoll angegeben.", "No proxy protocol is given.",
       "Give a proxy URL such as socks5h://host:port, or the proxy protocol."},
      {kTransferProxyProtocolUnknown, 6, "Das Proxy-Protokoll $1$ wird nicht unterst\xFCtzt.",
       "The proxy protocol $1$ is not supported.",
       "Proxy protocols are http, https, socks4, socks4a, socks5 and socks5h."},
      {kTransferDeleteFileProtocol, 6, "Mit dem Protokoll $1$ k\xF6nnen keine Dateien gel\xF6scht werden.",
       "Files cannot be deleted with the protocol $1$.", kProtocolCure},
      {kTransferDeleteFolderProtocol, 6, "Mit dem Protokoll $1$ k\xF6nnen keine Verzeichnisse gel\xF6scht werden.",
       "Folders cannot be deleted with the protocol $1$.", kProtocolCure},
      {kTransferCreateFolderProtocol, 6, "Mit dem Protokoll $1$ k\xF6nnen keine Verzeichnisse angelegt werden.",
       "Folders cannot be created with the protocol $1$.", kProtocolCure},
      {kTransferUploadFileProtocol, 6, "Mit dem Protokoll $1$ k\xF6nnen keine Dateien hochgeladen werden.",
       "Files cannot be uploaded with the protocol $1$.", kProtocolCure},
      {kTransferUploadTextProtocol, 6, "Mit dem Protokoll $1$ k\xF6nnen keine Texte hochgeladen werden.",
       "Texts cannot be uploaded with the protocol $1$.", kProtocolCure},
      {kTransferFolderExistsProtocol, 6, "Mit dem Protokoll $1$ k\xF6nnen keine Verzeichnisse gesucht werden.",
       "Folders cannot be looked for with the protocol $1$.", kProtocolCure},
      {kTransferLocalFileNotOpened, 6, "Die lokale Datei $1$ kann nicht ge\xF6" "ffnet werden: $2$",
       "The local file $1$ cannot be opened: $2$", "Check the name and the rights of the file."},
      {kTransferLocalFileNotCreated, 6, "Die lokale Datei $1$ kann nicht angelegt werden: $2$",
       "The local file $1$ cannot be created: $2$", "Check the folder, its rights and the space there."},
      {kTransferPortWrong, 6, "Der Port \"$1$\" in der Serveradresse ist keine Zahl ab 1.",
       "The port \"$1$\" in the server's address is no number from 1 on.", "Write the server as host or host:port."},
      {kTransferAddressWrong, 6, "Die Serveradresse $1$ enth\xE4lt ein Zeichen, das nicht hineingeh\xF6rt.",
       "The server's address $1$ holds a character that does not belong there.",
       "Write the server as host or host:port; user and path are given apart."},
      {kTransferLineBreakRefused, 6, "Zeilenumbruch oder NUL in: $1$", "Line break or NUL in: $1$",
       "Take line breaks and NUL bytes out of names and passwords."},
      {kTransferUploadFileFailed, 6, "Die Datei konnte nicht hochgeladen werden: $1$",
       "The file could not be uploaded: $1$", kDetailsCure},
      {kTransferUploadTextFailed, 6, "Der Text konnte nicht hochgeladen werden: $1$",
       "The text could not be uploaded: $1$", kDetailsCure},
      {kTransferDownloadFileFailed, 6, "Die Datei konnte nicht heruntergeladen werden: $1$",
       "The file could not be downloaded: $1$", kDetailsCure},
      {kTransferDownloadTextFailed, 6, "Der Text konnte nicht heruntergeladen werden: $1$",
       "The text could not be downloaded: $1$", kDetailsCure},
      {kTransferDeleteFileFailed, 6, "Die Datei konnte nicht gel\xF6scht werden: $1$",
       "The file could not be deleted: $1$", kDetailsCure},
      {kTransferDeleteFolderFailed, 6, "Das Verzeichnis konnte nicht gel\xF6scht werden: $1$",
       "The folder could not be deleted: $1$", kDetailsCure},
      {kTransferCreateFolderFailed, 6, "Das Verzeichnis konnte nicht angelegt werden: $1$",
       "The folder could not be created: $1$", kDetailsCure},
      {kTransferFolderExistsFailed, 6, "Das Verzeichnis konnte nicht gesucht werden: $1$",
       "The folder could not be looked for: $1$", kDetailsCure},
      {kTransferStatus, 6, "Der Server antwortet mit dem HTTP-Status $1$.", "The server answers with the HTTP status $1$.",
       "Check the path; a redirect is followed by downloads into a file only."},
      {kTransferListFailed, 6, "Das Verzeichnis konnte nicht gelesen werden: $1$", "The folder could not be listed: $1$",
       kDetailsCure},
      {kTransferFileNotTaken, 6, "Die Datei $1$ wurde nicht geholt: Ihr Name ist hier keiner.",
       "The file $1$ was not fetched: its name is none here.",
       "Rename the file on the server, or fetch it alone under a local name."},
      {kTransferFileKept, 6, "Die Datei $1$ bleibt auf dem Server: $2$ Bytes dort, $3$ Bytes hier.",
       "The file $1$ stays on the server: $2$ bytes there, $3$ bytes here.",
       "It changed while it was fetched, or the server tells no sizes. Fetch it again."},
  });
  // clang-format on
  return kRows;
}

}  // namespace yinet
