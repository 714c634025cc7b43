#include "yinet/net/tcp_connect.h"

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <utility>

#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/net/bio_chain.h"
#include "yinet/net/readiness.h"
#include "yinet/net/tls_errors.h"

namespace yinet {
namespace {

using std::chrono::milliseconds;

struct AddressesFree {
  void operator()(BIO_ADDRINFO* list) const noexcept { BIO_ADDRINFO_free(list); }
};
using Addresses = std::unique_ptr<BIO_ADDRINFO, AddressesFree>;

struct TextFree {
  void operator()(char* text) const noexcept { OPENSSL_free(text); }
};
using OpensslText = std::unique_ptr<char, TextFree>;

// Null, with the cause in OpenSSL's error queue, when the target has none.
Addresses addresses_of(const std::string& target) {
  char* host = nullptr;
  char* service = nullptr;
  if (BIO_parse_hostserv(target.c_str(), &host, &service, BIO_PARSE_PRIO_HOST) != 1) return nullptr;
  const OpensslText host_owner(host);
  const OpensslText service_owner(service);
  BIO_ADDRINFO* list = nullptr;
  return Addresses(BIO_lookup(host, service, BIO_LOOKUP_CLIENT, AF_UNSPEC, SOCK_STREAM, &list) == 1 ? list : nullptr);
}

// OpenSSL takes the steps and this waits between them. The step after a connect in progress must not be taken before the
// socket is writable: OpenSSL spins until then. Null, with the cause, on failure; without one when the time is over.
ChainHandle connect_to(const BIO_ADDRINFO& address, milliseconds limit, std::string& failure) {
  ChainHandle chain(BIO_new(BIO_s_connect()));
  // The control does not write to the address.
  if (!chain || BIO_set_conn_address(chain.get(), const_cast<BIO_ADDR*>(BIO_ADDRINFO_address(&address))) != 1) {
    failure = take_error_text(0);
    return nullptr;
  }
  BIO_set_nbio(chain.get(), 1);
  const Deadline deadline(limit);
  while (BIO_do_connect(chain.get()) <= 0) {
    if (!BIO_should_retry(chain.get())) {
      failure = take_error_text(0);
      return nullptr;
    }
    if (wait_ready(descriptor_of(chain.get()), POLLOUT, deadline.left()) != Readiness::ready) return nullptr;
  }
  return chain;
}

}  // namespace

TcpConnection connect_in_steps(const std::string& target) {
  const milliseconds limit(setting_number(settings::kConnectLimit));
  const milliseconds address_limit(setting_number(settings::kAddressLimit));
  const Deadline deadline(limit);
  const Addresses addresses = addresses_of(target);
  if (!addresses) return {nullptr, take_error_text(0)};
  int left = 0;
  for (const BIO_ADDRINFO* address = addresses.get(); address; address = BIO_ADDRINFO_next(address)) ++left;
  std::string failure = formatted("no connection within $1$ ms", std::to_string(limit.count()));
  for (const BIO_ADDRINFO* address = addresses.get(); address; address = BIO_ADDRINFO_next(address), --left) {
    const milliseconds share = left == 1 ? deadline.left() : std::min(deadline.left() / left, address_limit);
    if (ChainHandle chain = connect_to(*address, share, failure)) return {std::move(chain), {}};
  }
  return {nullptr, std::move(failure)};
}

}  // namespace yinet
