// FTPS_DOWNLOADDATEI, FTPS_UPLOAD and FTPS_LOESCHE: one file each, on a connection of its own.

#include <array>
#include <string>

#include "yinet/ftp/ftp_codes.h"
#include "yinet/ftp/ftps.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/text.h"
#include "yinet/host/yerror.h"
#include "yinet/host/yfile.h"
#include "yinet/host/ylog.h"
#include "yinet/host/yobject.h"
#include "yinet/host/yscript.h"
#include "yinet/host/ytextmanager.h"
#include "yinet/script/families.h"
#include "yinet/script/ftp_parameters.h"
#include "yinet/script/functions.h"
#include "yinet/script/parameter_keys.h"
#include "yinet/script/script_frame.h"
#include "yinet/script/ssh_client_class.h"

namespace yinet {
namespace {

using namespace ftp;

constexpr int kCheckSize = 4;  // bit of "pOptionen"

constexpr int kSizesDiffer = -262144;  // result of the size check

constexpr std::int32_t kSuccess = 1;
constexpr std::int32_t kFailure = 0;

struct Login {
  explicit Login(const YObject& parameters)
      : host(parameters.GetString(key::kHost)),
        user(parameters.GetString(key::kUser)),
        password(parameters.GetString(key::kPassword)),
        certificate(parameters.GetString(key::kCertificate)),
        proxy(parameters.GetString(key::kProxyAddress)),
        ftp_type(parameters.GetInteger(key::kFtpType)),
        proxy_type(parameters.GetInteger(key::kProxyType)),
        proxy_account(proxy_login(parameters)) {
    if (ftp_type == 0) ftp_type = kTlsType;
  }

  [[nodiscard]] bool is_local() const { return host.EqualsIC("LOCAL") || host.EqualsIC("LOKAL"); }
  [[nodiscard]] ftps client() const {
    return ftps(host, user, password, proxy, ftp_type, proxy_type, certificate, proxy_account.user,
                proxy_account.password);
  }

