// The control connection: made, logged in, commands out, replies in. Data connections are in ftps_data.cpp.

#include <openssl/ssl.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "yinet/ftp/client_certificate.h"
#include "yinet/ftp/ftp_answers.h"
#include "yinet/ftp/ftp_codes.h"
#include "yinet/ftp/ftps.h"
#include "yinet/ftp/ftps_state.h"
#include "yinet/host/contained.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/host/wire_text.h"
#include "yinet/host/yfile.h"
#include "yinet/host/ylog.h"
#include "yinet/net/readiness.h"
#include "yinet/net/tls_context.h"

using namespace yinet;
using namespace yinet::ftp;

namespace {

using std::chrono::milliseconds;

constexpr int kDefaultPort = 21;
constexpr int kDefaultProxyPort = 1080;
constexpr int kReplyPiece = 2048;

std::string address_text(std::string_view host, int port) { return formatted("$1$:$2$", host, std::to_string(port)); }

// The verb only: what follows may be a password.
std::string_view verb_of(std::string_view command) {
  const std::string_view verb = command.substr(0, command.find(' '));
  return breaks_protocol_line(verb) ? std::string_view("?") : verb;
}

}  // namespace

// --- Life -------------------------------------------------------------------------------------------------------------

ftps::ftps() : state_(std::make_unique<FtpsState>()) { init_ftps(); }

ftps::ftps(const YString& host, const YString& user, const YString& password, int ftpType, const YString& certificate)
    : ftps(host, user, password, YString(), ftpType, 0, certificate, YString(), YString()) {}

ftps::ftps(const YString& host, const YString& user, const YString& password, const YString& proxy, int ftpType,
           int proxyType, const YString& certificate, const YString& proxy_user, const YString& proxy_password)
    : proxy_type_(proxyType), state_(std::make_unique<FtpsState>()) {
  init_ftps();
  init_client(host, user, password, proxy, ftpType, certificate, proxy_user, proxy_password);
  load_certificate();
}

ftps::ftps(const ftps& other) : SecureSocket(), state_(std::make_unique<FtpsState>()) {
  copy_settings(other);
  load_certificate();
}

ftps& ftps::operator=(const ftps& other) {
  if (this == &other) return *this;
  Close();
  DropContext();
  copy_settings(other);
  load_certificate();
  return *this;
}

ftps::~ftps() = default;

void ftps::init_ftps() {
  contained(0, [&] {
    port_ = kDefaultPort;
    connected_ = false;
    has_certificate_ = false;
    transfer_type_ = 0;
    set_last_mes(kNoStatus);
    reply_timeout_ = setting_int(settings::kFtpReplyLimit);
    upload_timeout_ = setting_int(settings::kFtpUploadLimit);
    download_timeout_ = setting_int(settings::kFtpDownloadLimit);
    ftp_type_ = kTlsType;
    data_port_ = 0;
    return 0;
  });
}

void ftps::init_client(const YString& host, const YString& user, const YString& password, const YString& proxy,
                       int ftpType, const YString& certificate, const YString& proxy_user,
                       const YString& proxy_password) {
  HostAndPort server = split_host_and_port(host);
  host_ = std::move(server.host);
  port_ = server.port == 0 ? kDefaultPort : server.port;
  if (!proxy.IsEmpty()) {
    HostAndPort address = split_host_and_port(proxy);
    proxy_host_ = std::move(address.host);
    proxy_port_ = address.port == 0 ? kDefaultProxyPort : address.port;
  }
  user_ = user;
  password_ = password;
  certificate_ = certificate;
  has_certificate_ = !certificate.IsEmpty();
  ftp_type_ = ftpType;
  proxy_user_ = proxy_user;
  proxy_password_ = proxy_password;
}

void ftps::load_certificate() {
  if (!b_certif()) return;
  InitSSLClientContext(certificate_, true, false);
  if (sslContext == nullptr) return;
  use_client_certificates(sslContext, certificate_);
  const auto items = certificate_.Items();
  const bool names_folders = std::any_of(
      items.begin(), items.end(), [](std::string_view item) { return !item.empty() && !YFile::Exist(YString(item)); });
  if (!names_folders) trust_system(sslContext);
}

