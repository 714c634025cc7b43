// The dealings with libcurl: its handle, what every operation sets on it, and one transfer.

#include <curl/curl.h>

#include <openssl/ssl.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "yinet/filetransfer/curl_library.h"
#include "yinet/filetransfer/transfer_formats.h"
#include "yinet/filetransfer/transfer_state.h"
#include "yinet/filetransfer/yinet_file_transfer.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/host/wire_text.h"
#include "yinet/net/known_hosts.h"
#include "yinet/net/sigpipe_guard.h"
#include "yinet/net/tls_context.h"

using namespace yinet;

namespace {

constexpr long kHttpOk = 200;
constexpr long kHttpUnauthorized = 401;
constexpr long kHttpProxyUnauthorized = 407;
constexpr long kVerifyName = 2;  // CURLOPT_SSL_VERIFYHOST: the certificate must name the host
// libcurl's own are 16 and 64 KB; larger ones save it calls on fast networks.
constexpr long kReceiveBuffer = 256L * 1024;
constexpr long kUploadBuffer = 1024L * 1024;

constexpr std::size_t kKeptReply = 1000;  // bytes of a server's line that are told

std::size_t discard(char*, std::size_t size, std::size_t count, void*) { return size * count; }

int report_progress(void* context, curl_off_t down_total, curl_off_t down, curl_off_t, curl_off_t up) noexcept {
  const TransferState& state = *static_cast<const TransferState*>(context);
  if (!state.reporting || !state.report) return 0;
  try {
    if (state.upload_size >= 0)
      state.report(up, up > state.upload_size ? -1 : state.upload_size);  // a pipe's is told as 0
    else state.report(down, down_total > 0 ? down_total : -1);
  } catch (...) {
    return 1;
  }
  return 0;
}

// All settings that say which connections are good enough.
std::string tls_policy() {
  std::string policy;
  for (const Setting* setting : {&settings::kTlsVerifyAlways, &settings::kTlsCheckName, &settings::kTlsMinimumVersion,
                                 &settings::kTlsCipherList, &settings::kTransferFtpsTls13})
    policy += setting_text(*setting) + '\n';
  return policy;
}

// A line of an FTP server's dialogue; over SFTP, what libcurl says in its place.
std::size_t take_dialogue(char* bytes, std::size_t size, std::size_t count, void* transfer) noexcept {
  auto& state = *static_cast<TransferState*>(transfer);
  const std::size_t length = size * count;
  try {
    state.reply.assign(bytes, std::min(length, kKeptReply));
  } catch (...) {
    return 0;
  }
  return state.dialogue ? write_to_text(bytes, size, count, state.dialogue) : length;
}

bool is_refusal(std::string_view reply) {  // 4yz and 5yz, RFC 959, 4.2.1
  return reply.starts_with('4') || reply.starts_with('5');
}

// libcurl's own set-up comes first; the host's policy holds for its connections too.
CURLcode prepare_tls(CURL*, void* context, void* transfer) noexcept {
  auto* const tls = static_cast<SSL_CTX*>(context);
  try {
    // Reading the system's certificates takes longer than many a transfer, and each data connection would do it again.
    if (setting_flag(settings::kTlsVerifyAlways)) trust_system(tls);
    if (apply_tls_policy(tls)) return CURLE_OK;
    static_cast<TransferState*>(transfer)->own_reason = formatted(
        "\"$1$\"/\"$2$\" or \"$3$\" asks for what TLS does not have here", settings::kTlsMinimumVersion.section,
        settings::kTlsMinimumVersion.name, settings::kTlsCipherList.name);
    return CURLE_SSL_CIPHER;
  } catch (...) {
    return CURLE_OUT_OF_MEMORY;
  }
}

bool set_for_good(CURL* handle, TransferState& state) {
  return curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L) == CURLE_OK &&
         curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https,ftp,ftps,sftp") == CURLE_OK &&
         curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS_STR, "http,https") == CURLE_OK &&
         curl_easy_setopt(handle, CURLOPT_NOPROXY, "") == CURLE_OK &&  // a proxy that was set holds for every host
         curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, state.error_text.data()) == CURLE_OK &&
         curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, &report_progress) == CURLE_OK &&
         curl_easy_setopt(handle, CURLOPT_XFERINFODATA, &state) == CURLE_OK &&
         curl_easy_setopt(handle, CURLOPT_SSL_CTX_FUNCTION, &prepare_tls) == CURLE_OK &&
         curl_easy_setopt(handle, CURLOPT_SSL_CTX_DATA, &state) == CURLE_OK &&
         curl_easy_setopt(handle, CURLOPT_BUFFERSIZE, kReceiveBuffer) == CURLE_OK &&
         curl_easy_setopt(handle, CURLOPT_UPLOAD_BUFFERSIZE, kUploadBuffer) == CURLE_OK;
}

