#include "support/served_folder.h"

#include <unistd.h>

#include <stdexcept>
#include <system_error>

#include "support/child_process.h"

namespace yinet::test {
namespace fs = std::filesystem;

namespace {
constexpr unsigned kNobody = 65534;
}

unsigned ServedFolder::session_user() { return ::geteuid() == 0 ? kNobody : ::geteuid(); }
unsigned ServedFolder::session_group() { return ::geteuid() == 0 ? kNobody : ::getegid(); }

ServedFolder::ServedFolder(std::string_view name) : folder_(name) {
  folder_.open_to_everybody();
  files_ = folder_.make_folder("files");
  give_to_server(files_);
}

void ServedFolder::add(std::string_view name, std::string_view content) const {
  write_file(files_ / name, content);
  give_to_server(files_ / name);
}

void ServedFolder::make_folder(std::string_view name) const {
  fs::create_directories(files_ / name);
  give_to_server(files_ / name);
}

void ServedFolder::give_to_server(const fs::path& path) const {
  if (::geteuid() == 0 && ::chown(path.c_str(), kNobody, kNobody) != 0)
    throw std::system_error(errno, std::generic_category(), path.string());
}

std::string password_hash(const std::string& password) {
  const CommandResult result = run_command({"openssl", "passwd", "-6", password});
  if (result.exit_code != 0) throw std::runtime_error("openssl passwd: " + result.errors);
  return result.output.substr(0, result.output.find('\n'));
}

}  // namespace yinet::test
