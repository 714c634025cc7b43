#pragma once

#include <cstdint>
#include <memory>

#include "yinet/host/export.h"
#include "yinet/host/progress.h"
#include "yinet/host/ybuffer.h"
#include "yinet/host/ystring.h"
#include "yinet/net/secure_socket.h"

struct sftp_session_struct;
struct sftp_file_struct;

namespace yinet {

class SshConnection;
struct SshClientState;

// Why the last operation of an sshClient failed.
enum class SshFailure {
  none,
  not_connected,  // no TCP connection, no tunnel through the proxy, or the other side speaks no SSH
  host_key,       // the server's key is not in the file of known hosts
  login,
  refused,     // the server says no: no such file, no permission
  local_file,  // a local file could not be opened, read or written
  broken       // the connection ended, or an answer took longer than the setting kSshLimit
};

}  // namespace yinet

// SFTP client on libssh (protocol version 3). The TCP connection is made by a SecureSocket, directly or through a SOCKS
// proxy, and outlives the SSH session on it.
//
// Remote names go over the wire in UTF-8 unless the setting kRawNames keeps their bytes; a name with NUL is refused. They
// are relative to the login's folder unless they begin with "/". Local names are the file layer's (YFile).
//
// The server's host key is logged with every connection and accepted, unless the setting kSshKnownHosts names a file of
// known hosts: then it must be there. Login is by private key where one is set, and by password when that is not enough.
//
// Every answer of the server is waited for at most for the setting kSshLimit; after that the session is of no more use.
// Uploads raise messages; the other operations say how they ended by their result alone, and last_failure() tells why.
// Nothing throws, and nothing raises SIGPIPE. One thread at a time may use an object.
class YINET_API sshClient {
 public:
  sshClient();
  sshClient(const sshClient&) = delete;
  sshClient& operator=(const sshClient&) = delete;
  ~sshClient();  // disconnects

  // Connects and logs in; an older connection is given up. Port 0 is 22. An empty `proxyHost` connects directly, otherwise
  // `proxyType` is the version of SOCKS (4 or 5) and both hosts need an IPv4 address; `proxyPort` 0 is 1080.
  bool connect(const YString& host, const int& port, const YString& user, const YString& password,
               const YString& proxyHost, const int& proxyPort, int proxyType, const YString& proxyUser,
               const YString& proxyPassword);
  void disconnect();  // ends all SFTP sessions too

  // An SFTP session for several operations, null when there is none to be had. It belongs to this object and ends with
  // closeFileTransferSession or disconnect.
  sftp_session_struct* initFileTransferSession();
  // Null is taken; a session that has ended is none of ours.
  void closeFileTransferSession(sftp_session_struct* session);

  // --- Operations. With null as session each makes one for itself -------------------------------------------------------
  // Writes the local file over the remote one, which gets mode 0705 when it is new, in pieces of kSshUploadChunk bytes. A
  // pipe and the like, or a file whose size the system tells as 0, is sent until it ends, with -1 as progress's total. The
  // remote file is opened first: it is empty afterwards when the local one can't be read.
  bool uploadFile(const YString& local, const YString& remote, sftp_session_struct* session);
  // Reads up to 5242880 bytes (kSshDownloadSize) and writes exactly so many to the start of the local file: zeros follow
  // what came, and what is longer is cut. A local file that the call has made is deleted again when it fails. For whole files see downloadWholeFile.
  bool downloadFile(const YString& remote, const YString& local, sftp_session_struct* session);
  // The remote file, whatever its size: no more is kept in memory than the requests under way. The local file is made or
  // emptied once the remote one is open, and deleted when the transfer fails.
  bool downloadWholeFile(const YString& remote, const YString& local, sftp_session_struct* session);
  bool deleteFile(const YString& remote, sftp_session_struct* session);
  bool createDirectory(const YString& path, sftp_session_struct* session);  // also true when it exists
  bool removeDirectory(const YString& path, sftp_session_struct* session);  // an empty one
  bool existDirectory(const YString& path, sftp_session_struct* session);   // false when it may not be read, too
  // Names as an item list (delimiter 0x01) in the server's order, "." and ".." included; empty on failure. They are the
  // server's: not to be used as local names unchecked. A delimiter inside a name becomes "?". Ends at kSshListingEntries
  // names or kSshListingSize bytes.
  YString getDirectory(const YString& path, sftp_session_struct* session);

  // --- For this library and its program ---------------------------------------------------------------------------------
  // For the next connect, in the place of the settings kSshKeyFile and kSshKeyPassword: a file with a private key
  // (OpenSSH's or PEM) and the password that opens it.
  void set_private_key(const YString& file, const YString& password);
  // Whether a file holds a private key that needs a password.
  static bool key_needs_password(const YString& file);
  void on_progress(yinet::ProgressReport report);
  [[nodiscard]] yinet::SshFailure last_failure() const;
  [[nodiscard]] YString last_failure_text() const;  // English

 private:
  bool authenticate(const YString& user, const YString& password);
  bool verifyServer();
  // Both send in pieces; false when one of them was not taken whole.
  bool transfer_file(sftp_file_struct* file, const YString& local, std::int64_t size);
  bool transfer_file(sftp_file_struct* file, const YBuffer& data, int size);

  bool open_connection(const YString& host, int port, const YString& user, const YString& proxy_host, int proxy_port,
                       int proxy_type, const YString& proxy_user, const YString& proxy_password);
  bool log_in_with_key();
  bool failed(yinet::SshFailure failure, std::string_view text);  // always false
  bool refused(sftp_session_struct* session);                     // what libssh says; always false
  template <typename Work>
  bool in_session(sftp_session_struct* session, const YString& remote, Work work);

  std::unique_ptr<yinet::SshConnection> session_;  // null until connect
  SecureSocket socket_;
  std::unique_ptr<yinet::SshClientState> state_;  // never null
};
