// Settings, their checks, and what is told about errors.

#include "yinet/filetransfer/yinet_file_transfer.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "yinet/filetransfer/curl_library.h"
#include "yinet/filetransfer/transfer_formats.h"
#include "yinet/filetransfer/transfer_state.h"
#include "yinet/host/contained.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/text.h"
#include "yinet/host/wire_text.h"
#include "yinet/host/ylog.h"
#include "yinet/host/ytextmanager.h"

using namespace yinet;

namespace {

constexpr int kNoPort = -1;
constexpr std::string_view kImplicitTlsPort = "990";
constexpr std::string_view kBehindScheme = "://";
constexpr std::string_view kMasked = "***";

constexpr std::string_view kProtocols[] = {"http", "https", "ftp", "ftps", "sftp"};
constexpr std::string_view kProxyProtocols[] = {"http", "https", "socks4", "socks4a", "socks5", "socks5h"};

template <std::size_t Count>
bool is_one_of(const std::string_view (&names)[Count], std::string_view name) {
  return std::ranges::find(names, name) != std::end(names);
}

// "scheme://rest" in two; without "://" all of it is the rest.
std::pair<std::optional<std::string_view>, std::string_view> split_url(std::string_view url) {
  const std::size_t end = url.find(kBehindScheme);
  if (end == std::string_view::npos) return {std::nullopt, url};
  return {url.substr(0, end), url.substr(end + kBehindScheme.size())};
}

std::string url_of(std::string_view scheme, std::string_view server) {
  return scheme.empty() ? std::string(server) : std::string(scheme) + std::string(kBehindScheme) + std::string(server);
}

}  // namespace

// --- Life -----------------------------------------------------------------------------------------------------------------

YInetFileTransfer::YInetFileTransfer() : state_(std::make_unique<TransferState>()) {
  MakeHandle();
  last_error_number_ = 0;
  last_error_message_.Clear();
}

YInetFileTransfer::YInetFileTransfer(const YInetFileTransfer& other) : state_(std::make_unique<TransferState>()) {
  CopySettings(other);
}

YInetFileTransfer& YInetFileTransfer::operator=(const YInetFileTransfer& other) {
  if (this != &other) CopySettings(other);
  return *this;
}

YInetFileTransfer::~YInetFileTransfer() = default;

void YInetFileTransfer::CopySettings(const YInetFileTransfer& other) {
  protocol_ = other.protocol_;
  server_ = other.server_;
  port_ = other.port_;
  username_ = other.username_;
  password_ = other.password_;
  proxy_server_ = other.proxy_server_;
  proxy_protocol_ = other.proxy_protocol_;
  proxy_port_ = other.proxy_port_;
  proxy_username_ = other.proxy_username_;
  proxy_password_ = other.proxy_password_;
  error_reporting_ = other.error_reporting_;
  last_error_number_ = other.last_error_number_;
  last_error_message_ = other.last_error_message_;
  last_error_details_ = other.last_error_details_;
  display_path_ = other.display_path_;
  state_->cause = other.state_->cause;
  state_->report = other.state_->report;
  OnServerOrUserChange();
  MakeHandle();
  ApplyLogin();
}

bool YInetFileTransfer::IsLibcurlInitialized() { return LibcurlInitializer::succeeded(); }

// --- Settings -------------------------------------------------------------------------------------------------------------

bool YInetFileTransfer::SetProtocol(const YString& protocol) {
  if (!handle_) return false;
  ClearLastErrorIfInitOk();
  OnServerOrUserChange();  // another protocol may lead to another start folder
  protocol_ = YString(to_lower(protocol));
  return CheckProtocol();
}

bool YInetFileTransfer::SetServer(const YString& server) {
  if (!handle_) return false;
  ClearLastErrorIfInitOk();
  OnServerOrUserChange();
  server_ = server;
  return CheckServer(false);
}

bool YInetFileTransfer::SetServerUrl(const YString& url) {
  if (!handle_) return false;
  ClearLastErrorIfInitOk();
  const auto [scheme, server] = split_url(url);
  const bool known = !scheme || SetProtocol(YString(*scheme));
  OnServerOrUserChange();
  server_ = YString(server);
  return CheckServer(false) && known;  // looked at whatever the protocol is: the last error is the server's
}

void YInetFileTransfer::SetPortA(int port) {
  OnServerOrUserChange();
  port_ = port;
}

void YInetFileTransfer::SetUsername(const YString& username) {
  OnServerOrUserChange();
  if (handle_ && SetCurlOptYString(CURLOPT_USERNAME, username)) username_ = username;
}

void YInetFileTransfer::SetPassword(const YString& password) {
  OnServerOrUserChange();
  if (handle_ && SetCurlOptYString(CURLOPT_PASSWORD, password)) password_ = password;
}

