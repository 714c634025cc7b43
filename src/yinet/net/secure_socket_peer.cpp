// What a connection knows of its peer.

#include <netdb.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

#include <array>
#include <string>
#include <string_view>

#include "yinet/host/contained.h"
#include "yinet/host/text.h"
#include "yinet/net/bio_chain.h"
#include "yinet/net/host_address.h"
#include "yinet/net/partner_info.h"
#include "yinet/net/secure_socket.h"

using namespace yinet;

namespace {

struct NumericAddress {
  std::string host;
  std::string port;
};

// Sockets for both families write IPv4 addresses as "::ffff:192.0.2.1".
std::string_view without_mapping(std::string_view address) {
  constexpr std::string_view kMapped = "::ffff:";
  if (!address.starts_with(kMapped)) return address;
  const std::string_view dotted = address.substr(kMapped.size());
  return is_ipv4_address(dotted) ? dotted : address;
}

NumericAddress peer_of(int descriptor) {
  sockaddr_storage address{};
  socklen_t length = sizeof(address);
  std::array<char, NI_MAXHOST> host{};
  std::array<char, NI_MAXSERV> port{};
  if (descriptor < 0 || getpeername(descriptor, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
      getnameinfo(reinterpret_cast<const sockaddr*>(&address), length, host.data(), host.size(), port.data(),
                  port.size(), NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
    return {};
  }
  return {std::string(without_mapping(host.data())), port.data()};
}

}  // namespace

YObject SecureSocket::GetPartnerInfo(bool fresh) {
  return contained(YObject(), [&] {
    if (!fresh && !info.IsEmpty()) return info;
    info.Clear();
    const NumericAddress peer = peer_of(descriptor_of(bio));
    if (peer.host.empty()) return info;
    info.StoreText(partner::kAddress, peer.host);
    info.Store<std::int32_t>(partner::kPort, leading_int32(peer.port));
    SSL* const session = session_of(bio);
    if (session != nullptr && SSL_is_init_finished(session) != 0) {
      info.StoreText(partner::kProtocol, SSL_get_version(session));
      info.StoreText(partner::kCipher, SSL_get_cipher_name(session));
    }
    return info;
  });
}

YString SecureSocket::PartnerAddress() {
  if (!info.Exist(partner::kAddress)) GetPartnerInfo(true);
  return info.GetString(partner::kAddress);
}
