// Private folders and whole-file helpers. Failures throw std::system_error.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace yinet::test {

// A new folder of mode 0700 below $TMPDIR. The destructor removes it with all its content, read-only sub-folders included.
class TempDir {
 public:
  explicit TempDir(std::string_view name = "test");
  TempDir& operator=(TempDir&&) = delete;  // nor copies
  ~TempDir();

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  [[nodiscard]] std::filesystem::path operator/(std::string_view name) const { return path_ / name; }

  // Both make missing folders on the way and return the full path.
  std::filesystem::path write(std::string_view name, std::string_view content) const;
  std::filesystem::path make_folder(std::string_view name) const;
  void open_to_everybody() const;  // for daemons that drop root for another user

 private:
  std::filesystem::path path_;
};

std::string read_file(const std::filesystem::path& file);
void write_file(const std::filesystem::path& file, std::string_view content);

}  // namespace yinet::test
