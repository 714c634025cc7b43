#include "yinet/filetransfer/transfer_url.h"

#include "yinet/host/text.h"

namespace yinet {

std::optional<TransferUrl> parse_transfer_url(std::string_view text) {
  constexpr std::string_view kBehindScheme = "://";
  const std::size_t scheme_end = text.find(kBehindScheme);
  if (scheme_end == std::string_view::npos || scheme_end == 0) return std::nullopt;
  TransferUrl url;
  url.scheme = to_lower(text.substr(0, scheme_end));
  text.remove_prefix(scheme_end + kBehindScheme.size());
  const std::size_t slash = text.find('/');
  std::string_view server = text.substr(0, slash);
  if (slash != std::string_view::npos) url.raw_path = text.substr(slash + 1);
  url.path = percent_decoded(url.raw_path);
  if (const std::size_t at = server.rfind('@'); at != std::string_view::npos) {
    const std::string_view account = server.substr(0, at);
    const std::size_t colon = account.find(':');
    url.user = percent_decoded(account.substr(0, colon));
    url.has_password = colon != std::string_view::npos;
    if (url.has_password) url.password = percent_decoded(account.substr(colon + 1));
    server.remove_prefix(at + 1);
  }
  url.host = server;
  if (url.host.empty() || url.host.front() == ':') return std::nullopt;
  return url;
}

}  // namespace yinet
