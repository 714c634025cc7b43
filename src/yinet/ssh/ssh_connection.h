#pragma once

// A session of libssh on a connection that somebody else has made, with the handles that hang on it.

#include <libssh/libssh.h>
#include <libssh/sftp.h>
#include <sys/stat.h>

#include <chrono>
#include <memory>
#include <string>

#include "yinet/host/descriptor.h"
#include "yinet/net/sigpipe_guard.h"

namespace yinet {

struct SshLogin {
  std::string user;
  std::string host;  // as known hosts are named; needed for `known_hosts` only
  int port = 0;
  std::string known_hosts;  // path of the system; empty: the host key is not checked
};

// Owns the libssh session and a duplicate of the descriptor, which libssh closes itself after some failures and leaves open
// after others. The descriptor is made blocking, with a limit: libssh takes a "not now" of the system for the end.
//
// libssh waits without limit once a session is up. Here a timer takes part in its waiting: when a call into libssh has
// lasted longer than the limit, the connection is shut down, and so the call fails. Every call stands under an SshCall.
class SshConnection {
 public:
  SshConnection(int descriptor, std::chrono::milliseconds limit);
  SshConnection(const SshConnection&) = delete;
  SshConnection& operator=(const SshConnection&) = delete;
  ~SshConnection();

  // The protocol's start up to where a user can log in.
  bool connect(const SshLogin& login);
  // "ssh-ed25519 SHA256:..."; empty before connect.
  std::string host_key();
  bool is_known_host();  // by SshLogin::known_hosts
  bool log_in(const std::string& password);
  bool log_in(ssh_key key);

  [[nodiscard]] ssh_session get() const { return session_; }
  [[nodiscard]] bool is_connected() const;
  [[nodiscard]] std::string error_text() const;

 private:
  friend class SshCall;
  void restart_limit() const;
  void set_up_limit();
  [[nodiscard]] bool owns_descriptor() const;
  bool set_options(const SshLogin& login);
  static int on_limit(int timer, int events, void* self);

  Descriptor timer_;
  int descriptor_ = -1;      // the duplicate
  struct stat identity_ {};  // of its socket
  ssh_session session_;
  ssh_event waiting_ = nullptr;  // session and timer
  std::chrono::milliseconds limit_;
  bool timed_out_ = false;
};

// Around every call into libssh.
class SshCall {
 public:
  explicit SshCall(const SshConnection& connection) { connection.restart_limit(); }

 private:
  SigpipeGuard no_sigpipe_;
};

template <auto Free>
struct SshCloser {
  const SshConnection* connection;
  template <typename Handle>
  void operator()(Handle* handle) const {
    const SshCall call(*connection);
    Free(handle);
  }
};
using SftpFile = std::unique_ptr<sftp_file_struct, SshCloser<sftp_close>>;
using SftpFolder = std::unique_ptr<sftp_dir_struct, SshCloser<sftp_closedir>>;
using SftpAttributes = std::unique_ptr<sftp_attributes_struct, SshCloser<sftp_attributes_free>>;
using SftpSession = std::unique_ptr<sftp_session_struct, SshCloser<sftp_free>>;

}  // namespace yinet
