// Paths for URLs and for SFTP commands, server addresses, and dialogues with a start folder.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "yinet/filetransfer/transfer_formats.h"
#include "yinet/host/text.h"

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

// What libcurl makes of an argument in quotes.
std::string unquoted(std::string_view text) {
  std::string plain;
  for (std::size_t i = 1; i + 1 < text.size(); ++i) {
    require(text[i] != '"');
    if (text[i] == '\\') ++i;
    plain += text[i];
  }
  return plain;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  for (const auto form : {yinet::PathForm::http, yinet::PathForm::name, yinet::PathForm::literal}) {
    const std::string encoded = yinet::encoded_path(input, form);
    for (const char c : encoded) require(c > ' ' && c < '\x7F');
    require(yinet::percent_decoded(encoded) ==
            (form == yinet::PathForm::literal ? input : yinet::percent_decoded(input)));
  }
  require(unquoted(yinet::quoted_for_sftp(input)) == input);
  require(input.find(yinet::current_folder_in(input)) != std::string::npos);
  if (const auto port = yinet::port_text(input)) require(input.ends_with(*port));
  require(yinet::leaves_host_part(input) || yinet::without_login(input) == input);
  return 0;
}
