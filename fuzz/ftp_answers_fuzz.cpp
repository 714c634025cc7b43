// Single answers of FTP servers, server names as users write them, and addresses of SOCKS replies.

#include <arpa/inet.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "yinet/ftp/ftp_answers.h"
#include "yinet/host/wire_text.h"
#include "yinet/net/socks_messages.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

bool is_port(int port) { return port > 0 && port <= 65535; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  require(yinet::passive_address(text).size() == yinet::passive_address_numbers(text).size());
  require(yinet::passive_port(text) >= 0);
  require(yinet::passive_port_text(text).size() <= text.size());
  if (const auto found = yinet::usable_passive_address(text)) {
    in_addr address{};
    require(is_port(found->port) && inet_pton(AF_INET, found->host.c_str(), &address) == 1);
  }
  if (const auto found = yinet::usable_extended_address(text)) require(is_port(found->port) && found->host.empty());
  require(yinet::size_in_answer(text, 4) >= -1);
  const auto server = yinet::split_host_and_port(text);
  require(server.host.size() <= text.size());
  require(yinet::text_for_wire(yinet::text_from_wire(text)).size() <= 3 * text.size());

  if (const auto target = yinet::socks_target(text)) {
    const std::string request = yinet::socks5_connect(*target, 80);
    require(request.size() == 10 && yinet::socks4_connect(*target, 80).size() == 9);
    require(std::string_view(request).substr(4, 4) ==
            std::string_view(reinterpret_cast<const char*>(target->data()), 4));
  }
  require(yinet::socks5_credentials(text, text).size() == 3 + 2 * text.size());
  if (size > 0) {
    const auto rest = yinet::socks5_address_rest(data[0]);
    require(!rest || rest->length_byte || rest->fixed == 6 || rest->fixed == 18);
  }
  return 0;
}
