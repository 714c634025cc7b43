#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "yinet/host/export.h"
#include "yinet/host/progress.h"
#include "yinet/host/ystring.h"

struct curl_slist;

namespace yinet {

struct CurlEasyCleanup {
  void operator()(void* handle) const noexcept;
};
struct TransferState;

enum class TransferFailure { none, no_connection, login_refused, refused, local_file, broken_off, other };

// What ended the last operation.
struct TransferCause {
  TransferFailure failure = TransferFailure::none;
  long response = 0;  // the last reply code of an HTTP or FTP server, 0 without one
  YString text;       // libcurl's own words about it, with what the server said; may be empty
};

// A file in a server's folder.
struct RemoteFile {
  YString name;
  std::int64_t size = 0;  // bytes
};

}  // namespace yinet

// Moves files and folders over "ftp", "ftps", "sftp", "http" and "https" with libcurl, directly or through a proxy.
//
//   YInetFileTransfer transfer;
//   transfer.SetServerUrl("sftp://files.example.com");
//   transfer.SetUsername("me");
//   transfer.SetPassword("secret");
//   if (!transfer.DownloadToFile("reports/today.txt", "TEMP:today.txt")) report(transfer.GetLastErrorMsg());
//
// "ftps" speaks TLS from the first byte on port 990, which is its port when none is given, and demands explicit TLS on
// any other port. Certificates are verified only when the setting kTlsVerifyAlways says so.
//
// Remote paths begin in the folder that the login leads to, with or without a slash before them; over FTP "//" leads to
// the root, over SFTP and FTP ".." leads up. They go out in UTF-8, unless the setting kRawNames keeps their bytes, and mean
// the name as written, except that an escape such as "%20" counts as the character in downloads, uploads and
// ExistsDirectory. Over FTP and SFTP a line break or a NUL in them fails. Local names are those of YFile.
//
// Operations give true for success. Otherwise GetLastErrorNumber and GetLastErrorMsg tell why, and the log too unless
// SetErrorReporting(false). Passwords occur in neither. Connections stay open for the next operation of the same object.
// A copy has the settings of its original and no connection. One thread at a time may use an object.
class YINET_API YInetFileTransfer {
 public:
  YInetFileTransfer();
  YInetFileTransfer(const YInetFileTransfer& other);
  YInetFileTransfer& operator=(const YInetFileTransfer& other);
  ~YInetFileTransfer();

  static bool IsLibcurlInitialized();

  // --- Settings ---------------------------------------------------------------------------------------------------------
  // These keep what they are given even when it is no good: operations check it again and fail.
  bool SetProtocol(const YString& protocol);  // false with 21520 or 21522
  bool SetServer(const YString& server);  // "host", "host:port", "[IPv6 address]:port"; false with 21521, 21533, 21534
  bool SetServerUrl(const YString& url);  // "protocol://server"; without "://" the server alone
  void SetPortA(int port);                // (sic) for a server without port; -1 for none
  void SetUsername(const YString& username);  // empty: no login, anonymous FTP
  void SetPassword(const YString& password);
  // "http", "https", "socks4", "socks4a", "socks5" or "socks5h"; false with 21523 or 21524.
  bool SetProxyProtocol(const YString& protocol);
  bool SetProxyServer(const YString& server);  // empty: no proxy; that of the environment is never used
  bool SetProxyServerUrl(const YString& url);
  void SetProxyPort(int port);
  void SetProxyUsername(const YString& username);
  void SetProxyPassword(const YString& password);
  void SetErrorReporting(bool on);

