#include "support/temp_dir.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <fstream>
#include <system_error>

#include "support/file_descriptor.h"

namespace yinet::test {
namespace fs = std::filesystem;

namespace {

// remove_all() stops at the first folder without write permission (only root can pass it).
void make_removable(const fs::path& folder) {
  std::error_code ignored;
  for (const auto& entry : fs::recursive_directory_iterator(folder, ignored)) {
    if (entry.is_directory(ignored) && !entry.is_symlink(ignored))
      fs::permissions(entry.path(), fs::perms::owner_all, fs::perm_options::add, ignored);
  }
}

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
  std::error_code error;
  fs::remove_all(path_, error);
  if (!error) return;
  make_removable(path_);
  fs::remove_all(path_, error);
}

fs::path TempDir::write(std::string_view name, std::string_view content) const {
  fs::path file = path_ / name;
  fs::create_directories(file.parent_path());
  write_file(file, content);
  return file;
}

fs::path TempDir::make_folder(std::string_view name) const {
  fs::path folder = path_ / name;
  fs::create_directories(folder);
  return folder;
}

void TempDir::open_to_everybody() const {
  using fs::perms;
  fs::permissions(path_, perms::group_read | perms::group_exec | perms::others_read | perms::others_exec,
                  fs::perm_options::add);
}

std::string read_file(const fs::path& file) {
  const FileDescriptor opened(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (!opened.valid()) throw file_error("cannot open", file);
  std::string content;
  std::error_code unknown;  // the files below /proc have no size
  const std::uintmax_t size = fs::file_size(file, unknown);
  if (!unknown) content.reserve(size);
  std::array<char, 64 * 1024> buffer;
  for (;;) {
    const ssize_t count = ::read(opened.get(), buffer.data(), buffer.size());
    if (count < 0) throw file_error("cannot read", file);
    if (count == 0) return content;
    content.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

void write_file(const fs::path& file, std::string_view content) {
  std::ofstream stream(file, std::ios::binary | std::ios::trunc);
  if (!stream) throw file_error("cannot create", file);
  stream.write(content.data(), static_cast<std::streamsize>(content.size()));
  stream.close();
  if (!stream) throw file_error("cannot write", file);
}

}  // namespace yinet::test
