// YINETFILETRANSFER_*: one operation each, on a connection of its own. The worker reports its failures itself.

#include <array>
#include <string_view>

#include "yinet/filetransfer/transfer_formats.h"
#include "yinet/filetransfer/yinet_file_transfer.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/ybuffer.h"
#include "yinet/host/ylog.h"
#include "yinet/host/yobject.h"
#include "yinet/script/families.h"
#include "yinet/script/functions.h"
#include "yinet/script/parameter_keys.h"
#include "yinet/script/script_frame.h"
#include "yinet/script/table_rows.h"

namespace yinet {
namespace {

// --- The connection -------------------------------------------------------------------------------------------------------

template <typename Setter>
void set_text(YInetFileTransfer& transfer, const YObject& connection, std::string_view key, Setter setter) {
  const YString text = connection.GetString(key);
  if (!text.IsEmpty()) (transfer.*setter)(text);
}

// A key without a value, or with an empty text, counts as absent.
bool has_value(const YObject& connection, std::string_view key) {
  const std::uint8_t type = connection.GetType(key);
  return type != kTypeAny && !(type == kTypeString && connection.GetString(key).IsEmpty());
}

template <typename Setter>
void set_number(YInetFileTransfer& transfer, const YObject& connection, std::string_view key, Setter setter) {
  if (has_value(connection, key)) (transfer.*setter)(connection.GetInteger(key));
}

// A port that is no number would count as 0, and another server might answer there. Refused with a message.
bool has_readable_ports(const YObject& connection) {
  for (const std::string_view key : {key::kPort, key::kProxyPort}) {
    if (!has_value(connection, key) || connection.GetType(key) == kTypeInteger) continue;
    const std::uint8_t type = connection.GetType(key);
    const YString text = connection.GetString(key);
    if (type == kTypeString && is_port_text(text)) continue;
    YLog.Event(message::kErrorLevel, message::kTransferPortWrong,
               type == kTypeString ? std::string_view(text) : type_name(type));
    return false;
  }
  return true;
}

// In this order: "Protokoll" and "Server" replace their parts of "ServerUrl". What is no good makes the operation fail.
void apply_connection(YInetFileTransfer& transfer, const YObject& connection) {
  using Transfer = YInetFileTransfer;
  set_text(transfer, connection, key::kServerUrl, &Transfer::SetServerUrl);
  set_text(transfer, connection, key::kProtocol, &Transfer::SetProtocol);
  set_text(transfer, connection, key::kServer, &Transfer::SetServer);
  set_number(transfer, connection, key::kPort, &Transfer::SetPortA);
  transfer.SetUsername(connection.GetString(key::kLoginName));
  transfer.SetPassword(connection.GetString(key::kLoginPassword));
  set_text(transfer, connection, key::kProxyServerUrl, &Transfer::SetProxyServerUrl);
  set_text(transfer, connection, key::kProxyProtocol, &Transfer::SetProxyProtocol);
  set_text(transfer, connection, key::kProxyServer, &Transfer::SetProxyServer);
  set_number(transfer, connection, key::kProxyPort, &Transfer::SetProxyPort);
  transfer.SetProxyUsername(connection.GetString(key::kProxyLoginName));
  transfer.SetProxyPassword(connection.GetString(key::kProxyLoginPassword));
}

template <typename Operation>
void run(YObject& parameters, Operation operation) {
  const YObject nothing;
  const auto* const given = parameters.Find<YObject>(key::kConnection);
  const YObject& connection = given ? *given : nothing;
  const SecretScope no_password(connection.GetString(key::kLoginPassword));
  const SecretScope no_proxy_password(connection.GetString(key::kProxyLoginPassword));
  YInetFileTransfer transfer;
  if (given) apply_connection(transfer, connection);
  store_result(parameters, has_readable_ports(connection) && operation(transfer));
}

// --- The functions --------------------------------------------------------------------------------------------------------

void download_file(YObject& parameters) {
  run(parameters, [&](YInetFileTransfer& transfer) {
    return transfer.DownloadToFile(parameters.GetString(key::kSourcePath), parameters.GetString(key::kTargetPath));
  });
}

void download_text(YObject& parameters) {
  YString& content = live_text(parameters, key::kText);
  content.Clear();
  run(parameters, [&](YInetFileTransfer& transfer) {
    return transfer.DownloadToString(parameters.GetString(key::kSourcePath), content);
  });
}

void upload_file(YObject& parameters) {
  run(parameters, [&](YInetFileTransfer& transfer) {
    return transfer.UploadFile(parameters.GetString(key::kSourcePath), parameters.GetString(key::kTargetPath));
  });
}

void upload_text(YObject& parameters) {
  const auto* bytes = parameters.Find<YBuffer>(key::kText);
  const YString content = bytes ? YString(bytes->view()) : parameters.GetString(key::kText);
  run(parameters, [&](YInetFileTransfer& transfer) {
    return transfer.UploadString(content, parameters.GetString(key::kTargetPath));
  });
}

// The four that take one remote path.
using PathOperation = bool (YInetFileTransfer::*)(const YString&);
template <PathOperation operation>
void run_on_path(YObject& parameters) {
  run(parameters, [&](YInetFileTransfer& transfer) { return (transfer.*operation)(parameters.GetString(key::kPath)); });
}

// --- The table ------------------------------------------------------------------------------------------------------------

constexpr ScriptParameter kConnectionRow{
    .key = key::kConnection,
    .type = kTypeObject,
    .direction = Direction::in,
    .default_value = "",
    .meaning =
        "Record with ServerUrl (or Protokoll, Server), Port, Benutzername, Passwort, ProxyServerUrl (or "
        "ProxyProtokoll, ProxyServer), ProxyPort, ProxyBenutzername, ProxyPasswort.",
    .secret = true};
constexpr ScriptParameter kRemoteSourceRow = in_text(key::kSourcePath, "The file on the server.");
constexpr ScriptParameter kRemoteTargetRow =
    in_text(key::kTargetPath, "The file on the server; one that exists is replaced.");
constexpr ScriptParameter kFolderRow = in_text(key::kPath, "The folder on the server.");

constexpr std::array kDownloadFileParameters = {
    kConnectionRow, kRemoteSourceRow, in_text(key::kTargetPath, "The local file; none is left after a failure.")};
constexpr std::array kDownloadTextParameters = {kConnectionRow, kRemoteSourceRow,
                                                out_text(key::kText, "What the file holds; empty after a failure.")};
constexpr std::array kUploadFileParameters = {kConnectionRow, in_text(key::kSourcePath, "The local file."),
                                              kRemoteTargetRow};
constexpr std::array kUploadTextParameters = {
    kConnectionRow, in_text_or_buffer(key::kText, "What to send, as text or as a buffer of bytes."), kRemoteTargetRow};
constexpr std::array kFolderParameters = {kConnectionRow, kFolderRow};
constexpr std::array kFileParameters = {kConnectionRow, in_text(key::kPath, "The file on the server.")};

// What the connection's record can be blamed for.
constexpr std::array kConnectionMessages = {message::kScriptFunctionFailed,         message::kTransferHandleFailed,
                                            message::kTransferNoProtocol,           message::kTransferNoServer,
                                            message::kTransferProtocolUnknown,      message::kTransferNoProxyProtocol,
                                            message::kTransferProxyProtocolUnknown, message::kTransferPortWrong,
                                            message::kTransferAddressWrong,         message::kTransferLineBreakRefused};
constexpr auto kDownloadFileMessages = messages_with(kConnectionMessages, message::kTransferLocalFileNotCreated,
                                                     message::kTransferDownloadFileFailed, message::kTransferStatus);
constexpr auto kDownloadTextMessages =
    messages_with(kConnectionMessages, message::kTransferDownloadTextFailed, message::kTransferStatus);
constexpr auto kUploadFileMessages =
    messages_with(kConnectionMessages, message::kTransferUploadFileProtocol, message::kTransferLocalFileNotOpened,
                  message::kTransferUploadFileFailed);
constexpr auto kUploadTextMessages =
    messages_with(kConnectionMessages, message::kTransferUploadTextProtocol, message::kTransferUploadTextFailed);
constexpr auto kCreateMessages =
    messages_with(kConnectionMessages, message::kTransferCreateFolderProtocol, message::kTransferCreateFolderFailed);
constexpr auto kExistsMessages =
    messages_with(kConnectionMessages, message::kTransferFolderExistsProtocol, message::kTransferFolderExistsFailed);
constexpr auto kDeleteFileMessages =
    messages_with(kConnectionMessages, message::kTransferDeleteFileProtocol, message::kTransferDeleteFileFailed);
constexpr auto kDeleteFolderMessages =
    messages_with(kConnectionMessages, message::kTransferDeleteFolderProtocol, message::kTransferDeleteFolderFailed);

#define YINET_EXAMPLE_CONNECTION \
  R"(pVerbindungsdaten:={"ServerUrl": "sftp://files.example.com", "Benutzername": "me", "Passwort": "secret"})"
constexpr std::array<std::string_view, 3> kDownloadFileExample = {
    YINET_EXAMPLE_CONNECTION, "pQuellPfad=reports/today.txt", "pZielPfad=TEMP:today.txt"};
constexpr std::array<std::string_view, 2> kDownloadTextExample = {YINET_EXAMPLE_CONNECTION,
                                                                  "pQuellPfad=reports/today.txt"};
constexpr std::array<std::string_view, 3> kUploadFileExample = {YINET_EXAMPLE_CONNECTION, "pQuellPfad=today.txt",
                                                                "pZielPfad=reports/today.txt"};
constexpr std::array<std::string_view, 3> kUploadTextExample = {YINET_EXAMPLE_CONNECTION, "pInhalt=Hello",
                                                                "pZielPfad=reports/hello.txt"};
constexpr std::array<std::string_view, 2> kFolderExample = {YINET_EXAMPLE_CONNECTION, "pPfad=reports"};
constexpr std::array<std::string_view, 2> kFileExample = {YINET_EXAMPLE_CONNECTION, "pPfad=reports/today.txt"};

constexpr std::string_view kFamily = "File transfer";
constexpr auto kFunctions = std::to_array<ScriptFunction>(
    {{"YINETFILETRANSFER_DOWNLOAD_DATEI", &YINETFILETRANSFER_DOWNLOAD_DATEI, kFamily,
      "Fetches a file over FTP, FTPS, SFTP, HTTP or HTTPS.", kDownloadFileParameters, kTypeBool, kTrueWhenDone,
      kDownloadFileMessages, kDownloadFileExample},
     {"YINETFILETRANSFER_DOWNLOAD_TEXT", &YINETFILETRANSFER_DOWNLOAD_TEXT, kFamily,
      "Fetches a file over FTP, FTPS, SFTP, HTTP or HTTPS into a text.", kDownloadTextParameters, kTypeBool,
      kTrueWhenDone, kDownloadTextMessages, kDownloadTextExample},
     {"YINETFILETRANSFER_UPLOAD_DATEI", &YINETFILETRANSFER_UPLOAD_DATEI, kFamily,
      "Brings a file to an FTP, FTPS or SFTP server.", kUploadFileParameters, kTypeBool, kTrueWhenDone,
      kUploadFileMessages, kUploadFileExample},
     {"YINETFILETRANSFER_UPLOAD_TEXT", &YINETFILETRANSFER_UPLOAD_TEXT, kFamily,
      "Writes a text to a file on an FTP, FTPS or SFTP server.", kUploadTextParameters, kTypeBool, kTrueWhenDone,
      kUploadTextMessages, kUploadTextExample},
     {"YINETFILETRANSFER_ERSTELLE_VERZEICHNIS", &YINETFILETRANSFER_ERSTELLE_VERZEICHNIS, kFamily,
      "Creates a folder on an FTP, FTPS or SFTP server.", kFolderParameters, kTypeBool, kTrueWhenDone, kCreateMessages,
      kFolderExample},
     {"YINETFILETRANSFER_EXISTIERT_VERZEICHNIS", &YINETFILETRANSFER_EXISTIERT_VERZEICHNIS, kFamily,
      "Tells whether a folder is on an FTP, FTPS or SFTP server.", kFolderParameters, kTypeBool,
      "True when the folder is there; false, without a message, when it is not.", kExistsMessages, kFolderExample},
     {"YINETFILETRANSFER_LOESCHE_DATEI", &YINETFILETRANSFER_LOESCHE_DATEI, kFamily,
      "Deletes a file on an FTP, FTPS or SFTP server.", kFileParameters, kTypeBool, kTrueWhenDone, kDeleteFileMessages,
      kFileExample},
     {"YINETFILETRANSFER_LOESCHE_VERZEICHNIS", &YINETFILETRANSFER_LOESCHE_VERZEICHNIS, kFamily,
      "Deletes an empty folder on an FTP, FTPS or SFTP server.", kFolderParameters, kTypeBool, kTrueWhenDone,
      kDeleteFolderMessages, kFolderExample}});

}  // namespace

std::span<const ScriptFunction> filetransfer_functions() { return kFunctions; }

}  // namespace yinet