// Whether a limit was reached before there was a connection, and through a proxy one to the server. No time of connecting is
// told for a connection that is used again, either; but then there is one, and none was made.
bool is_unconnected(CURL* handle) {
  curl_off_t connect_time = 0;
  long made = 0, local_port = 0;
  curl_easy_getinfo(handle, CURLINFO_CONNECT_TIME_T, &connect_time);
  curl_easy_getinfo(handle, CURLINFO_NUM_CONNECTS, &made);
  curl_easy_getinfo(handle, CURLINFO_LOCAL_PORT, &local_port);
  return connect_time == 0 && (made > 0 || local_port == 0);
}

// libcurl has one error for whatever goes wrong over SFTP. Where the server has answered with a status, its words end with
// that of libssh2 for this; and a download that was opened and gave no byte is, on most servers, that of a folder.
bool is_refusal_by_sftp(const TransferState& state, CURL* handle) {
  constexpr std::string_view kStatusFromServer = "/-31)";  // LIBSSH2_ERROR_SFTP_PROTOCOL
  if (std::string_view(state.error_text.data()).ends_with(kStatusFromServer)) return true;
  curl_off_t opened = 0, received = 0;
  curl_easy_getinfo(handle, CURLINFO_PRETRANSFER_TIME_T, &opened);
  curl_easy_getinfo(handle, CURLINFO_SIZE_DOWNLOAD_T, &received);
  return state.reporting && state.upload_size < 0 && opened != 0 && received == 0;
}

TransferFailure failure_of(CURLcode result, const TransferState& state, CURL* handle) {
  switch (result) {
    case CURLE_OK: return TransferFailure::none;
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_CONNECT:
    case CURLE_PROXY:
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CIPHER:
    case CURLE_FAILED_INIT:  // of SSH, which the other side does not speak
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_USE_SSL_FAILED: return TransferFailure::no_connection;
    case CURLE_LOGIN_DENIED: return TransferFailure::login_refused;
    case CURLE_REMOTE_ACCESS_DENIED:
    case CURLE_REMOTE_FILE_NOT_FOUND:
    case CURLE_REMOTE_FILE_EXISTS:
    case CURLE_REMOTE_DISK_FULL:
    case CURLE_QUOTE_ERROR:
    case CURLE_FTP_COULDNT_RETR_FILE:
    case CURLE_UPLOAD_FAILED: return TransferFailure::refused;
    case CURLE_FTP_WEIRD_PASV_REPLY:  // see Perform: it may be the refusal of a transfer
    case CURLE_FTP_WEIRD_227_FORMAT: return is_refusal(state.reply) ? TransferFailure::refused : TransferFailure::other;
    case CURLE_WRITE_ERROR:
    case CURLE_READ_ERROR:
    case CURLE_ABORTED_BY_CALLBACK: return TransferFailure::local_file;
    case CURLE_PARTIAL_FILE:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_HTTP2_STREAM: return TransferFailure::broken_off;
    case CURLE_SSH: return is_refusal_by_sftp(state, handle) ? TransferFailure::refused : TransferFailure::broken_off;
    case CURLE_OPERATION_TIMEDOUT:
      return is_unconnected(handle) ? TransferFailure::no_connection : TransferFailure::broken_off;
    default: return TransferFailure::other;
  }
}

