#include <array>

#include "yinet/host/messages.h"

namespace yinet {

using namespace message;

namespace {

constexpr std::string_view kParameterCure = "Give the script function this parameter.";
constexpr std::string_view kServerCure = "Check the remote name, the account's rights and the space on the server.";
constexpr std::string_view kLocalCure = "Check name and rights of the local file.";

}  // namespace

// SFTP. The context text has level 0.
std::span<const MessageText> ssh_messages() {
  // clang-format off
  static constexpr auto kRows = std::to_array<MessageText>({
      {kSshHostMissing, 5, "Der Parameter \"pHost\" fehlt.", "The parameter \"pHost\" is missing.", kParameterCure},
      {kSshConnectFailed, 6, "Die SSH-Verbindung zu $1$ ist fehlgeschlagen: $2$", "The SSH connection to $1$ failed: $2$",
       "Check host, port, user name, password and proxy; the entries before this one tell more."},
      {kSshUploadFailed, 6, "Die Datei $1$ konnte nicht per SFTP \xFC" "bertragen werden: $2$",
       "The file $1$ could not be uploaded over SFTP: $2$", kServerCure},
      {kSshDownloadFailed, 6, "Die Datei $1$ konnte nicht per SFTP geholt werden: $2$",
       "The file $1$ could not be downloaded over SFTP: $2$", "Check the remote name and the local folder."},
      {kSshSourceMissing, 5, "Der Parameter f\xFCr die Quelldatei fehlt.", "The parameter for the source file is missing.",
       kParameterCure},
      {kSshTargetMissing, 5, "Der Parameter f\xFCr das Ziel fehlt.", "The parameter for the target is missing.",
       kParameterCure},
      {kSshListedFolderMissing, 5, "Der Parameter f\xFCr das zu lesende Verzeichnis fehlt.",
       "The parameter for the folder to list is missing.", kParameterCure},
      {kSshRemoveFolderFailed, 6, "Das Verzeichnis $1$ konnte nicht per SFTP gel\xF6scht werden: $2$",
       "The folder $1$ could not be removed over SFTP: $2$", "It must be empty, and the account must be allowed to remove it."},
      {kSshCreateFolderFailed, 6, "Das Verzeichnis $1$ konnte nicht per SFTP angelegt werden: $2$",
       "The folder $1$ could not be created over SFTP: $2$", kServerCure},
      {kSshNewFolderMissing, 5, "Der Parameter f\xFCr das anzulegende Verzeichnis fehlt.",
       "The parameter for the folder to create is missing.", kParameterCure},
      {kSshHostKey, 8, "Host-Schl\xFCssel von $1$: $2$", "Host key of $1$: $2$",
       "Compare it with what \"ssh-keygen -lf\" tells on the server; \"SSH\"/\"BekannteHosts\" has it checked."},
      {kSshHostKeyUnknown, 6, "Der Host-Schl\xFCssel von $1$ ist nicht bekannt: $2$ steht nicht in $3$.",
       "The host key of $1$ is not known: $2$ is not in $3$.",
       "Make sure that it is the right server, then add its key to the file, as \"ssh-keyscan\" prints it."},
      {kSshKeyUnusable, 6, "Die Datei $1$ enth\xE4lt keinen privaten Schl\xFCssel, den das Kennwort \xF6" "ffnet.",
       "The file $1$ holds no private key that the password opens.",
       "Check the file and \"SSH\"/\"SchluesselPasswort\" or \"pSchluesselPasswort\"."},
      {kSshRemoteNotOpened, 6, "Die entfernte Datei $1$ kann nicht zum Schreiben ge\xF6" "ffnet werden.",
       "The remote file $1$ cannot be opened for writing.", kServerCure},
      {kSshUploadContext, 0, "SFTP-Fehler $1$ ($2$)", "SFTP error $1$ ($2$)", ""},
      {kSshLocalNotOpened, 6, "Die Datei $1$ kann nicht ge\xF6" "ffnet werden.", "The file $1$ cannot be opened.", kLocalCure},
      {kSshLocalNotRead, 6, "Die Datei $1$ kann nicht gelesen werden.", "The file $1$ cannot be read.", kLocalCure},
      {kSshTransferFailed, 6, "Die Datei $1$ wurde nicht vollst\xE4ndig nach $2$ \xFC" "bertragen.",
       "The file $1$ was not transferred completely to $2$.", kServerCure},
      {kSshRemoteNotClosed, 6, "Die entfernte Datei $1$ kann nicht geschlossen werden; sie ist vielleicht unvollst\xE4ndig.",
       "The remote file $1$ cannot be closed; it may not be complete.", kServerCure},
  });
  // clang-format on
  return kRows;
}

}  // namespace yinet
