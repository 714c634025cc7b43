#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "yinet/host/export.h"
#include "yinet/host/progress.h"
#include "yinet/host/yobject.h"
#include "yinet/host/ystring.h"
#include "yinet/net/secure_socket.h"

namespace yinet {
struct FtpsState;
class FtpStopEvent;
class FtpThread;
}  // namespace yinet

// A running keep-alive thread and the event that stops it. Made by StartNoopThread, ended by StopNOOPThread, which clears
// both; to be stopped before its ftps object goes.
struct tNoopThreadHandle {
  yinet::FtpThread* thread = nullptr;
  yinet::FtpStopEvent* stop_event = nullptr;
};

// FTP client with explicit TLS, SOCKS and FTP proxies. The object itself is the control connection; every transfer makes a
// data connection of its own and closes it. Data connections are passive: PASV, or EPSV over IPv6.
//
// What went wrong stands in the last message: the server's reply, or a text of this class with a number from 700 to 710.
// Below 400 its number means success. Names go over the wire in UTF-8 unless the setting kRawNames keeps their bytes, and a
// name with CR, LF or NUL is refused. The password is in no log entry and no trace.
//
// A copy has the settings, credentials and last messages of its original, but no connection.
//
// One thread at a time may use an object. The keep-alive thread may run beside it: single commands and the last messages
// are guarded, so it can't cut into a command and its reply, but it can take the final reply of a transfer, so commands
// and transfers are to be left alone while it runs.
class YINET_API ftps : public SecureSocket {
 public:
  ftps();
  // `host` is "name", "name:port" or "[IPv6 address]:port". `ftpType` 4 is FTP with explicit TLS, any other plain FTP.
  // `certificate` is an item list of folders with trusted certificates; an item that is a PEM file with certificate and
  // key becomes the client certificate. With a certificate and another type than 4, connect() speaks TLS at once.
  ftps(const YString& host, const YString& user, const YString& password, int ftpType, const YString& certificate);
  // `proxy` as `host`, port 1080 by default. `proxyType`: 0 none, 1 FTP proxy, 4 and 5 SOCKS.
  ftps(const YString& host, const YString& user, const YString& password, const YString& proxy, int ftpType,
       int proxyType, const YString& certificate, const YString& proxyUser, const YString& proxyPassword);
  ftps(const ftps& other);
  ftps& operator=(const ftps& other);
  ~ftps();

  // --- Control connection -----------------------------------------------------------------------------------------------
  int connect();          // connects and logs in: 0, or -1
  int closeconnection();  // QUIT: 0, or 1 when not connected. The socket stays open until the object goes
  // Sends one command line. Without a flag 0 is returned at once; with kReadReply one reply is read, with
  // kReadPreliminary one more before it, and the last read's result returned. -4: not connected, -1: not sent.
  int send_command(const YString& cmd, int flags);
  // Reads one reply into the last message: 0; 256 when it did not come in time or is too long (the connection is closed
  // then and the last message stays); -4 when the connection has ended, -1 on another failure.
  int get_ftpserver_mes();
  // Mode 0: the last message; with bit 4: the last command; otherwise both, " Letzter Befehl: " between them.
  YString get_last_mes(int mode);
  int get_last_mesnum();
  YString get_last_command();
  YObject get_partner_info(bool fresh);  // see GetPartnerInfo
  YString get_certif();
  void init_ftps();