bool YInetFileTransfer::ApplyLogin() {
  return handle_ && SetCurlOptYString(CURLOPT_USERNAME, username_) && SetCurlOptYString(CURLOPT_PASSWORD, password_);
}

bool YInetFileTransfer::SetProxyProtocol(const YString& protocol) {
  if (!handle_) return false;
  ClearLastErrorIfInitOk();
  proxy_protocol_ = YString(to_lower(protocol));
  return CheckProxyProtocol();
}

bool YInetFileTransfer::SetProxyServer(const YString& server) {
  if (!handle_) return false;
  ClearLastErrorIfInitOk();
  proxy_server_ = server;
  return proxy_server_.IsEmpty() || CheckServerAddressFormat(proxy_server_, true);
}

bool YInetFileTransfer::SetProxyServerUrl(const YString& url) {
  if (!handle_) return false;
  if (url.IsEmpty()) return SetProxyServer(url);
  const auto [scheme, server] = split_url(url);
  const bool known = !scheme || SetProxyProtocol(YString(*scheme));
  proxy_server_ = YString(server);
  return CheckServerAddressFormat(proxy_server_, true) && known;
}

void YInetFileTransfer::SetProxyPort(int port) { proxy_port_ = port; }
void YInetFileTransfer::SetProxyUsername(const YString& username) { proxy_username_ = username; }
void YInetFileTransfer::SetProxyPassword(const YString& password) { proxy_password_ = password; }
void YInetFileTransfer::SetErrorReporting(bool on) { error_reporting_ = on; }

void YInetFileTransfer::on_progress(ProgressReport report) { state_->report = std::move(report); }

void YInetFileTransfer::OnServerOrUserChange() {
  entry_directory_.Clear();
  state_->entry_directory_asked = false;
}

void YInetFileTransfer::SetDisplayPath(const YString& path) { display_path_ = path; }

// --- Checks ---------------------------------------------------------------------------------------------------------------

bool YInetFileTransfer::CheckProtocol() {
  if (protocol_.IsEmpty()) return RaiseError(message::kTransferNoProtocol, "", "", false);
  return is_one_of(kProtocols, protocol_) || RaiseError(message::kTransferProtocolUnknown, protocol_, "", false);
}

bool YInetFileTransfer::CheckProxyProtocol() {
  if (proxy_protocol_.IsEmpty()) return RaiseError(message::kTransferNoProxyProtocol, "", "", false);
  return is_one_of(kProxyProtocols, proxy_protocol_) ||
         RaiseError(message::kTransferProxyProtocolUnknown, proxy_protocol_, "", false);
}

bool YInetFileTransfer::CheckServer(bool with_details) {
  if (server_.IsEmpty()) return RaiseError(message::kTransferNoServer, "", "", with_details);
  return CheckServerAddressFormat(server_, with_details);
}

bool YInetFileTransfer::CheckServerAddressFormat(const YString& address, bool with_details) {
  const auto port = port_text(address);
  if (port && !is_port_text(*port))
    return RaiseError(message::kTransferPortWrong, YString(without_login(*port)), "", with_details);
  return !leaves_host_part(address) ||
         RaiseError(message::kTransferAddressWrong, YString(without_login(address)), "", with_details);
}

// A line break would become a second command of the login.
bool YInetFileTransfer::CheckLoginTexts() {
  const std::pair<const char*, const YString&> texts[] = {{"username", username_},
                                                          {"password", password_},
                                                          {"proxyUsername", proxy_username_},
                                                          {"proxyPassword", proxy_password_}};
  for (const auto& [name, text] : texts)
    if (breaks_protocol_line(text)) return RaiseError(message::kTransferLineBreakRefused, name, "", true);
  return true;
}

// A line break would become a second command, and a NUL would end the name.
bool YInetFileTransfer::CheckRemoteName(int number, const YString& name) {
  return !breaks_protocol_line(name) ||
         RaiseError(number, YTextManager.GetYText(message::kTransferLineBreakRefused, "path"), "", true);
}

bool YInetFileTransfer::IsSftp() const { return protocol_.Equals("sftp"); }
bool YInetFileTransfer::IsFtpOrSftp() const { return IsSftp() || protocol_.Equals("ftp") || protocol_.Equals("ftps"); }

// --- URLs -----------------------------------------------------------------------------------------------------------------

bool YInetFileTransfer::HasImplicitTls() const {
  const auto in_server = port_text(server_);
  if (in_server) return in_server->empty() || leading_int32(*in_server) == leading_int32(kImplicitTlsPort);
  return port_ == kNoPort || port_ == leading_int32(kImplicitTlsPort);
}

