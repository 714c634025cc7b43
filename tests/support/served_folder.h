// The files that a test's server shows.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "support/temp_dir.h"

namespace yinet::test {

// A private folder of a server, and the folder of its account in it, empty at first. As root, what is put there belongs to
// nobody, the account that servers of tests work as.
class ServedFolder {
 public:
  explicit ServedFolder(std::string_view name);

  // The account's folder on disk.
  [[nodiscard]] const std::filesystem::path& folder() const { return files_; }
  void add(std::string_view name, std::string_view content) const;
  void make_folder(std::string_view name) const;
  [[nodiscard]] bool has(std::string_view name) const { return std::filesystem::exists(files_ / name); }
  [[nodiscard]] std::string content(std::string_view name) const { return read_file(files_ / name); }

  static unsigned session_user();
  static unsigned session_group();

 protected:
  TempDir folder_;

 private:
  void give_to_server(const std::filesystem::path& path) const;
  std::filesystem::path files_;
};

// As account files have it.
std::string password_hash(const std::string& password);

}  // namespace yinet::test