void ftps::copy_settings(const ftps& other) {
  const std::scoped_lock guard(other.state_->status, state_->status);
  host_ = other.host_;
  user_ = other.user_;
  password_ = other.password_;
  certificate_ = other.certificate_;
  port_ = other.port_;
  proxy_host_ = other.proxy_host_;
  proxy_port_ = other.proxy_port_;
  proxy_type_ = other.proxy_type_;
  proxy_user_ = other.proxy_user_;
  proxy_password_ = other.proxy_password_;
  connected_ = false;
  has_certificate_ = other.has_certificate_;
  last_message_ = other.last_message_;
  last_message_number_ = other.last_message_number_;
  last_command_ = other.last_command_;
  transfer_type_ = other.transfer_type_;
  reply_timeout_ = other.reply_timeout_;
  upload_timeout_ = other.upload_timeout_;
  download_timeout_ = other.download_timeout_;
  ftp_type_ = other.ftp_type_;
  data_port_ = other.data_port_;
  data_address_ = other.data_address_;
}

// --- Connecting ---------------------------------------------------------------------------------------------------------

int ftps::connect0() {
  const std::lock_guard guard(state_->dialogue);
  // The server of a new connection knows nothing of the last one.
  transfer_type_ = 0;
  data_port_ = 0;
  state_->replies = FtpReplyReader(setting_flag(settings::kFtpExactReplies));
  // With explicit TLS the connection begins in clear: the context waits for STARTTLS.
  SSL_CTX* const context = sslContext;
  if (ftp_type_ == kTlsType) sslContext = nullptr;
  const int result = contained(kFailed, [&] { return connect_control(); });
  sslContext = context;
  if (result != kDone) return failed_with(kConnectFailed, kFailed);
  connected_ = true;
  get_ftpserver_mes();
  return kDone;
}

int ftps::connect_control() {
  const std::string server = address_text(host_, port_);
  const std::string proxy = address_text(proxy_host_, proxy_port_);
  int result = kFailed;
  switch (proxy_type_) {
    case 0:
      YLog.DebugStart(kTraceChannel, message::kFtpConnecting, server);
      result = Connect(host_, static_cast<unsigned int>(port_), false);
      YLog.DebugEnd(kTraceChannel, result == kDone ? message::kFtpConnected : message::kFtpConnectFailed, server);
      return result;
    case kFtpProxy:
      YLog.DebugStart(kTraceChannel, message::kFtpProxyConnecting, proxy);
      result = Connect(proxy_host_, static_cast<unsigned int>(proxy_port_), false);
      break;
    case kSocks4Proxy:
    case kSocks5Proxy:
      YLog.DebugStart(kTraceChannel, message::kFtpProxyConnecting, proxy);
      result = connect_through_socks();
      break;
    default: return kFailed;
  }
  YLog.DebugEnd(kTraceChannel, result == kDone ? message::kFtpProxyConnected : message::kFtpProxyFailed, proxy, server);
  return result;
}

int ftps::connect_through_socks() {
  const std::string proxy = address_text(proxy_host_, proxy_port_);
  int result = Connect(host_, static_cast<unsigned int>(port_), proxy_host_, static_cast<unsigned int>(proxy_port_),
                       false, proxy_user_, proxy_password_);
  if (result != kDone) {
    YLog.DebugEvent(kTraceChannel, message::kFtpProxyStep, proxy, std::to_string(result));
    return result;
  }
  result = SocksConnect(static_cast<unsigned int>(proxy_type_));
  if (result != kDone) {
    YLog.DebugEvent(kTraceChannel, message::kFtpSocksFailed, proxy, address_text(host_, port_));
    YLog.DebugEvent(kTraceChannel, message::kFtpSocksStep, proxy, std::to_string(result));
  }
  return result;
}