  // --- Operations: message 2154x when the transfer fails, 21548 for an HTTP status other than 200 ------------------------
  bool UploadFile(const YString& local, const YString& remote);   // not over HTTP (21528); 21531 local file
  bool UploadString(const YString& text, const YString& remote);  // not over HTTP (21529)
  // 21532 local file. Follows redirects; a failed download leaves no file.
  bool DownloadToFile(const YString& remote, const YString& local);
  bool DownloadToString(const YString& remote, YString& text);  // empty after a failure
  bool DeleteFileA(const YString& remote);                      // (sic) not over HTTP (21525)
  bool DeleteDirectory(const YString& remote);                  // not over HTTP (21526)
  bool CreateDirectoryA(const YString& remote);                 // (sic) not over HTTP (21527)
  // False without an error when there is none; over SFTP a folder that may not be read exists. Not over HTTP (21530).
  bool ExistsDirectory(const YString& remote);

  // --- The last error: of the last setter or operation -------------------------------------------------------------------
  YString GetLastErrorMsg();
  int GetLastErrorNumber();  // 0 for none

  // --- For this library and its program ----------------------------------------------------------------------------------
  [[nodiscard]] const yinet::TransferCause& last_cause() const;
  // The files that a path with "*" and "?" in its last part names, in the server's order, no folders: what has a size. FTP
  // and FTPS only; false with 21549. None is no failure.
  bool list_files(const YString& pattern, std::vector<yinet::RemoteFile>& files);
  void on_progress(yinet::ProgressReport report);

 private:
  void CopySettings(const YInetFileTransfer& other);
  void MakeHandle();
  bool ApplyLogin();

  bool CheckProtocol();
  bool CheckProxyProtocol();
  bool CheckServer(bool with_details);
  bool CheckServerAddressFormat(const YString& address, bool with_details);
  bool CheckLoginTexts();
  bool CheckRemoteName(int number, const YString& name);
  bool IsFtpOrSftp() const;
  bool IsSftp() const;

  void ClearLastErrorIfInitOk();
  YString GetUrl(const YString& path, bool for_display) const;
  bool HasImplicitTls() const;
  YString EntryPrefix(const YString& path) const;
  YString GetAbsolutePath(const YString& path) const;
  void SetDisplayPath(const YString& path);
  void OnServerOrUserChange();

  bool PrepareServerFunction(int number, const YString& path);
  bool PrepareServerFunction_Intern(const YString& path);
  bool RequestEntryDir(int number);
  bool SetCurlProxyUrl();
  bool SetCurlSecurity();
  bool SetCurlLimits();
  bool ResetCallbacks();
  bool SetCurlOptInt(int option, long value);
  bool SetCurlOptPointer(int option, const void* value);
  bool SetCurlOptYString(int option, const YString& text);  // empty: as if it had never been set
  bool OptionAccepted(int result);
  curl_slist* CreateAndSetHeaderlist(const YString& command, const YString& path);
  int Perform();
  std::int64_t RemoteSize(const YString& remote);
  bool CurlPerform(int number);
  bool PrepareUpload(int number, int protocol_error, const YString& remote);
  bool Send(int number, std::size_t (*read)(char*, std::size_t, std::size_t, void*), void* source, std::int64_t size);
  bool RunCommand(int number, int protocol_error, const char* ftp_command, const char* sftp_command,
                  const YString& remote);
  bool RaiseCurlError(int number, int result);
  bool RaiseLocalError(int number, const class YFile& file);
  bool RaiseError(int number, const YString& text, const YString& details, bool with_details);
  YString ConnectionDetails() const;

  std::unique_ptr<void, yinet::CurlEasyCleanup> handle_;  // null when libcurl could not be initialised
  YString protocol_;
  YString server_;
  int port_ = -1;
  YString username_;
  YString password_;
  YString proxy_url_;
  YString proxy_server_;
  YString proxy_protocol_;
  int proxy_port_ = -1;
  YString proxy_username_;
  YString proxy_password_;
  bool error_reporting_ = true;
  int last_error_number_ = 0;
  int operation_number_ = 0;  // of the preparation under way
  YString last_error_message_;
  YString last_error_details_;
  YString entry_directory_;  // in the server's bytes
  YString display_path_;

  std::unique_ptr<yinet::TransferState> state_;  // never null
};