  YString host, user, password, certificate, proxy;
  int ftp_type;
  int proxy_type;
  ProxyLogin proxy_account;
};

// FTP type 5 goes to the script class for SFTP, with the proxy's account among the parameters. True when it did.
bool handed_to_ssh(YObject& parameters, std::string_view function) {
  if (parameters.GetInteger(key::kFtpType) != kSftpType) return false;
  const ProxyLogin account = proxy_login(parameters);
  const SecretScope no_password(parameters.GetString(key::kPassword));
  const SecretScope no_proxy_password(account.password);
  parameters.Store<YString>(key::kProxyUser, account.user);
  parameters.Store<YString>(key::kProxyPassword, account.password);
  YScript.ExecuteFunction(ssh_client::kClass, function, 0, &parameters);
  return true;
}

void raise(int number, const YString& text, const YString& context) {
  YError.Message(message::kErrorLevel, number, text, context, false, "");
}

struct SizeMessages {
  int differ, missing, unreadable;
};
constexpr SizeMessages kDownloadSizes{message::kFtpDownloadSizeDiffers, message::kFtpDownloadCheckMissing,
                                      message::kFtpDownloadCheckUnreadable};
constexpr SizeMessages kUploadSizes{message::kFtpUploadSizeDiffers, message::kFtpUploadCheckMissing,
                                    message::kFtpUploadCheckUnreadable};

int message_for(int check, const SizeMessages& messages) {
  switch (check) {
    case kSizesDiffer: return messages.differ;
    case kNoSuchFile: return messages.missing;
    case kUnreadableSize: return messages.unreadable;
    default: return message::kFtpSizeCheckFailed;
  }
}

// Compares the sizes on both sides over a connection of its own, which is not ended by QUIT.
int check_size(const Login& login, const YString& local, const YString& remote) {
  ftps ftp = login.client();
  if (ftp.connect() != kDone) return kFailed;
  switch (const int result = ftp.cmp_filesizes(local, remote)) {
    case kDone:
    case kBothEmpty:
    case kNoSuchFile:
    case kUnreadableSize: return result;
    default: return kSizesDiffer;
  }
}

// "_RETV" after a successful transfer, with the size check where it is wanted.
template <typename Context>
void store_transferred(YObject& parameters, const Login& login, const YString& local, const YString& remote,
                       const YString& shown, const SizeMessages& messages, Context context) {
  if ((parameters.GetInteger(key::kOptions) & kCheckSize) != 0) {
    const int check = check_size(login, local, remote);
    if (check != kDone && check != kBothEmpty) {
      const int number = message_for(check, messages);
      raise(number, YTextManager.GetYText(number, shown, login.host), context());
      return store_result(parameters, kFailure);
    }
  }
  store_result(parameters, kSuccess);
}

// --- Download -----------------------------------------------------------------------------------------------------------

void download_locally(YObject& parameters, const Login& login, const YString& file, const YString& folder,
                      const YString& target) {
  if (YFile::Copy(local_name(file), target, false)) return;
  store_result(parameters, false);
  raise(message::kFtpLocalCopyFailed, YTextManager.GetYText(message::kFtpLocalCopyFailed, file, folder),
        YTextManager.GetYText(message::kFtpLocalCopyContext, login.host, login.user, login.password, file, folder));
}

void ftps_download(YObject& parameters) {
  if (handed_to_ssh(parameters, ssh_client::kDownload)) return;
  const Login login(parameters);
  const SecretScope no_password(login.password);
  const SecretScope no_proxy_password(login.proxy_account.password);
  const YString file = parameters.GetString(key::kFileName);
  const YString folder = target_folder(parameters);
  const YString target = download_target(parameters, folder, file);
  if (login.is_local()) return download_locally(parameters, login, file, folder, target);
  if (target.IsEmpty()) return store_result(parameters, kFailure);

  ftps ftp = login.client();
  if (ftp.connect() != kDone) return store_result(parameters, kFailure);
  const int result = ftp.download_file(file, target, ftps::kByteType);
  ftp.closeconnection();
  const auto context = [&] {
    return YTextManager.GetYText(message::kFtpDownloadContext, login.host, login.user, login.password, file, target,
                                 ftp.get_last_mes(ftps::kReadReply));
  };
  switch (result) {
    case kDone: return store_transferred(parameters, login, target, file, file, kDownloadSizes, context);
    case kNoSuchFile:
      raise(message::kFtpRemoteFileMissing, YTextManager.GetYText(message::kFtpRemoteFileMissing, file, folder),
            YTextManager.GetYText(message::kFtpMissingContext, login.host, login.user, login.password, file,
                                  ftp.get_last_mes(ftps::kReadReply)));
      break;
    case kFailed:
      raise(message::kFtpDownloadFailed, YTextManager.GetYText(message::kFtpDownloadFailed, file, folder), context());
      break;
    default: break;  // told by the result alone
  }
  store_result(parameters, kFailure);
}

// --- Upload -------------------------------------------------------------------------------------------------------------

void ftps_upload(YObject& parameters) {
  if (handed_to_ssh(parameters, ssh_client::kUpload)) return;
  const Login login(parameters);
  const SecretScope no_password(login.password);
  const SecretScope no_proxy_password(login.proxy_account.password);
  const YString source = parameters.GetString(key::kSourceFile);
  const YString target = parameters.GetString(key::kTargetFile);
  if (login.is_local()) return store_result(parameters, YFile::Copy(local_name(source), local_name(target), false));

  ftps ftp = login.client();
  if (ftp.connect() != kDone) return store_result(parameters, kFailure);
  const YString path = YFileManager.ResolvePath(source);
  const int result = ftp.upload_file(path, target, ftps::kByteType);
  ftp.closeconnection();
  const auto context = [&] {
    return YTextManager.GetYText(message::kFtpUploadContext, login.host, login.user, login.password, source, path,
                                 target, YFileManager.ResolvePath(target), ftp.get_last_mes(ftps::kReadReply));
  };
  if (result == kDone) return store_transferred(parameters, login, path, target, source, kUploadSizes, context);
  raise(message::kFtpUploadFailed, YTextManager.GetYText(message::kFtpUploadFailed, source, login.host), context());
  store_result(parameters, kFailure);
}

// --- Delete -------------------------------------------------------------------------------------------------------------

void ftps_delete(YObject& parameters) {
  if (handed_to_ssh(parameters, ssh_client::kDelete)) return;
  const Login login(parameters);
  const SecretScope no_password(login.password);
  const SecretScope no_proxy_password(login.proxy_account.password);
  const YString file = parameters.GetString(key::kFileName);
  if (login.is_local()) return store_result(parameters, YFile::Delete(local_name(file)));

  ftps ftp = login.client();
  if (ftp.connect() != kDone) return store_result(parameters, kFailure);
  const int result = ftp.del_file(file);
  ftp.closeconnection();
  if (result == kDone) return store_result(parameters, kSuccess);
  raise(message::kFtpDeleteFailed, YTextManager.GetYText(message::kFtpDeleteFailed, file, login.host),
        YTextManager.GetYText(message::kFtpDeleteContext, login.host, login.user, login.password, file,
                              YFileManager.ResolvePath(file), ftp.get_last_mes(ftps::kReadReply)));
  store_result(parameters, kFailure);
}

// --- The table ------------------------------------------------------------------------------------------------------------

constexpr ScriptParameter kTypeRow =
    in_number(key::kFtpType, "4", "4 is FTP with explicit TLS, 5 SFTP, any other plain FTP.");
constexpr ScriptParameter kHostRow =
    in_text(key::kHost, "Server as host or host:port; LOCAL or LOKAL works on local files.");
constexpr ScriptParameter kCertificateRow = in_text(
    key::kCertificate, "List of folders with trusted certificates; a PEM file with key is shown to the server.");
constexpr ScriptParameter kProxyTypeRow =
    in_number(key::kProxyType, "0", "0 no proxy, 1 FTP proxy, 4 SOCKS 4, 5 SOCKS 5.");
constexpr ScriptParameter kOptionsRow =
    in_number(key::kOptions, "0", "Bit 4 compares the sizes on both sides after the transfer.");

constexpr std::array kDownloadParameters = {
    kTypeRow,        kHostRow,      kUserRow,         kPasswordRow,  kRemoteFileRow,    kLocalNameRow, kTargetFolderRow,
    kCertificateRow, kProxyTypeRow, kProxyAddressRow, kProxyUserRow, kProxyPasswordRow, kOptionsRow};
constexpr std::array kUploadParameters = {kTypeRow,
                                          kHostRow,
                                          kUserRow,
                                          kPasswordRow,
                                          in_text(key::kSourceFile, "The local file; an empty one is not taken."),
                                          in_text(key::kTargetFile,
                                                  "Name on the server; folders before a slash are entered. The local "
                                                  "name when empty or behind a slash at the end, "
                                                  "which bit 4 of \"pOptionen\" then does not find."),
                                          kCertificateRow,
                                          kProxyTypeRow,
                                          kProxyAddressRow,
                                          kProxyUserRow,
                                          kProxyPasswordRow,
                                          kOptionsRow};
constexpr std::array kDeleteParameters = {kTypeRow,       kHostRow,         kUserRow,      kPasswordRow,
                                          kRemoteFileRow, kCertificateRow,  kProxyTypeRow, kProxyAddressRow,
                                          kProxyUserRow,  kProxyPasswordRow};

constexpr std::string_view kResultMeaning = "1 when it succeeded, otherwise 0; true or false with a local host.";
constexpr std::string_view kDeletedMeaning =
    "0 when the server answers 550 or there is no login, otherwise 1; true or false with a local host.";
constexpr std::array kServerMessages = {message::kScriptFunctionFailed, message::kFtpLineBreakRefused,
                                        message::kFtpTlsRefused, message::kFtpReplyTooLarge,
                                        message::kFtpClientCertificateFailed};
constexpr auto kDownloadMessages = messages_with(
    kServerMessages, message::kFtpPassiveAnswerUnusable, message::kFtpLocalCopyFailed, message::kFtpRemoteFileMissing,
    message::kFtpDownloadFailed, message::kFtpDownloadSizeDiffers, message::kFtpDownloadCheckMissing,
    message::kFtpDownloadCheckUnreadable, message::kFtpSizeCheckFailed);
constexpr auto kUploadMessages = messages_with(
    kServerMessages, message::kFtpUploadFailed, message::kFtpPassiveAnswerUnusable, message::kFtpUploadSizeDiffers,
    message::kFtpUploadCheckMissing, message::kFtpUploadCheckUnreadable, message::kFtpSizeCheckFailed);
constexpr auto kDeleteMessages = messages_with(kServerMessages, message::kFtpDeleteFailed);
constexpr std::array<std::string_view, 5> kDownloadExample = {"pHOST=ftp.example.com", "pUser=me", "pPasswd=secret",
                                                              "pDateiname=reports/today.txt", "pZielverzeichnis=TEMP:"};
constexpr std::array<std::string_view, 5> kUploadExample = {"pHOST=ftp.example.com", "pUser=me", "pPasswd=secret",
                                                            "pQuellDateiname=today.txt",
                                                            "pZieldateiname=reports/today.txt"};
constexpr std::array<std::string_view, 4> kDeleteExample = {"pHOST=ftp.example.com", "pUser=me", "pPasswd=secret",
                                                            "pDateiname=reports/today.txt"};
constexpr auto kFunctions = std::to_array<ScriptFunction>(
    {{"FTPS_DOWNLOADDATEI", &FTPS_DOWNLOADDATEI, "FTPS", "Fetches one file from an FTP server.", kDownloadParameters,
      kTypeInteger, kResultMeaning, kDownloadMessages, kDownloadExample},
     {"FTPS_UPLOAD", &FTPS_UPLOAD, "FTPS", "Brings one file to an FTP server.", kUploadParameters, kTypeInteger,
      kResultMeaning, kUploadMessages, kUploadExample},
     {"FTPS_LOESCHE", &FTPS_LOESCHE, "FTPS", "Deletes one file on an FTP server.", kDeleteParameters, kTypeInteger,
      kDeletedMeaning, kDeleteMessages, kDeleteExample}});

}  // namespace

std::span<const ScriptFunction> ftps_functions() { return kFunctions; }

}  // namespace yinet

YINET_SCRIPT_FUNCTION(FTPS_DOWNLOADDATEI, yinet::ftps_download)
YINET_SCRIPT_FUNCTION(FTPS_UPLOAD, yinet::ftps_upload)
YINET_SCRIPT_FUNCTION(FTPS_LOESCHE, yinet::ftps_delete)