int ftps::connect() {
  return contained(kFailed, [&] {
    const SecretScope no_password(password_);
    const SecretScope no_proxy_password(proxy_password_);
    if (connect0() != kDone) return kFailed;
    if (ftp_type_ == kTlsType) {
      const std::lock_guard guard(state_->dialogue);
      send_command("AUTH TLS", kReadReply);
      if (refused()) {  // no TLS can come up, and nothing secret may follow without it
        const bool by_server = get_last_mesnum() < kFirstOwnStatus;
        if (by_server)
          YLog.Event(message::kErrorLevel, message::kFtpTlsRefused, address_text(host_, port_), get_last_mes(0));
        return kFailed;
      }
      drop_clear_text();
      if (STARTTLS(certificate_, true, true, nullptr) != kDone) return kFailed;
    }
    return log_in();
  });
}

// Whatever came in clear behind the answer to AUTH TLS was not protected, and must not pass for an answer given under TLS.
void ftps::drop_clear_text() {
  constexpr int kMostPieces = 1024;  // a peer that goes on and on fails in the handshake
  state_->replies.clear();
  YString ignored;
  for (int i = 0; i < kMostPieces && Receive(ignored, kReplyPiece, true) > 0; ++i) {
  }
}

int ftps::log_in() {
  const bool ftp_proxy = proxy_type_ == kFtpProxy;
  const std::string proxy = address_text(proxy_host_, proxy_port_);
  std::string user = formatted("USER $1$", user_);
  if (ftp_proxy) {
    YLog.DebugEvent(kTraceChannel, message::kFtpProxyLogin, address_text(host_, port_), proxy);
    const std::string_view form = proxy_user_.IsEmpty() ? "USER $1$@$2$:$3$" : "USER $1$@$4$@$2$:$3$";
    user = formatted(form, user_, host_, std::to_string(port_), proxy_user_);
  }
  send_command(YString(std::move(user)), kReadReply);
  if (refused()) {
    if (ftp_proxy) YLog.DebugEvent(kTraceChannel, message::kFtpProxyLoginRefused, proxy);
    return kFailed;
  }
  const YString password(formatted("PASS $1$", password_));
  if (ftp_proxy) {  // once for the proxy, once for the server behind it
    YLog.DebugEvent(kTraceChannel, message::kFtpProxyLoginAccepted, proxy);
    send_command(password, kReadReply);
    if (refused()) return kFailed;
  }
  send_command(password, kReadReply);
  if (refused()) return kFailed;
  if (ftp_type_ == kTlsType) {
    send_command("PBSZ 0", kReadReply);
    send_command("PROT P", kReadReply);
  }
  return kDone;
}

int ftps::closeconnection() {
  if (!connected()) return 1;
  send_command("QUIT", kReadReply);
  return kDone;
}

// --- Commands and replies -----------------------------------------------------------------------------------------------

int ftps::send_command(const YString& cmd, int flags) {
  return contained(kFailed, [&] {
    const std::lock_guard guard(state_->dialogue);
    set_last_command(cmd);
    if (!connected()) return failed_with(kUnconnected, kNotConnected);
    if (!send_line(cmd)) return failed_with(kSendFailed, kFailed);
    if ((flags & (kReadPreliminary | kReadReply)) == 0) return kDone;
    if ((flags & kReadPreliminary) != 0) get_ftpserver_mes();
    return get_ftpserver_mes();
  });
}

bool ftps::send_line(const YString& line) {
  if (breaks_protocol_line(line)) {
    YLog.Event(message::kErrorLevel, message::kFtpLineBreakRefused, verb_of(line));
    return false;
  }
  return Send(YString(text_for_wire(line) + "\r\n"));
}

int ftps::get_ftpserver_mes() {
  return contained(kFailed, [&] {
    const std::lock_guard guard(state_->dialogue);
    const int result = read_reply();
    if (result == kTimeOver) {
      Close();
      state_->replies.clear();
    }
    return result;
  });
}