bool is_servers_choice(TransferFailure failure) {
  return failure == TransferFailure::refused || failure == TransferFailure::login_refused ||
         failure == TransferFailure::no_connection;
}

// libcurl answers "pwd" and then looks for "~", which is no name on most servers and may be closed on others.
bool is_only_about_home(CURLcode result) {
  return result == CURLE_OK || result == CURLE_REMOTE_FILE_NOT_FOUND || result == CURLE_REMOTE_ACCESS_DENIED ||
         result == CURLE_SSH;
}

}  // namespace

void CurlEasyCleanup::operator()(void* handle) const noexcept {
  const SigpipeGuard no_sigpipe;  // closing connections writes to them
  curl_easy_cleanup(handle);
}

void YInetFileTransfer::MakeHandle() {
  handle_.reset();
  if (!IsLibcurlInitialized()) return;
  handle_.reset(curl_easy_init());
  state_->connections.reset(curl_multi_init());
  state_->tls_policy = tls_policy();
  if (!handle_ || !set_for_good(handle_.get(), *state_)) {
    handle_.reset();
    RaiseError(message::kTransferHandleFailed, "", "", false);
  }
}

// --- Options --------------------------------------------------------------------------------------------------------------

bool YInetFileTransfer::OptionAccepted(int result) {
  return result == CURLE_OK || (operation_number_ != 0 && RaiseCurlError(operation_number_, result));
}

bool YInetFileTransfer::SetCurlOptInt(int option, long value) {
  return OptionAccepted(curl_easy_setopt(handle_.get(), static_cast<CURLoption>(option), value));
}

bool YInetFileTransfer::SetCurlOptPointer(int option, const void* value) {
  return OptionAccepted(curl_easy_setopt(handle_.get(), static_cast<CURLoption>(option), value));
}

bool YInetFileTransfer::SetCurlOptYString(int option, const YString& text) {
  return SetCurlOptPointer(option, text.IsEmpty() ? nullptr : text_for_wire(text).c_str());
}

bool YInetFileTransfer::ResetCallbacks() {
  return SetCurlOptPointer(CURLOPT_QUOTE, nullptr) && SetCurlOptPointer(CURLOPT_READFUNCTION, nullptr) &&
         SetCurlOptPointer(CURLOPT_READDATA, nullptr) &&
         OptionAccepted(curl_easy_setopt(handle_.get(), CURLOPT_WRITEFUNCTION, &discard)) &&
         SetCurlOptPointer(CURLOPT_WRITEDATA, nullptr) && SetCurlOptPointer(CURLOPT_HEADERFUNCTION, nullptr) &&
         SetCurlOptPointer(CURLOPT_HEADERDATA, nullptr);
}

// Certificates are not verified unless the host wants that for all its clients.
bool YInetFileTransfer::SetCurlSecurity() {
  const bool ftps = protocol_.Equals("ftps");
  const bool verify = setting_flag(settings::kTlsVerifyAlways);
  const long verify_name = verify && setting_flag(settings::kTlsCheckName) ? kVerifyName : 0;
  // With TLS 1.3 this libcurl closes data connections before the server has read all, and loses the session that many
  // servers want to see resumed on the next one: uploads are cut and transfers refused now and then.
  const bool newest =
      !ftps || setting_flag(settings::kTransferFtpsTls13) || setting_text(settings::kTlsMinimumVersion) == "1.3";
  const long versions = newest ? long{CURL_SSLVERSION_DEFAULT} : long{CURL_SSLVERSION_MAX_TLSv1_2};
  // A password that was given is the login: keys of the account that runs the host are not tried then.
  const long ssh_login =
      password_.IsEmpty() ? long{CURLSSH_AUTH_DEFAULT} : long{CURLSSH_AUTH_PASSWORD | CURLSSH_AUTH_KEYBOARD};
  const std::string known_hosts = known_hosts_path();
  const char* const hosts_file = known_hosts.empty() ? nullptr : known_hosts.c_str();
  return SetCurlOptPointer(CURLOPT_SSH_KNOWNHOSTS, hosts_file) && SetCurlOptInt(CURLOPT_SSH_AUTH_TYPES, ssh_login) &&
         SetCurlOptInt(CURLOPT_SSLVERSION, versions) &&
         SetCurlOptInt(CURLOPT_USE_SSL, ftps ? CURLUSESSL_ALL : CURLUSESSL_NONE) &&
         SetCurlOptInt(CURLOPT_SSL_VERIFYHOST, verify_name) && SetCurlOptInt(CURLOPT_SSL_VERIFYPEER, verify ? 1 : 0) &&
         SetCurlOptInt(CURLOPT_PROXY_SSL_VERIFYHOST, verify_name) &&
         SetCurlOptInt(CURLOPT_PROXY_SSL_VERIFYPEER, verify ? 1 : 0);
}

