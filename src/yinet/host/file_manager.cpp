#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <utility>

#include "yinet/host/codepage.h"
#include "yinet/host/file_place.h"
#include "yinet/host/yfile.h"

YFileManager_class YFileManager;

namespace {

using yinet::Descriptor;
using yinet::Place;

struct CloseStream {
  void operator()(DIR* stream) const { closedir(stream); }
};

constexpr std::size_t kAllEntries = static_cast<std::size_t>(-1);

// The entries of an open folder without "." and "..", `limit` of them at most, in the system's order; nothing on failure.
std::optional<std::vector<std::string>> entries(int folder, std::size_t limit = kAllEntries) {
  Descriptor own(openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const std::unique_ptr<DIR, CloseStream> stream(own.is_open() ? fdopendir(own.get()) : nullptr);
  if (stream == nullptr) return std::nullopt;
  static_cast<void>(own.release());
  std::vector<std::string> names;
  errno = 0;
  while (names.size() < limit) {
    errno = 0;
    const dirent* entry = readdir(stream.get());
    if (entry == nullptr) break;
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  if (errno != 0) return std::nullopt;
  return names;
}

// "name\" and "name" are the same folder. It matters: the system follows a link whose name ends with a separator, even
// when told not to.
std::string_view without_end_separators(std::string_view name) {
  const std::size_t prefix = yinet::prefix_length(name);
  while (name.size() > prefix + 1 && yinet::is_separator(name.back())) name.remove_suffix(1);
  return name;
}

std::optional<Place> folder_place(const YString& name, yinet::MissingFolders missing = yinet::MissingFolders::fail) {
  return yinet::find_place(without_end_separators(name), missing);
}

bool is_folder(const Place& place) {
  struct stat facts {};
  return fstatat(place.folder(), place.name(), &facts, place.temporary() ? AT_SYMLINK_NOFOLLOW : 0) == 0 &&
         S_ISDIR(facts.st_mode);
}

Descriptor open_folder(const Place& place, int flags) {
  return Descriptor(openat(place.folder(), place.name(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags));
}

// Deletes everything in a folder. A sub-folder is emptied of its files, and its own sub-folders are moved up to the top
// to be dealt with later: no more than two folders are open at any depth, no path is ever walked twice, and no ".." is
// trusted to lead back.
class Emptying {
 public:
  explicit Emptying(int top) : top_(top) {}

  bool run() {
    const auto names = entries(top_);
    if (!names) return false;
    for (const std::string& name : *names) {
      if (!delete_file_or_empty_folder(top_, name)) folders_.push_back(name);
    }
    while (!folders_.empty()) {
      const std::string name = std::move(folders_.back());
      folders_.pop_back();
      empty_sub_folder(name);
      if (unlinkat(top_, name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT) complete_ = false;
    }
    return complete_;
  }

 private:
  // False for a folder that is not empty; what else can't be deleted counts as left behind.
  bool delete_file_or_empty_folder(int folder, const std::string& name) {
    if (unlinkat(folder, name.c_str(), 0) == 0 || errno == ENOENT) return true;
    if (errno == EISDIR) {
      if (unlinkat(folder, name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT) return true;
      if (errno == ENOTEMPTY || errno == EEXIST) return false;
    }
    complete_ = false;
    return true;
  }

  void empty_sub_folder(const std::string& name) {
    const Descriptor folder(openat(top_, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    const auto names = folder.is_open() ? entries(folder.get()) : std::nullopt;
    if (!names) return;  // its removal will fail
    for (const std::string& entry : *names) {
      if (!delete_file_or_empty_folder(folder.get(), entry)) move_up(folder.get(), entry);
    }
  }

  void move_up(int folder, const std::string& name) {
    // Any name will do. One that is in use belongs to a folder that waits its turn or to what can't be deleted, so the
    // search ends.
    for (;;) {
      std::string moved = ".deleted-" + std::to_string(++moved_);
      if (renameat(folder, name.c_str(), top_, moved.c_str()) == 0) return folders_.push_back(std::move(moved));
      if (errno != ENOTEMPTY && errno != EEXIST && errno != ENOTDIR) break;
    }
    complete_ = false;
  }

  int top_;
  std::vector<std::string> folders_;  // in the top folder, not empty when last seen
  std::size_t moved_ = 0;
  bool complete_ = true;
};

}  // namespace

std::string YFileManager_class::ResolveSystemPath(std::string_view name) const { return yinet::system_path(name); }

YString YFileManager_class::ResolvePath(const YString& name) const {
  const std::string path = ResolveSystemPath(name);
  std::string text;
  text.reserve(path.size());
  for (std::string_view rest = path;;) {
    const std::size_t end = rest.find('/');
    text += yinet::name_from_utf8(rest.substr(0, end));
    if (end == std::string_view::npos) return YString(std::move(text));
    text += '/';
    rest.remove_prefix(end + 1);
  }
}

bool YFileManager_class::FolderExists(const YString& name) const {
  const std::optional<Place> place = folder_place(name);
  return place && is_folder(*place);
}

bool YFileManager_class::CreateFolder(const YString& name) const {
  const std::optional<Place> place = folder_place(name, yinet::MissingFolders::create);
  if (!place) return false;
  constexpr mode_t kPrivate = 0700;
  constexpr mode_t kFollowingTheMask = 0777;
  return mkdirat(place->folder(), place->name(), place->temporary() ? kPrivate : kFollowingTheMask) == 0 ||
         is_folder(*place);
}

bool YFileManager_class::EmptyFolder(const YString& name) const {
  const std::optional<Place> place = folder_place(name);
  if (!place) return false;
  const Descriptor folder = open_folder(*place, O_NOFOLLOW);
  struct stat facts {};
  if (!folder.is_open() || fstat(folder.get(), &facts) != 0) return false;
  if (facts.st_uid != geteuid()) {
    errno = EPERM;
    return false;
  }
  return Emptying(folder.get()).run();
}

std::vector<YString> YFileManager_class::ListFolder(const YString& name, int limit) const {
  std::vector<YString> result;
  const std::optional<Place> place = folder_place(name);
  const Descriptor folder = place ? open_folder(*place, place->temporary() ? O_NOFOLLOW : 0) : Descriptor();
  const std::size_t most = limit < 0 ? kAllEntries : static_cast<std::size_t>(limit);
  const auto names = folder.is_open() ? entries(folder.get(), most) : std::nullopt;
  if (!names) return result;
  result.reserve(names->size());
  for (const std::string& entry : *names) result.emplace_back(yinet::name_from_utf8(entry));
  return result;
}
