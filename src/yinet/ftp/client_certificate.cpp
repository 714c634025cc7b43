#include "yinet/ftp/client_certificate.h"

#include <openssl/err.h>

#include "yinet/host/message_numbers.h"
#include "yinet/host/yfile.h"
#include "yinet/host/ylog.h"
#include "yinet/host/ytextmanager.h"
#include "yinet/net/tls_context.h"
#include "yinet/net/tls_errors.h"

namespace yinet {
namespace {

// OpenSSL's own callback would ask on the terminal.
int no_password(char*, int, int, void*) { return 0; }

}  // namespace

void use_client_certificates(SSL_CTX* context, const YString& items) {
  SSL_CTX_set_default_passwd_cb(context, no_password);
  for (const std::string_view item : items.Items()) {
    if (item.empty() || !YFile::Exist(YString(item))) continue;
    ERR_clear_error();
    if (use_certificate(context, item, {})) continue;
    YLog.EventEx(message::kErrorLevel, message::kFtpClientCertificateFailed,
                 YTextManager.GetYText(message::kFtpClientCertificateFailed, item), take_tls_error());
  }
}

}  // namespace yinet
