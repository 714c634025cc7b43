// The connection of an sshClient and the SFTP sessions on it; what is done in them is in ssh_client_files.cpp.

#include "yinet/ssh/ssh_client.h"

#include <string>
#include <utility>

#include "yinet/host/contained.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/host/wire_text.h"
#include "yinet/host/yfile.h"
#include "yinet/host/ylog.h"
#include "yinet/net/known_hosts.h"
#include "yinet/ssh/private_key.h"
#include "yinet/ssh/ssh_address.h"
#include "yinet/ssh/ssh_client_state.h"
#include "yinet/ssh/ssh_connection.h"

using namespace yinet;

namespace {

constexpr int kNoticeLevel = 8;

bool has_nul(std::string_view text) { return text.find('\0') != std::string_view::npos; }

}  // namespace

sshClient::sshClient() : state_(std::make_unique<SshClientState>()) {}

sshClient::~sshClient() { disconnect(); }

bool sshClient::connect(const YString& host, const int& port, const YString& user, const YString& password,
                        const YString& proxyHost, const int& proxyPort, int proxyType, const YString& proxyUser,
                        const YString& proxyPassword) {
  return contained(false, [&] {
    state_->clear_failure();
    const bool connected =
        open_connection(host, port == 0 ? kSshPort : port, user, proxyHost, proxyPort == 0 ? kSocksPort : proxyPort,
                        proxyType, proxyUser, proxyPassword) &&
        verifyServer() && authenticate(user, password);
    if (!connected) disconnect();
    return connected;
  });
}

bool sshClient::open_connection(const YString& host, int port, const YString& user, const YString& proxy_host,
                                int proxy_port, int proxy_type, const YString& proxy_user,
                                const YString& proxy_password) {
  state_->server = formatted("$1$:$2$", host, std::to_string(port));
  if (has_nul(user)) return failed(SshFailure::login, "the user name holds a NUL byte");
  if (socket_.Connect(host, static_cast<unsigned int>(port), proxy_host, static_cast<unsigned int>(proxy_port), false,
                      proxy_user, proxy_password) != 0) {
    return failed(SshFailure::not_connected, "no connection to " + state_->server);
  }
  if (!proxy_host.IsEmpty() && socket_.SocksConnect(static_cast<unsigned int>(proxy_type)) != 0) {
    return failed(SshFailure::not_connected, "the proxy opens no way to " + state_->server);
  }
  state_->sessions.clear();
  session_.reset();
  session_ = std::make_unique<SshConnection>(socket_.GetScoketDescriptor(),
                                             std::chrono::milliseconds(setting_number(settings::kSshLimit)));
  if (session_->connect({text_for_wire(user), host.str(), port, known_hosts_path()})) return true;
  return failed(SshFailure::not_connected, session_->error_text());
}

// Every server is accepted unless there is a file of known hosts.
bool sshClient::verifyServer() {
  const std::string key = session_->host_key();
  YLog.Event(kNoticeLevel, message::kSshHostKey, state_->server, key);
  const std::string known_hosts = setting_text(settings::kSshKnownHosts);
  if (known_hosts.empty() || session_->is_known_host()) return true;
  YLog.Event(message::kErrorLevel, message::kSshHostKeyUnknown, state_->server, key, known_hosts);
  return failed(SshFailure::host_key, key + " is not a known host key of " + state_->server);
}

bool sshClient::authenticate(const YString& /*user*/, const YString& password) {
  const bool has_key = !state_->key_file.IsEmpty() || !setting_text(settings::kSshKeyFile).empty();
  if (has_key && log_in_with_key()) return true;
  if (has_nul(password)) return failed(SshFailure::login, "the password holds a NUL byte");
  // A server may want both, one after the other.
  const bool worth_a_try = !has_key || !password.IsEmpty();
  if (worth_a_try && session_->log_in(text_for_wire(password))) {
    state_->clear_failure();
    return true;
  }
  if (!worth_a_try && state_->failure != SshFailure::none) return false;  // the server was not even asked
  return failed(session_->is_connected() ? SshFailure::login : SshFailure::broken, session_->error_text());
}

bool sshClient::log_in_with_key() {
  const bool own = !state_->key_file.IsEmpty();
  const std::string file = own ? state_->key_file.str() : setting_text(settings::kSshKeyFile);
  const std::string password = own ? state_->key_password.str() : setting_text(settings::kSshKeyPassword);
  const KeyFile read = read_private_key(YFileManager.ResolveSystemPath(file), text_for_wire(password));
  if (read.key) return session_->log_in(read.key.get());
  YLog.Event(message::kErrorLevel, message::kSshKeyUnusable, file);
  return failed(SshFailure::login, formatted("the key file $1$ cannot be used", file));
}

void sshClient::disconnect() {
  state_->sessions.clear();
  session_.reset();
  socket_.Close();
}

sftp_session_struct* sshClient::initFileTransferSession() {
  return contained(static_cast<sftp_session_struct*>(nullptr), [&]() -> sftp_session_struct* {
    if (!session_) {
      failed(SshFailure::not_connected, "not connected");
      return nullptr;
    }
    const SshCall call(*session_);
    SftpSession session(sftp_new(session_->get()), {session_.get()});
    if (!session || sftp_init(session.get()) != SSH_OK) {
      failed(session_->is_connected() ? SshFailure::refused : SshFailure::broken, session_->error_text());
      return nullptr;
    }
    state_->sessions.push_back(std::move(session));
    return state_->sessions.back().get();
  });
}

void sshClient::closeFileTransferSession(sftp_session_struct* session) {
  if (const auto found = state_->find(session); found != state_->sessions.end()) state_->sessions.erase(found);
}

void sshClient::set_private_key(const YString& file, const YString& password) {
  state_->key_file = file;
  state_->key_password = password;
}

bool sshClient::key_needs_password(const YString& file) {
  return contained(false, [&] { return read_private_key(YFileManager.ResolveSystemPath(file), {}).asked; });
}

void sshClient::on_progress(ProgressReport report) { state_->report = std::move(report); }
SshFailure sshClient::last_failure() const { return state_->failure; }
YString sshClient::last_failure_text() const { return YString(state_->failure_text); }

bool sshClient::failed(SshFailure failure, std::string_view text) {
  state_->failure = failure;
  state_->failure_text = text;
  return false;
}
