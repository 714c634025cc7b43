// FTP_*: files of FTP servers through libcurl, in clear or with explicit TLS, singly and by wildcard. Each call has a
// connection of its own. The worker reports its failures itself.

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "yinet/filetransfer/transfer_formats.h"
#include "yinet/filetransfer/yinet_file_transfer.h"
#include "yinet/ftp/ftp_codes.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/text.h"
#include "yinet/host/yfile.h"
#include "yinet/host/ylog.h"
#include "yinet/host/yobject.h"
#include "yinet/script/families.h"
#include "yinet/script/ftp_parameters.h"
#include "yinet/script/functions.h"
#include "yinet/script/script_frame.h"

namespace yinet {
namespace {

constexpr int kFtpPort = 21;  // that of explicit TLS too

std::string_view proxy_protocol(int type) {
  switch (type) {
    case 1: return "http";
    case 4: return "socks4";
    case 5: return "socks5";
    default: return {};
  }
}

template <typename Operation>
void run(YObject& parameters, Operation operation) {
  const YString password = parameters.GetString(key::kPassword);
  const ProxyLogin proxy = proxy_login(parameters);
  const SecretScope no_password(password);
  const SecretScope no_proxy_password(proxy.password);
  YInetFileTransfer transfer;
  transfer.SetProtocol(parameters.GetInteger(key::kFtpType) == ftp::kTlsType ? "ftps" : "ftp");
  transfer.SetServer(parameters.GetString(key::kHost));
  transfer.SetPortA(kFtpPort);
  transfer.SetUsername(parameters.GetString(key::kUser));
  transfer.SetPassword(password);
  if (const auto protocol = proxy_protocol(parameters.GetInteger(key::kProxyType)); !protocol.empty()) {
    transfer.SetProxyProtocol(YString(protocol));
    transfer.SetProxyServer(parameters.GetString(key::kProxyAddress));
    transfer.SetProxyUsername(proxy.user);
    transfer.SetProxyPassword(proxy.password);
  }
  store_result(parameters, operation(transfer));
}

void ftp_upload(YObject& parameters) {
  run(parameters, [&](YInetFileTransfer& transfer) {
    const YString source = parameters.GetString(key::kSourceFile);
    YString target = parameters.GetString(key::kTargetFile);
    if (target.IsEmpty() || target.EndsWith("/")) target += YFile::ExtractNameAndExtension(source);
    return transfer.UploadFile(source, without_escapes(target));
  });
}

void ftp_download(YObject& parameters) {
  run(parameters, [&](YInetFileTransfer& transfer) {
    const YString file = parameters.GetString(key::kFileName);
    return transfer.DownloadToFile(without_escapes(file), download_target(parameters, target_folder(parameters), file));
  });
}

void ftp_delete(YObject& parameters) {
  run(parameters,
      [&](YInetFileTransfer& transfer) { return transfer.DeleteFileA(parameters.GetString(key::kFileName)); });
}

// --- By wildcard ------------------------------------------------------------------------------------------------------------

// A server may list what would lead out of the folder here.
bool is_name_here(const YString& name) {
  return !name.IsEmpty() && name != "." && name != ".." && YFile::ExtractNameAndExtension(name) == name &&
         printable(name) == name.str();
}

// Whether `target` has as many bytes as the server lists. What it lists no size for stays.
bool is_complete(const YString& remote, const RemoteFile& file, const YString& target) {
  const std::int64_t size = YFile(target).GetFileSize();
  if (size >= 0 && size == file.size) return true;
  YLog.Event(message::kErrorLevel, message::kTransferFileKept, remote, std::to_string(file.size), std::to_string(size));
  return false;
}

struct Wildcard {
  YString remote_folder;  // with its slash, or empty
  YString local_folder;   // with its separator
  bool delete_fetched;
};

// True when the file is here and, where that is wanted, no longer there. `fetched` gets its name when it is here.
bool fetch(YInetFileTransfer& transfer, const Wildcard& wildcard, const RemoteFile& file, YString& fetched) {
  const YString remote = wildcard.remote_folder + file.name;
  if (!is_name_here(file.name)) {
    YLog.Event(message::kErrorLevel, message::kTransferFileNotTaken, printable(remote));
    return false;
  }
  const YString target = wildcard.local_folder + file.name;
  if (!transfer.DownloadToFile(without_escapes(remote), target)) return false;
  fetched.AddItem(file.name);
  return !wildcard.delete_fetched || (is_complete(remote, file, target) && transfer.DeleteFileA(remote));
}

bool fetch_all(YInetFileTransfer& transfer, YObject& parameters, bool delete_fetched) {
  YString& fetched = live_text(parameters, key::kFetchedFiles);
  fetched.Clear();
  const YString pattern = parameters.GetString(key::kFileName);
  const std::string_view text(pattern);
  const Wildcard wildcard{YString(text.substr(0, text.rfind('/') + 1)), target_folder(parameters), delete_fetched};
  std::vector<RemoteFile> files;
  bool all = !wildcard.local_folder.IsEmpty() && transfer.list_files(pattern, files);
  for (const RemoteFile& file : files) all = fetch(transfer, wildcard, file, fetched) && all;
  return all;
}

void ftp_download_all(YObject& parameters) {
  run(parameters, [&](YInetFileTransfer& transfer) { return fetch_all(transfer, parameters, false); });
}

void ftp_move_all(YObject& parameters) {
  run(parameters, [&](YInetFileTransfer& transfer) { return fetch_all(transfer, parameters, true); });
}

// No call leaves a connection behind.
void ftp_end(YObject& parameters) { store_result(parameters, true); }

// --- The table --------------------------------------------------------------------------------------------------------------

constexpr ScriptParameter kTypeRow = in_number(key::kFtpType, "0", "4 is FTP with explicit TLS, any other plain FTP.");
constexpr ScriptParameter kHostRow = in_text(key::kHost, "Server as host or host:port.");
constexpr ScriptParameter kPatternRow =
    in_text(key::kFileName, "The files on the server, with * and ? in the last part.");
constexpr ScriptParameter kFolderRow =
    in_text(key::kTargetFolder, "Local folder for them; the working folder when empty.");
constexpr ScriptParameter kFetchedRow = out_text(key::kFetchedFiles, "Item list of the names that were fetched.");
constexpr ScriptParameter kProxyTypeRow = in_number(key::kProxyType, "0", "0 no proxy, 1 HTTP, 4 SOCKS 4, 5 SOCKS 5.");

constexpr std::array kUploadParameters = {
    kTypeRow,
    kHostRow,
    kUserRow,
    kPasswordRow,
    in_text(key::kSourceFile, "The local file."),
    in_text(key::kTargetFile, "Path on the server; with a slash at its end, or empty, the local name is added."),
    kProxyTypeRow,
    kProxyAddressRow,
    kProxyUserRow,
    kProxyPasswordRow};
constexpr std::array kDownloadParameters = {kTypeRow,         kHostRow,      kUserRow,         kPasswordRow,
                                            kRemoteFileRow,   kLocalNameRow, kTargetFolderRow, kProxyTypeRow,
                                            kProxyAddressRow, kProxyUserRow, kProxyPasswordRow};
constexpr std::array kWildcardParameters = {kTypeRow,         kHostRow,      kUserRow,         kPasswordRow,
                                            kPatternRow,      kFolderRow,    kFetchedRow,      kProxyTypeRow,
                                            kProxyAddressRow, kProxyUserRow, kProxyPasswordRow};
constexpr std::array kDeleteParameters = {kTypeRow,         kHostRow,       kUserRow,
                                          kPasswordRow,     kRemoteFileRow, kProxyTypeRow,
                                          kProxyAddressRow, kProxyUserRow,  kProxyPasswordRow};

constexpr std::array kServerMessages = {message::kScriptFunctionFailed, message::kTransferNoServer,
                                        message::kTransferPortWrong, message::kTransferLineBreakRefused};
constexpr auto kUploadMessages =
    messages_with(kServerMessages, message::kTransferLocalFileNotOpened, message::kTransferUploadFileFailed);
constexpr auto kDownloadMessages =
    messages_with(kServerMessages, message::kTransferLocalFileNotCreated, message::kTransferDownloadFileFailed);
constexpr auto kWildcardMessages =
    messages_with(kDownloadMessages, message::kTransferDeleteFileFailed, message::kTransferListFailed,
                  message::kTransferFileNotTaken, message::kTransferFileKept);
constexpr auto kDeleteMessages = messages_with(kServerMessages, message::kTransferDeleteFileFailed);
constexpr std::array kEndMessages = {message::kScriptFunctionFailed};

constexpr std::array<std::string_view, 5> kUploadExample = {"pHOST=ftp.example.com", "pUser=me", "pPasswd=secret",
                                                            "pQuellDateiname=today.txt", "pZieldateiname=reports/"};
constexpr std::array<std::string_view, 5> kDownloadExample = {"pHOST=ftp.example.com", "pUser=me", "pPasswd=secret",
                                                              "pDateiname=reports/today.txt", "pZielverzeichnis=TEMP:"};
constexpr std::array<std::string_view, 5> kWildcardExample = {"pHOST=ftp.example.com", "pUser=me", "pPasswd=secret",
                                                              "pDateiname=reports/*.csv", "pZielverzeichnis=TEMP:"};
constexpr std::array<std::string_view, 4> kDeleteExample = {"pHOST=ftp.example.com", "pUser=me", "pPasswd=secret",
                                                            "pDateiname=reports/today.txt"};

constexpr auto kFunctions = std::to_array<ScriptFunction>(
    {{"FTP_UPLOAD", &FTP_UPLOAD, "FTP", "Brings one file to an FTP server.", kUploadParameters, kTypeBool,
      kTrueWhenDone, kUploadMessages, kUploadExample},
     {"FTP_DOWNLOADDATEI", &FTP_DOWNLOADDATEI, "FTP", "Fetches one file from an FTP server.", kDownloadParameters,
      kTypeBool, kTrueWhenDone, kDownloadMessages, kDownloadExample},
     {"FTP_DOWNLOADDATEIEN", &FTP_DOWNLOADDATEIEN, "FTP", "Fetches all files of a folder that a wildcard names.",
      kWildcardParameters, kTypeBool, "True when every file was fetched; none is no failure.", kWildcardMessages,
      kWildcardExample},
     {"FTP_DOWNLOADDATEIENMITLOESCHEN", &FTP_DOWNLOADDATEIENMITLOESCHEN, "FTP",
      "Fetches all files that a wildcard names and deletes them on the server, each once its size is verified.",
      kWildcardParameters, kTypeBool, "True when every file was fetched and deleted; none is no failure.",
      kWildcardMessages, kWildcardExample},
     {"FTP_LOESCHE", &FTP_LOESCHE, "FTP", "Deletes one file on an FTP server.", kDeleteParameters, kTypeBool,
      kTrueWhenDone, kDeleteMessages, kDeleteExample},
     {"FTP_BEENDE",
      &FTP_BEENDE,
      "FTP",
      "Ends nothing: no function of the family keeps a connection.",
      {},
      kTypeBool,
      "Always true.",
      kEndMessages,
      {}}});

}  // namespace

std::span<const ScriptFunction> ftp_functions() { return kFunctions; }

}  // namespace yinet

YINET_SCRIPT_FUNCTION(FTP_UPLOAD, yinet::ftp_upload)
YINET_SCRIPT_FUNCTION(FTP_DOWNLOADDATEI, yinet::ftp_download)
YINET_SCRIPT_FUNCTION(FTP_DOWNLOADDATEIEN, yinet::ftp_download_all)
YINET_SCRIPT_FUNCTION(FTP_DOWNLOADDATEIENMITLOESCHEN, yinet::ftp_move_all)
YINET_SCRIPT_FUNCTION(FTP_LOESCHE, yinet::ftp_delete)
YINET_SCRIPT_FUNCTION(FTP_BEENDE, yinet::ftp_end)