// For libcurl "ftps" is implicit TLS; explicit TLS is "ftp" with TLS demanded.
YString YInetFileTransfer::GetUrl(const YString& path, bool for_display) const {
  const bool ftps = protocol_.Equals("ftps");
  std::string_view scheme = protocol_;
  if (ftps && !for_display && !HasImplicitTls()) scheme = "ftp";
  std::string url = url_of(scheme, for_display ? without_login(server_) : std::string(server_));
  if (!port_text(server_)) {
    if (port_ != kNoPort) url += ":" + std::to_string(port_);
    else if (ftps) url.append(":").append(kImplicitTlsPort);
  }
  if (path.IsEmpty()) return YString(url);
  if (IsSftp()) url += encoded_path(EntryPrefix(path), PathForm::literal);
  else if (!path.StartsWith("/")) url += '/';
  return YString(url + encoded_path(text_for_wire(path), IsFtpOrSftp() ? PathForm::name : PathForm::http));
}

// What goes before a path: the start folder, and a slash where neither side has one.
YString YInetFileTransfer::EntryPrefix(const YString& path) const {
  YString prefix = entry_directory_;
  if (prefix.EndsWith("/")) prefix.Cut(prefix.Length() - 1);  // "/" itself, and libcurl's form of SFTP's
  if (!path.StartsWith("/")) prefix += '/';
  return prefix;
}

YString YInetFileTransfer::GetAbsolutePath(const YString& path) const {
  return EntryPrefix(path) + YString(text_for_wire(path));
}

bool YInetFileTransfer::SetCurlProxyUrl() {
  proxy_url_.Clear();
  if (!proxy_server_.IsEmpty()) {
    proxy_url_ = YString(url_of(proxy_protocol_, proxy_server_));
    if (!port_text(proxy_server_) && proxy_port_ != kNoPort) proxy_url_ += ":" + std::to_string(proxy_port_);
    if (!CheckProxyProtocol() || !CheckServerAddressFormat(proxy_server_, true)) return false;
  }
  // The empty text keeps libcurl from the proxies of the environment.
  return SetCurlOptPointer(CURLOPT_PROXY, proxy_url_.Ptr()) &&
         SetCurlOptYString(CURLOPT_PROXYUSERNAME, proxy_username_) &&
         SetCurlOptYString(CURLOPT_PROXYPASSWORD, proxy_password_);
}

// --- Errors ---------------------------------------------------------------------------------------------------------------

void YInetFileTransfer::ClearLastErrorIfInitOk() {
  if (!handle_) return;
  last_error_number_ = 0;
  last_error_message_.Clear();
  last_error_details_.Clear();
  state_->cause = {};
  state_->own_reason.clear();
}

bool YInetFileTransfer::RaiseCurlError(int number, int result) {
  const std::string& own = state_->own_reason;
  return RaiseError(number, YString(own.empty() ? curl_easy_strerror(static_cast<CURLcode>(result)) : own.c_str()), "",
                    true);
}

// Gives false. `text` and `details` fill the message; a host's text may have more behind "Details:" than is kept here.
bool YInetFileTransfer::RaiseError(int number, const YString& text, const YString& details, bool with_details) {
  const std::string full = mask_url_passwords(YTextManager.GetYText(number, text, details));
  last_error_number_ = number;
  last_error_message_ = YString(trimmed_back(std::string_view(full).substr(0, full.find("Details:"))));
  last_error_details_ = ConnectionDetails();
  if (error_reporting_)
    YLog.EventEx(message::kErrorLevel, number, last_error_message_, with_details ? last_error_details_ : YString());
  return false;
}

YString YInetFileTransfer::ConnectionDetails() const {
  const auto masked = [](const YString& secret) { return secret.IsEmpty() ? YString() : YString(kMasked); };
  const std::pair<std::string_view, YString> entries[] = {
      {"url", GetUrl(display_path_, true)},
      {"username", username_},
      {"password", masked(password_)},
      {"proxyServerUrl",
       proxy_server_.IsEmpty() ? YString() : YString(url_of(proxy_protocol_, without_login(proxy_server_)))},
      {"proxyUsername", proxy_username_},
      {"proxyPassword", masked(proxy_password_)},
      {"entryDir", YString(text_from_wire(entry_directory_))}};
  YString details;
  details.ItemDelimiter("\n");
  for (const auto& [key, value] : entries)
    if (!value.IsEmpty()) details.AddItem(std::string(key) + "=" + value.str());
  details.DeleteBlanks();
  for (const char* line_break : {"\r\n", "\r", "\n"}) details.Replace(line_break, ", ");
  return details;
}

YString YInetFileTransfer::GetLastErrorMsg() {
  return contained(YString(), [&] {
    if (last_error_message_.IsEmpty() || last_error_details_.IsEmpty()) return last_error_message_;
    return last_error_message_ + " [" + last_error_details_ + "]";
  });
}

int YInetFileTransfer::GetLastErrorNumber() { return last_error_number_; }

const TransferCause& YInetFileTransfer::last_cause() const { return state_->cause; }
