#include "yinet/net/port_owner.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string_view>
#include <system_error>

#include "yinet/host/text.h"

namespace yinet {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kListening = "0A";
constexpr std::string_view kNoInode = "0";  // the system's own: a connection that waits for its time to pass

// The links that descriptors of a socket on this port have in /proc: those that listen, all others where none does.
std::set<std::string> sockets_on(unsigned int port) {
  std::set<std::string> listening;
  std::set<std::string> others;
  for (const char* const table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
    std::ifstream lines(table);
    for (std::string line; std::getline(lines, line);) {
      // Number, local address, remote address, state, queues, timer, retransmits, user, timeout, inode.
      std::array<std::string, 10> columns;
      std::istringstream text(line);
      for (std::string& column : columns) text >> column;
      const std::string_view local = columns[1];
      const std::string_view digits = local.substr(std::min(local.rfind(':'), local.size() - 1) + 1);
      unsigned int local_port = 0;
      const auto end = std::from_chars(digits.data(), digits.data() + digits.size(), local_port, 16);
      if (end.ec != std::errc() || local_port != port || columns[9] == kNoInode) continue;
      (columns[3] == kListening ? listening : others).insert("socket:[" + columns[9] + "]");
    }
  }
  return listening.empty() ? others : listening;
}

// Processes come and go while they are looked at: an error is the end of a list.
bool holds_one_of(const fs::path& descriptors, const std::set<std::string>& sockets) {
  std::error_code error;
  for (fs::directory_iterator entry(descriptors, error), end; !error && entry != end; entry.increment(error)) {
    std::error_code gone;
    if (sockets.contains(fs::read_symlink(entry->path(), gone).string())) return true;
  }
  return false;
}

}  // namespace

std::string executable_holding_port(unsigned int port) {
  const std::set<std::string> sockets = sockets_on(port);
  if (sockets.empty()) return {};
  std::error_code error;
  for (fs::directory_iterator process("/proc", error), end; !error && process != end; process.increment(error)) {
    if (!is_digit(process->path().filename().native().front())) continue;
    if (!holds_one_of(process->path() / "fd", sockets)) continue;
    std::error_code hidden;
    return fs::read_symlink(process->path() / "exe", hidden).string();
  }
  return {};
}

}  // namespace yinet
