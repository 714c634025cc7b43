#include "yinet/ssh/ssh_connection.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>

#include "yinet/host/text.h"

namespace yinet {
namespace {

using std::chrono::milliseconds;

constexpr long kMicroPerMilli = 1000;
constexpr long kMilliPerSecond = 1000;
constexpr long kNanoPerMilli = 1000000;
constexpr milliseconds kShortest{1};  // 0 would mean "never" to the system and to libssh
constexpr milliseconds kLongest = std::chrono::hours(24 * 365);

constexpr const char* kNoFile = "/dev/null";

void make_blocking(int descriptor, milliseconds limit) {
  const int flags = fcntl(descriptor, F_GETFL);
  if (flags >= 0) fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK);
  const timeval time{limit.count() / kMilliPerSecond, (limit.count() % kMilliPerSecond) * kMicroPerMilli};
  setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &time, sizeof(time));
  setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof(time));
}

}  // namespace

SshConnection::SshConnection(int descriptor, milliseconds limit)
    : descriptor_(fcntl(descriptor, F_DUPFD_CLOEXEC, 0)),
      session_(ssh_new()),
      limit_(std::clamp(limit, kShortest, kLongest)) {
  if (descriptor_ < 0) return;
  fstat(descriptor_, &identity_);
  make_blocking(descriptor_, limit_);
}

SshConnection::~SshConnection() {
  const SigpipeGuard no_sigpipe;
  if (waiting_ != nullptr) {
    ssh_event_remove_fd(waiting_, timer_.get());
    ssh_event_remove_session(waiting_, session_);
    ssh_event_free(waiting_);
  }
  if (session_ != nullptr) {
    ssh_disconnect(session_);
    ssh_free(session_);
  }
  if (owns_descriptor()) close(descriptor_);
}

// Whether the number still stands for our socket: libssh may have closed it, and somebody else may have it now.
bool SshConnection::owns_descriptor() const {
  struct stat now {};
  return descriptor_ >= 0 && fstat(descriptor_, &now) == 0 && now.st_dev == identity_.st_dev &&
         now.st_ino == identity_.st_ino;
}

bool SshConnection::set_options(const SshLogin& login) {
  const bool no_configuration = false;  // such files can start programs
  const long seconds = limit_.count() / kMilliPerSecond;
  const long microseconds = (limit_.count() % kMilliPerSecond) * kMicroPerMilli;
  const bool checks = !login.known_hosts.empty();
  const auto set = [&](ssh_options_e option, const void* value) {
    return ssh_options_set(session_, option, value) == SSH_OK;
  };
  bool good = set(SSH_OPTIONS_PROCESS_CONFIG, &no_configuration) && set(SSH_OPTIONS_FD, &descriptor_) &&
              set(SSH_OPTIONS_TIMEOUT, &seconds) && set(SSH_OPTIONS_TIMEOUT_USEC, &microseconds) &&
              set(SSH_OPTIONS_GLOBAL_KNOWNHOSTS, kNoFile) &&
              set(SSH_OPTIONS_KNOWNHOSTS, checks ? login.known_hosts.c_str() : kNoFile);
  if (checks) good = good && set(SSH_OPTIONS_HOST, login.host.c_str()) && set(SSH_OPTIONS_PORT, &login.port);
  return good && set(SSH_OPTIONS_USER, login.user.c_str());  // last: a host may not bring a user of its own
}

bool SshConnection::connect(const SshLogin& login) {
  const SshCall call(*this);
  if (session_ == nullptr || descriptor_ < 0 || !set_options(login) || ssh_connect(session_) != SSH_OK) return false;
  set_up_limit();
  return waiting_ != nullptr;
}

void SshConnection::set_up_limit() {
  timer_.reset(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
  waiting_ = timer_.is_open() ? ssh_event_new() : nullptr;
  if (waiting_ == nullptr) return;
  if (ssh_event_add_session(waiting_, session_) == SSH_OK &&
      ssh_event_add_fd(waiting_, timer_.get(), POLLIN, &SshConnection::on_limit, this) == SSH_OK) {
    restart_limit();
    return;
  }
  ssh_event_remove_session(waiting_, session_);
  ssh_event_free(waiting_);
  waiting_ = nullptr;
}

void SshConnection::restart_limit() const {
  if (!timer_.is_open()) return;
  itimerspec time{};
  time.it_value = {limit_.count() / kMilliPerSecond, (limit_.count() % kMilliPerSecond) * kNanoPerMilli};
  timerfd_settime(timer_.get(), 0, &time, nullptr);
}

int SshConnection::on_limit(int timer, int /*events*/, void* self) {
  auto& connection = *static_cast<SshConnection*>(self);
  std::uint64_t count = 0;
  static_cast<void>(!read(timer, &count, sizeof(count)));
  connection.timed_out_ = true;
  if (connection.owns_descriptor()) shutdown(connection.descriptor_, SHUT_RDWR);
  return SSH_OK;
}

std::string SshConnection::host_key() {
  const SshCall call(*this);
  ssh_key found = nullptr;
  if (ssh_get_server_publickey(session_, &found) != SSH_OK) return {};
  const std::unique_ptr<ssh_key_struct, decltype(&ssh_key_free)> key(found, &ssh_key_free);
  unsigned char* hash = nullptr;
  std::size_t size = 0;
  if (ssh_get_publickey_hash(key.get(), SSH_PUBLICKEY_HASH_SHA256, &hash, &size) != SSH_OK) return {};
  char* const text = ssh_get_fingerprint_hash(SSH_PUBLICKEY_HASH_SHA256, hash, size);
  ssh_clean_pubkey_hash(&hash);
  const std::string fingerprint = text != nullptr ? text : "";
  ssh_string_free_char(text);
  return std::string(ssh_key_type_to_char(ssh_key_type(key.get()))) + " " + fingerprint;
}

bool SshConnection::is_known_host() {
  const SshCall call(*this);
  return ssh_session_is_known_server(session_) == SSH_KNOWN_HOSTS_OK;
}

bool SshConnection::log_in(const std::string& password) {
  const SshCall call(*this);
  return ssh_userauth_password(session_, nullptr, password.c_str()) == SSH_AUTH_SUCCESS;
}

bool SshConnection::log_in(ssh_key key) {
  const SshCall call(*this);
  return ssh_userauth_publickey(session_, nullptr, key) == SSH_AUTH_SUCCESS;
}

bool SshConnection::is_connected() const { return ssh_is_connected(session_) != 0; }

std::string SshConnection::error_text() const {
  if (timed_out_) return formatted("no answer within $1$ ms", std::to_string(limit_.count()));
  return session_ != nullptr ? ssh_get_error(session_) : "no memory";
}

}  // namespace yinet