YINET_SCRIPT_FUNCTION(YINETFILETRANSFER_DOWNLOAD_DATEI, yinet::download_file)
YINET_SCRIPT_FUNCTION(YINETFILETRANSFER_DOWNLOAD_TEXT, yinet::download_text)
YINET_SCRIPT_FUNCTION(YINETFILETRANSFER_UPLOAD_DATEI, yinet::upload_file)
YINET_SCRIPT_FUNCTION(YINETFILETRANSFER_UPLOAD_TEXT, yinet::upload_text)
YINET_SCRIPT_FUNCTION(YINETFILETRANSFER_ERSTELLE_VERZEICHNIS, yinet::run_on_path<&YInetFileTransfer::CreateDirectoryA>)
YINET_SCRIPT_FUNCTION(YINETFILETRANSFER_EXISTIERT_VERZEICHNIS, yinet::run_on_path<&YInetFileTransfer::ExistsDirectory>)
YINET_SCRIPT_FUNCTION(YINETFILETRANSFER_LOESCHE_DATEI, yinet::run_on_path<&YInetFileTransfer::DeleteFileA>)
YINET_SCRIPT_FUNCTION(YINETFILETRANSFER_LOESCHE_VERZEICHNIS, yinet::run_on_path<&YInetFileTransfer::DeleteDirectory>)