bool YInetFileTransfer::SetCurlLimits() {
  return SetCurlOptInt(CURLOPT_CONNECTTIMEOUT_MS, setting_int(settings::kTransferConnectLimit)) &&
         SetCurlOptInt(CURLOPT_TIMEOUT_MS, setting_int(settings::kTransferTimeLimit)) &&
         SetCurlOptInt(CURLOPT_LOW_SPEED_LIMIT, setting_int(settings::kTransferLowSpeed)) &&
         SetCurlOptInt(CURLOPT_LOW_SPEED_TIME, setting_int(settings::kTransferLowSpeedTime)) &&
         SetCurlOptInt(CURLOPT_MAXREDIRS, setting_int(settings::kTransferRedirects));
}

// --- Preparation ----------------------------------------------------------------------------------------------------------

bool YInetFileTransfer::PrepareServerFunction(int number, const YString& path) {
  struct Number {
    explicit Number(int& place, int value) : place_(place) { place_ = value; }
    ~Number() { place_ = 0; }  // also where memory runs out
    int& place_;
  } const under_way(operation_number_, number);
  const bool needs_entry_directory = entry_directory_.IsEmpty() && protocol_.Find("ftp") >= 0;
  return (!needs_entry_directory || RequestEntryDir(number)) && PrepareServerFunction_Intern(path) &&
         (!IsFtpOrSftp() || CheckRemoteName(number, YString(percent_decoded(path))));
}

bool YInetFileTransfer::PrepareServerFunction_Intern(const YString& path) {
  if (!handle_) return false;
  ClearLastErrorIfInitOk();
  state_->dialogue = nullptr;
  if (state_->tls_policy != tls_policy()) {  // connections and sessions made under another one are not used on
    MakeHandle();
    if (!ApplyLogin()) return false;
  }
  if (!SetCurlProxyUrl() || !CheckProtocol() || !CheckServer(true) || !CheckLoginTexts()) return false;
  // An FTP server behind an HTTP proxy is to be reached through a tunnel: as an HTTP request of the proxy, commands would be
  // dropped, TLS forgotten and error pages taken for files. Only downloads into a file follow redirects, and they switch that
  // on for themselves: it must not stay on for the next operation of the object.
  return SetCurlOptPointer(CURLOPT_URL, GetUrl(path, false).Ptr()) && ResetCallbacks() &&
         SetCurlOptInt(CURLOPT_NOBODY, 0) && SetCurlOptInt(CURLOPT_UPLOAD, 0) &&
         SetCurlOptInt(CURLOPT_FOLLOWLOCATION, 0) && SetCurlOptInt(CURLOPT_PATH_AS_IS, IsFtpOrSftp() ? 1 : 0) &&
         SetCurlOptInt(CURLOPT_HTTPPROXYTUNNEL, IsFtpOrSftp() ? 1 : 0) && SetCurlSecurity() && SetCurlLimits() &&
         SetCurlOptInt(CURLOPT_NOPROGRESS, state_->report ? 0 : 1);
}

