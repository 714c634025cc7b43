// Data connections: where the server wants them, and how they are made.

#include <openssl/ssl.h>

#include <string>

#include "yinet/ftp/ftp_answers.h"
#include "yinet/ftp/ftp_codes.h"
#include "yinet/ftp/ftps.h"
#include "yinet/ftp/ftps_state.h"
#include "yinet/host/contained.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/host/ylog.h"
#include "yinet/net/partner_info.h"

using namespace yinet;
using namespace yinet::ftp;

namespace {

bool is_socks(int proxy_type) { return proxy_type == kSocks4Proxy || proxy_type == kSocks5Proxy; }

}  // namespace

YString ftps::str2_to_adrstr(const YString& answer) { return YString(passive_address_numbers(answer)); }
YString ftps::str2_to_adr(const YString& answer) { return YString(passive_address(answer)); }
int ftps::str2_to_port(const YString& answer) { return passive_port(answer); }
YString ftps::str2_to_portstr(const YString& answer) { return YString(passive_port_text(answer)); }

int ftps::open_data_channel(SecureSocket* data, int flags) {
  return contained(kFailed, [&] {
    if (data == nullptr) return kFailed;
    data->SetDataChannel(true);
    if (flags == 0) return kDone;
    const bool go_on = (flags & kForce) != 0;
    const bool known = data_port_ != 0 && (flags & kReuseAddress) != 0;
    if (!known && !ask_for_data_address()) {
      YLog.DebugEvent(kTraceChannel, message::kFtpDataFailed, data_address_, std::to_string(data_port_));
      return go_on ? kDone : kFailed;
    }
    data->read_ahead(true);
    YLog.DebugStart(kTraceChannel, message::kFtpDataConnecting, data_address_, std::to_string(data_port_));
    const int result = is_socks(proxy_type_) ? connect_data_through_socks(*data, flags) : connect_data(*data, flags);
    if (result != kDone) return result;
    YLog.DebugEnd(kTraceChannel, message::kFtpDataConnected, data_address_, std::to_string(data_port_));
    return kDone;
  });
}

// Asks for a passive data connection and keeps its address and port. False, with nothing kept, when the answer has none
// that can be used; the answer stays the last message.
bool ftps::ask_for_data_address() {
  const YString peer = GetPartnerInfo(false).GetString(partner::kAddress);
  const bool ipv6 = !is_socks(proxy_type_) && peer.Find(":") >= 0;
  // After a reply that did not come the last message is that of another command.
  const bool answered = send_command(ipv6 ? "EPSV" : "PASV", kReadReply) != kTimeOver;
  const YString answer = answered ? get_last_mes(0) : YString();
  data_port_ = 0;
  data_address_.Clear();
  const auto found = ipv6 ? usable_extended_address(answer) : usable_passive_address(answer);
  if (!found) {
    YLog.Event(message::kErrorLevel, message::kFtpPassiveAnswerUnusable, host_, answer);
    return false;
  }
  data_port_ = found->port;
  data_address_ = found->host;
  if (ipv6 || setting_flag(settings::kFtpControlAddress)) {
    data_address_ = is_socks(proxy_type_) ? socksTargetAddress : peer;
  }
  return true;
}

int ftps::connect_data(SecureSocket& data, int flags) {
  if (ftp_type_ == kTlsType && (flags & kWithoutTls) == 0) {
    data.resume_session_of(*this);
    data.InitSSLClientContext("", false, true);
  }
  if (data.Connect(data_address_, static_cast<unsigned int>(data_port_), false) != kFailed) return kDone;
  YLog.DebugEnd(kTraceChannel, message::kFtpDataFailed, data_address_, std::to_string(data_port_));
  return (flags & kForce) != 0 ? kDone : kFailed;
}

int ftps::connect_data_through_socks(SecureSocket& data, int flags) {
  const std::string proxy = formatted("$1$:$2$", proxy_host_, std::to_string(proxy_port_));
  const bool go_on = (flags & kForce) != 0;  // with TLS only as far as STARTTLS, which fails without a tunnel
  YLog.DebugEvent(kTraceChannel, message::kFtpProxyConnecting, proxy);
  const int connected = data.Connect(data_address_, static_cast<unsigned int>(data_port_), proxy_host_,
                                     static_cast<unsigned int>(proxy_port_), false, proxy_user_, proxy_password_);
  if (connected == kFailed) {
    YLog.DebugEvent(kTraceChannel, message::kFtpProxyFailed, proxy, data_address_);
    YLog.DebugEnd(kTraceChannel, message::kFtpDataFailed, data_address_, std::to_string(data_port_));
    if (!go_on) return kFailed;
  }
  YLog.DebugEvent(kTraceChannel, message::kFtpProxyStep, proxy, std::to_string(connected));
  const int tunnel = data.SocksConnect(static_cast<unsigned int>(proxy_type_));
  if (tunnel != kDone) {
    YLog.DebugEvent(kTraceChannel, message::kFtpSocksStep, proxy, std::to_string(tunnel));
    data.Close();  // what goes through it would be the proxy's, not the server's
    if (!go_on) return kFailed;
  }
  if (ftp_type_ == kTlsType) {
    data.resume_session_of(*this);
    if (data.STARTTLS("", false, true, nullptr) == kFailed) return kFailed;
  }
  YLog.DebugEvent(kTraceChannel, message::kFtpSocksStep, proxy, std::to_string(tunnel));
  return kDone;
}