  // --- Data connections and transfers -----------------------------------------------------------------------------------
  // Connects `data` as the flags below say: 0, or -1.
  int open_data_channel(SecureSocket* data, int flags);
  int set_server_transfer_type(int type, int flags);  // 1 text, 2 bytes: 0 set, 1 is set already, -1 failed
  // 0, also when the server's final reply is bad; 1 not connected; -256 no such remote file, -1 its size is not known or no
  // data connection; -32 local file; 256 time over, or the server refuses. `local` may name a folder.
  int download_file(const YString& remote, const YString& local, int);
  int download_files(const YString&, const YString&, int);  // transfers nothing: 0 connected, 1 not
  // 0, also when the server's final reply did not come in time; -1 refused or no data connection; -4 not connected; -32
  // local file, an empty one too; 256 the data did not get through. The file is read into memory first. Folders in `remote` are entered with CWD.
  int upload_file(const YString& local, const YString& remote, int type);
  // 0, also after any other answer and after none; -32 the server answers 550; -4 not connected; -1 name refused
  int del_file(const YString& remote);
  long get_filesize(const YString& remote);                        // -256 no such file, -1 otherwise not known
  int cmp_filesizes(const YString& local, const YString& remote);  // 0 equal, 1 both empty, others differ
  YString get_dir_content();   // LIST; "-1" without a data connection. Its final reply stays for the next read
  YString get_dir_content0();  // NLST; the same
  // What comes, as text: 0. It ends with the connection, after kFtpListingLimit of silence and at kFtpListingSize bytes.
  int receive_datastr(SecureSocket* data, YString& out);
  YString ch_dir(const YString& dir);  // sends CWD without a directory
  YString get_act_dir();               // the result of a reply read, in decimal

  // --- For this library and its program ---------------------------------------------------------------------------------
  void on_progress(yinet::ProgressReport report);

  // Flags of send_command.
  static constexpr int kReadPreliminary = 4;
  static constexpr int kReadReply = 128;
  // Flags of open_data_channel, the last but one of set_server_transfer_type too.
  static constexpr int kReuseAddress = 8;  // the last passive answer's
  static constexpr int kOrdinary = 16;
  static constexpr int kForce = 512;  // go on after a failed data connection; send TYPE in any case
  static constexpr int kWithoutTls = 1024;
  // Transfer types.
  static constexpr int kTextType = 1;
  static constexpr int kByteType = 2;

 protected:
  int connect0();
  void init_client(const YString& host, const YString& user, const YString& password, const YString& proxy, int ftpType,
                   const YString& certificate, const YString& proxyUser, const YString& proxyPassword);
  void set_last_mes(const YString& text);
  void set_last_mesnum(int number);
  void set_last_command(const YString& command);
  bool connected();
  bool b_certif();
  int get_transfer_type();
  void set_transfer_type(int type);

  tNoopThreadHandle StartNoopThread();
  void StopNOOPThread(tNoopThreadHandle& handle);
  static int m_NoopThread(ftps* object, yinet::FtpStopEvent* stop_event);

  YString str2_to_adrstr(const YString& answer);
  YString str2_to_adr(const YString& answer);
  int str2_to_port(const YString& answer);
  YString str2_to_portstr(const YString& answer);

 private:
  void copy_settings(const ftps& other);
  void load_certificate();
  int connect_control();
  int connect_through_socks();
  void drop_clear_text();
  int log_in();
  int failed_with(std::string_view status, int result);
  bool refused();
  int read_reply();
  bool send_line(const YString& line);
  int connect_data(SecureSocket& data, int flags);
  int connect_data_through_socks(SecureSocket& data, int flags);
  bool ask_for_data_address();
  int receive_file(SecureSocket& data, class YFile& target, std::int64_t size);
  int send_file(SecureSocket& data, const class YBuffer& content);
  YString listing(std::string_view command);
  bool enter_folder(std::string_view remote);

  YString host_;
  YString user_;
  YString password_;
  YString certificate_;
  int port_ = 21;
  YString proxy_host_;
  int proxy_port_ = 0;
  int proxy_type_ = 0;
  YString proxy_user_;
  YString proxy_password_;
  bool connected_ = false;
  bool has_certificate_ = false;
  YString last_message_;
  int last_message_number_ = 700;
  YString last_command_;
  int transfer_type_ = 0;
  int reply_timeout_ = 120000;  // milliseconds, as the next two
  int upload_timeout_ = 120000;
  int download_timeout_ = 120000;
  int ftp_type_ = 4;
  int data_port_ = 0;
  YString data_address_;

  std::unique_ptr<yinet::FtpsState> state_;  // never null
};
