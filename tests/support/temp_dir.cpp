#include "support/temp_dir.h"

#include <stdlib.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <system_error>

namespace yinet::test {
namespace fs = std::filesystem;

namespace {

std::system_error file_error(const char* what, const fs::path& file) {
  return {errno, std::generic_category(), what + (" " + file.string())};
}

}  // namespace

TempDir::TempDir(std::string_view name) {
  std::string pattern = (fs::temp_directory_path() / ("yinet-" + std::string(name) + "-XXXXXX")).string();
  if (::mkdtemp(pattern.data()) == nullptr) throw file_error("cannot make", pattern);
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code error;  // remove_all() stops at the first folder without write permission
  for (const auto& entry : fs::recursive_directory_iterator(path_, error))
    if (entry.is_directory(error) && !entry.is_symlink(error))
      fs::permissions(entry.path(), fs::perms::owner_all, fs::perm_options::add, error);
  fs::remove_all(path_, error);
}

fs::path TempDir::write(std::string_view name, std::string_view content) const {
  fs::create_directories((path_ / name).parent_path());
  write_file(path_ / name, content);
  return path_ / name;
}

fs::path TempDir::make_folder(std::string_view name) const {
  fs::create_directories(path_ / name);
  return path_ / name;
}

void TempDir::open_to_everybody() const { fs::permissions(path_, fs::perms(0755)); }

std::string read_file(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  if (!stream) throw file_error("cannot open", file);
  std::ostringstream content;
  content << stream.rdbuf();
  return std::move(content).str();
}

void write_file(const fs::path& file, std::string_view content) {
  std::ofstream stream(file, std::ios::binary | std::ios::trunc);
  stream << content << std::flush;
  if (!stream) throw file_error("cannot write", file);
}

}  // namespace yinet::test
