// SSH_UPLOAD, SSH_DOWNLOAD and the other functions for SFTP: one operation each, on a connection of its own.

#include <algorithm>
#include <array>
#include <string>

#include "yinet/host/message_numbers.h"
#include "yinet/host/text.h"
#include "yinet/host/yfile.h"
#include "yinet/host/ylog.h"
#include "yinet/host/yobject.h"
#include "yinet/script/families.h"
#include "yinet/script/functions.h"
#include "yinet/script/parameter_keys.h"
#include "yinet/script/script_frame.h"
#include "yinet/script/ssh_functions.h"
#include "yinet/script/table_rows.h"
#include "yinet/ssh/ssh_address.h"
#include "yinet/ssh/ssh_client.h"

namespace yinet {
namespace {

constexpr int kMissingLevel = 5;
constexpr std::int32_t kUsualProxyType = 4;

// Connects; a failure is logged.
bool connect(sshClient& client, const YObject& parameters) {
  const YString host = parameters.GetString(key::kSshHost);
  if (host.IsEmpty()) {
    YLog.Event(kMissingLevel, message::kSshHostMissing);
    return false;
  }
  const SshAddress server = split_ssh_address(host, kSshPort);
  const SshAddress proxy = split_ssh_address(parameters.GetString(key::kProxyAddress), kSocksPort);
  const int proxy_type = parameters.Exist(key::kProxyType) ? parameters.GetInteger(key::kProxyType) : kUsualProxyType;
  if (parameters.Exist(key::kKeyFile)) {
    client.set_private_key(parameters.GetString(key::kKeyFile), parameters.GetString(key::kKeyPassword));
  }
  if (client.connect(server.host, server.port, parameters.GetString(key::kUser), parameters.GetString(key::kPassword),
                     proxy.host, proxy.port, proxy_type, parameters.GetString(key::kProxyUser),
                     parameters.GetString(key::kProxyPassword))) {
    return true;
  }
  YLog.Event(message::kErrorLevel, message::kSshConnectFailed, host, client.last_failure_text());
  return false;
}

// The frame of all of them: false as result until `operation`, on a connection, has stored another one.
template <typename Operation>
void on_connection(YObject& parameters, Operation operation) {
  const SecretScope no_password(parameters.GetString(key::kPassword));
  const SecretScope no_proxy_password(parameters.GetString(key::kProxyPassword));
  const SecretScope no_key_password(parameters.GetString(key::kKeyPassword));
  store_result(parameters, false);
  sshClient client;
  if (!connect(client, parameters)) return;
  operation(client);
  client.disconnect();
}

// The text under `key`; null, and logged under `number` unless that is 0, when it is absent or says nothing.
const YString* wanted_text(const YObject& parameters, std::string_view key, int number) {
  const YString* const text = parameters.Find<YString>(key);
  if (text != nullptr && !text->IsEmpty()) return text;
  if (number != 0) YLog.Event(kMissingLevel, number);
  return nullptr;
}

void store_outcome(YObject& parameters, const sshClient& client, bool done, int failure, const YString& name) {
  store_result(parameters, done);
  if (!done && failure != 0) YLog.Event(message::kErrorLevel, failure, name, client.last_failure_text());
}

// What follows the last "/" of a remote name. It may come from a server's listing, so what could lead out of the local
// folder is no part of it; empty when nothing remains.
YString own_name(const YString& remote) {
  const std::string_view text(remote);
  const YString name = YFile::ExtractNameAndExtension(YString(text.substr(text.rfind('/') + 1)));
  return name == "." || name == ".." ? YString() : name;
}

void ssh_create_directory(YObject& parameters) {
  on_connection(parameters, [&](sshClient& client) {
    const YString* const folder = wanted_text(parameters, key::kTargetFolder, message::kSshNewFolderMissing);
    if (folder == nullptr) return;
    const bool done = client.createDirectory(*folder, nullptr);
    store_outcome(parameters, client, done, message::kSshCreateFolderFailed, *folder);
  });
}

void ssh_remove_directory(YObject& parameters) {
  on_connection(parameters, [&](sshClient& client) {
    const YString* const folder = wanted_text(parameters, key::kTargetFolder, 0);
    if (folder == nullptr) return;
    const bool done = client.removeDirectory(*folder, nullptr);
    store_outcome(parameters, client, done, message::kSshRemoveFolderFailed, *folder);
  });
}

void ssh_get_directory(YObject& parameters) {
  on_connection(parameters, [&](sshClient& client) {
    const YString* const folder = wanted_text(parameters, key::kTargetFolder, message::kSshListedFolderMissing);
    store_result(parameters,
                 folder != nullptr ? std::string_view(client.getDirectory(*folder, nullptr)) : std::string_view());
  });
}

// --- The table ------------------------------------------------------------------------------------------------------------

constexpr auto kConnection = std::to_array<ScriptParameter>({
    in_text(key::kSshHost, "Server as host or host:port, port 22 by default; an IPv6 address in brackets."),
    in_text(key::kUser, "Login name."),
    in_password(key::kPassword, "Password."),
    in_text(key::kKeyFile, "File with a private key to log in with; the setting SSH/Schluessel when absent."),
    in_password(key::kKeyPassword, "Password of that file."),
    in_text(key::kProxyAddress, "SOCKS proxy as host or host:port, port 1080 by default; no proxy when empty."),
    in_text(key::kProxyUser, "User of the proxy."),
    in_password(key::kProxyPassword, "Password of the proxy."),
    in_number(key::kProxyType, "4", "Version of SOCKS: 4 or 5."),
});

// A function's own parameters, behind those of the connection.
template <std::size_t Count>
constexpr auto with_connection(const ScriptParameter (&own)[Count]) {
  std::array<ScriptParameter, kConnection.size() + Count> all{};
  std::ranges::copy(own, std::ranges::copy(kConnection, all.begin()).out);
  return all;
}

constexpr auto kUploadParameters =
    with_connection({in_text(key::kSourceFile, "The local file."),
                     in_text(key::kTargetFile, "Name on the server; an existing file is replaced.")});
constexpr auto kDownloadParameters = with_connection(
    {in_text(key::kFileName, "The file on the server."),
     in_text(key::kTargetFolder, "Local folder for it."),
     in_text(key::kLocalName, "Name of the local file; that of the remote file when empty."),
     {.key = key::kComplete,
      .type = kTypeBool,
      .direction = Direction::in,
      .default_value = "0",
      .meaning =
          "True fetches the whole file; otherwise the local file gets 5242880 bytes, cut or filled up with zeros."}});
constexpr auto kDeleteParameters = with_connection({in_text(key::kFileName, "The file on the server.")});
constexpr auto kFolderParameters = with_connection({in_text(key::kTargetFolder, "The folder on the server.")});

constexpr std::array kConnectionMessages = {message::kScriptFunctionFailed, message::kSshHostMissing,
                                            message::kSshConnectFailed,     message::kSshHostKey,
                                            message::kSshHostKeyUnknown,    message::kSshKeyUnusable};
constexpr auto kUploadMessages =
    messages_with(kConnectionMessages, message::kSshUploadFailed, message::kSshSourceMissing,
                  message::kSshTargetMissing, message::kSshRemoteNotOpened, message::kSshLocalNotOpened,
                  message::kSshLocalNotRead, message::kSshTransferFailed, message::kSshRemoteNotClosed);
constexpr auto kDownloadMessages = messages_with(kConnectionMessages, message::kSshDownloadFailed,
                                                 message::kSshSourceMissing, message::kSshTargetMissing);
constexpr auto kCreateMessages =
    messages_with(kConnectionMessages, message::kSshCreateFolderFailed, message::kSshNewFolderMissing);
constexpr auto kRemoveMessages = messages_with(kConnectionMessages, message::kSshRemoveFolderFailed);
constexpr auto kListMessages = messages_with(kConnectionMessages, message::kSshListedFolderMissing);

#define YINET_SSH_LOGIN_EXAMPLE "pHost=sftp.example.com", "pUser=me", "pPasswd=secret"
constexpr auto kUploadExample = std::to_array<std::string_view>(
    {YINET_SSH_LOGIN_EXAMPLE, "pQuellDateiname=today.txt", "pZieldateiname=reports/today.txt"});
constexpr auto kDownloadExample = std::to_array<std::string_view>(
    {YINET_SSH_LOGIN_EXAMPLE, "pDateiname=reports/today.txt", "pZielverzeichnis=.", "pVollstaendig=true"});
constexpr auto kDeleteExample =
    std::to_array<std::string_view>({YINET_SSH_LOGIN_EXAMPLE, "pDateiname=reports/today.txt"});
constexpr auto kFolderExample = std::to_array<std::string_view>({YINET_SSH_LOGIN_EXAMPLE, "pZielverzeichnis=reports"});
#undef YINET_SSH_LOGIN_EXAMPLE

constexpr auto kFunctions = std::to_array<ScriptFunction>(
    {{"SSH_UPLOAD", &SSH_UPLOAD, "SSH", "Brings one file to an SFTP server.", kUploadParameters, kTypeBool,
      kTrueWhenDone, kUploadMessages, kUploadExample},
     {"SSH_DOWNLOAD", &SSH_DOWNLOAD, "SSH", "Fetches one file from an SFTP server.", kDownloadParameters, kTypeBool,
      kTrueWhenDone, kDownloadMessages, kDownloadExample},
     {"SSH_DELETE", &SSH_DELETE, "SSH", "Deletes one file on an SFTP server.", kDeleteParameters, kTypeBool,
      kTrueWhenDone, kConnectionMessages, kDeleteExample},
     {"SSH_CREATEDIRECTORY", &SSH_CREATEDIRECTORY, "SSH", "Makes a folder on an SFTP server unless it exists.",
      kFolderParameters, kTypeBool, kTrueWhenDone, kCreateMessages, kFolderExample},
     {"SSH_REMOVEDIRECTORY", &SSH_REMOVEDIRECTORY, "SSH", "Removes an empty folder on an SFTP server.",
      kFolderParameters, kTypeBool, kTrueWhenDone, kRemoveMessages, kFolderExample},
     {"SSH_GETDIRECTORY", &SSH_GETDIRECTORY, "SSH", "Lists a folder on an SFTP server.", kFolderParameters, kTypeString,
      "The names, separated by bytes 0x01; false without a connection.", kListMessages, kFolderExample}});

}  // namespace

void ssh_upload(YObject& parameters) {
  on_connection(parameters, [&](sshClient& client) {
    const YString* const source = wanted_text(parameters, key::kSourceFile, message::kSshSourceMissing);
    if (source == nullptr) return;
    const YString* const target = wanted_text(parameters, key::kTargetFile, message::kSshTargetMissing);
    if (target == nullptr) return;
    const bool done = client.uploadFile(*source, *target, nullptr);
    store_outcome(parameters, client, done, message::kSshUploadFailed, *source);
  });
}

void ssh_download(YObject& parameters) {
  on_connection(parameters, [&](sshClient& client) {
    const YString* const remote = wanted_text(parameters, key::kFileName, message::kSshSourceMissing);
    if (remote == nullptr) return;
    const YString* const folder = wanted_text(parameters, key::kTargetFolder, message::kSshTargetMissing);
    if (folder == nullptr) return;
    YString name = parameters.GetString(key::kLocalName);
    if (name.IsEmpty()) name = own_name(*remote);
    if (name.IsEmpty()) {
      YLog.Event(message::kErrorLevel, message::kSshDownloadFailed, *remote,
                 "it names no file, and \"pLokalerName\" is empty");
      return;
    }
    const YString local(formatted("$1$\\$2$", *folder, name));
    const bool done = parameters.GetBool(key::kComplete) ? client.downloadWholeFile(*remote, local, nullptr)
                                                         : client.downloadFile(*remote, local, nullptr);
    store_outcome(parameters, client, done, message::kSshDownloadFailed, *remote);
  });
}

void ssh_delete(YObject& parameters) {
  on_connection(parameters, [&](sshClient& client) {
    const YString* const remote = wanted_text(parameters, key::kFileName, 0);
    if (remote != nullptr) store_outcome(parameters, client, client.deleteFile(*remote, nullptr), 0, *remote);
  });
}

std::span<const ScriptFunction> ssh_functions() { return kFunctions; }

}  // namespace yinet

YINET_SCRIPT_FUNCTION(SSH_UPLOAD, yinet::ssh_upload)
YINET_SCRIPT_FUNCTION(SSH_DOWNLOAD, yinet::ssh_download)
YINET_SCRIPT_FUNCTION(SSH_DELETE, yinet::ssh_delete)
YINET_SCRIPT_FUNCTION(SSH_CREATEDIRECTORY, yinet::ssh_create_directory)
YINET_SCRIPT_FUNCTION(SSH_REMOVEDIRECTORY, yinet::ssh_remove_directory)
YINET_SCRIPT_FUNCTION(SSH_GETDIRECTORY, yinet::ssh_get_directory)
