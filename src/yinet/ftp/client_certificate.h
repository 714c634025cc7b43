#pragma once

#include <openssl/ssl.h>

#include "yinet/host/ystring.h"

namespace yinet {

// Makes items of the list that are PEM files with certificate and key the client certificate of the context; the last one
// holds. Items that are no files are passed over. A file that cannot be used is reported. Never asks for a password.
void use_client_certificates(SSL_CTX* context, const YString& items);

}  // namespace yinet
