// Replies of FTP servers in pieces. The first byte chooses the size of the pieces.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "yinet/ftp/ftp_reply.h"

namespace {

using yinet::FtpReplyReader;

void require(bool condition) {
  if (!condition) std::abort();
}

std::vector<std::string> replies(std::string_view wire, std::size_t piece, bool exact, std::string& all) {
  FtpReplyReader reader(exact);
  std::vector<std::string> taken;
  while (!wire.empty()) {
    reader.feed(wire.substr(0, piece));
    wire.remove_prefix(std::min(piece, wire.size()));
    while (reader.state() == FtpReplyReader::State::whole) {
      taken.push_back(reader.take());
      require(!taken.back().empty() && taken.back().back() == '\n');
      all += taken.back();
    }
  }
  all += reader.take();
  require(reader.kept() == 0);
  return taken;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view wire(reinterpret_cast<const char*>(data) + 1, size - 1);
  const std::size_t piece = data[0] % 16 + 1U;
  std::string all;
  replies(wire, piece, false, all);
  require(all == wire);  // nothing is lost or doubled
  std::string pieces, whole;
  const auto in_pieces = replies(wire, piece, true, pieces);
  require(in_pieces == replies(wire, wire.size() + 1, true, whole));
  require(pieces == wire && whole == wire);
  return 0;
}