bool YInetFileTransfer::RequestEntryDir(int number) {
  entry_directory_.Clear();
  if (!PrepareServerFunction_Intern(IsSftp() ? "~" : "")) return false;
  std::string dialogue;
  TextTarget target{dialogue, settings::kTransferReplySize, state_->own_reason};
  CurlList command;
  if (IsSftp()) {
    command.reset(CreateAndSetHeaderlist("pwd", ""));
    if (!command) return RaiseCurlError(number, CURLE_OUT_OF_MEMORY);
  }
  const bool fresh = !IsSftp() && !state_->entry_directory_asked;
  if (!SetCurlOptInt(CURLOPT_FRESH_CONNECT, fresh ? 1 : 0)) return false;
  state_->dialogue = &target;
  const auto result = static_cast<CURLcode>(Perform());
  state_->dialogue = nullptr;
  ResetCallbacks();
  SetCurlOptInt(CURLOPT_FRESH_CONNECT, 0);
  const YString folder(current_folder_in(dialogue));
  const bool answered = IsSftp() ? !folder.IsEmpty() && is_only_about_home(result) : result == CURLE_OK;
  if (!answered && result != CURLE_OK) return RaiseCurlError(number, result);
  entry_directory_ = folder;
  state_->entry_directory_asked = true;
  return true;
}

// --- One transfer ---------------------------------------------------------------------------------------------------------

// The list belongs to the caller and must live until the transfer is over; null when memory runs out.
curl_slist* YInetFileTransfer::CreateAndSetHeaderlist(const YString& command, const YString& path) {
  YString line = command;
  if (!path.IsEmpty()) {
    const YString absolute = GetAbsolutePath(path);
    line += " ";
    line += IsSftp() ? quoted_for_sftp(absolute) : std::string(absolute);
  }
  curl_slist* const list = curl_slist_append(nullptr, line.Ptr());
  if (list && curl_easy_setopt(handle_.get(), CURLOPT_QUOTE, list) == CURLE_OK) return list;
  curl_slist_free_all(list);
  return nullptr;
}

int YInetFileTransfer::Perform() {
  const SigpipeGuard no_sigpipe;
  state_->error_text.front() = '\0';
  state_->own_reason.clear();
  state_->reply.clear();
  if (IsFtpOrSftp()) {
    curl_easy_setopt(handle_.get(), CURLOPT_HEADERFUNCTION, &take_dialogue);
    curl_easy_setopt(handle_.get(), CURLOPT_HEADERDATA, state_.get());
  }
  const CURLcode result = run_transfer(state_->connections.get(), handle_.get());
  // A server that refuses a transfer under TLS closes the data connection unused. This libcurl then asks for another one
  // before it has read the refusal, takes that for the answer, and would be a reply behind on this connection for ever.
  if (result == CURLE_FTP_WEIRD_PASV_REPLY || result == CURLE_FTP_WEIRD_227_FORMAT)
    state_->connections.reset(curl_multi_init());
  const TransferFailure failure = failure_of(result, *state_, handle_.get());
  // What the server says about a refusal is more than libcurl's words with its number.
  const bool told = is_refusal(state_->reply) && is_servers_choice(failure);
  std::string words = told ? text_from_wire(trimmed(state_->reply)) : std::string(state_->error_text.data());
  if (words.empty() && result == CURLE_SSH && failure == TransferFailure::refused)
    words = "nothing can be read; is it a folder?";
  state_->cause = {failure, 0, YString(words)};
  curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &state_->cause.response);
  return result;
}

bool YInetFileTransfer::CurlPerform(int number) {
  state_->reporting = true;
  const int result = Perform();
  state_->reporting = false;
  ResetCallbacks();
  if (result != CURLE_OK) return RaiseCurlError(number, result);
  if (IsFtpOrSftp() || state_->cause.response == kHttpOk) return true;
  const bool login = state_->cause.response == kHttpUnauthorized || state_->cause.response == kHttpProxyUnauthorized;
  state_->cause.failure = login ? TransferFailure::login_refused : TransferFailure::refused;
  return RaiseError(message::kTransferStatus, YString(state_->cause.response), "", true);
}