int ftps::read_reply() {
  FtpReplyReader& replies = state_->replies;
  const Deadline deadline{milliseconds(reply_timeout_)};
  const auto most = static_cast<std::size_t>(setting_number(settings::kFtpReplySize));
  std::optional<Deadline> rest;  // of a multi-line reply that stopped before its last line
  const auto may_end = [&] { return replies.state() == FtpReplyReader::State::unfinished && !replies.exact(); };
  const auto give_out = [&] {
    const YString reply(text_from_wire(replies.take()));
    set_last_mes(reply);
    if (refused()) {
      YLog.DebugEvent(kTraceChannel, message::kFtpCommandRefused, verb_of(get_last_command()),
                      SecretScope::masked(trimmed(reply)));  // servers repeat passwords
    }
    return kDone;
  };
  YString piece;
  for (;;) {
    const bool whole = replies.state() == FtpReplyReader::State::whole;
    if (whole || (may_end() && rest && rest->passed())) return give_out();
    if (replies.kept() > most) {
      YLog.Event(message::kErrorLevel, message::kFtpReplyTooLarge, address_text(host_, port_), std::to_string(most));
      return kTimeOver;
    }
    if (bio == nullptr) return kTimeOver;  // nothing can come any more
    if (!may_end()) rest.reset();
    else if (!rest) rest.emplace(milliseconds(setting_number(settings::kFtpReplyRest)));

    const int count = Receive(piece, kReplyPiece, false);
    if (count < 0) {
      if (may_end()) return give_out();
      replies.clear();
      return count == SecureSocket::kReceiveEnded ? failed_with(kReceiveFailed, kNotConnected)
                                                  : failed_with(kReceiveError, kFailed);
    }
    if (count > 0) {
      replies.feed(std::string_view(piece).substr(0, static_cast<std::size_t>(count)));
      rest.reset();  // the rest has come, or a part of it
    } else {
      const milliseconds wait = rest ? std::min(rest->left(), deadline.left()) : deadline.left();
      wait_for_input(static_cast<int>(wait.count()));
    }
    if (deadline.passed() && replies.state() != FtpReplyReader::State::whole) return may_end() ? give_out() : kTimeOver;
  }
}

// --- Last messages ------------------------------------------------------------------------------------------------------

void ftps::set_last_mes(const YString& text) {
  constexpr int kCodeDigits = 3;
  const int code = leading_int32(std::string_view(text).substr(0, kCodeDigits));
  const std::lock_guard guard(state_->status);
  last_message_ = text;
  if (!text.IsEmpty() && code != 0) last_message_number_ = code;
}

void ftps::set_last_mesnum(int number) {
  const std::lock_guard guard(state_->status);
  last_message_number_ = number;
}

void ftps::set_last_command(const YString& command) {
  const std::lock_guard guard(state_->status);
  last_command_ = command;
}

int ftps::failed_with(std::string_view status, int result) {
  set_last_mes(YString(status));
  return result;
}

bool ftps::refused() { return get_last_mesnum() >= kFirstRefusal; }

YString ftps::get_last_mes(int mode) {
  constexpr int kCommandMode = 4;
  return contained(YString(), [&] {
    const std::lock_guard guard(state_->status);
    if (mode == 0) return last_message_;
    if ((mode & kCommandMode) != 0) return last_command_;
    return last_command_.IsEmpty() ? last_message_ : last_message_ + " Letzter Befehl: " + last_command_;
  });
}

int ftps::get_last_mesnum() {
  const std::lock_guard guard(state_->status);
  return last_message_number_;
}

YString ftps::get_last_command() {
  return contained(YString(), [&] {
    const std::lock_guard guard(state_->status);
    return last_command_;
  });
}

YObject ftps::get_partner_info(bool fresh) { return GetPartnerInfo(fresh); }
YString ftps::get_certif() { return certificate_; }
bool ftps::connected() { return connected_; }
bool ftps::b_certif() { return has_certificate_; }
int ftps::get_transfer_type() { return transfer_type_; }
void ftps::set_transfer_type(int type) { transfer_type_ = type; }
void ftps::on_progress(ProgressReport report) { state_->report = std::move(report); }
