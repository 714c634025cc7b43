#include "yinet/host/temporary_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <optional>
#include <system_error>
#include <utility>

#include "yinet/host/file_place.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/yfile.h"
#include "yinet/host/ylog.h"

namespace yinet {
namespace {

constexpr mode_t kPrivate = 0700;
constexpr mode_t kPermissions = 0777;

struct State {
  std::mutex mutex;
  std::string chosen;  // set by the host, empty for the default
  std::string base;    // what `path` was made for
  uid_t user = 0;
  std::string path;
};

// Never destroyed: files may be used while the process ends.
State& state() {
  static auto* const instance = new State;
  return *instance;
}

struct Failure {
  std::string path;
  int error = 0;
};

Descriptor open_folder(const std::string& path, int flags = 0) {
  return Descriptor(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC | flags));
}

// Opens a folder that is the caller's own and closed to everybody else. The checks look at the opened folder, not at
// its name: in a base that others can write to, the name may lead elsewhere a moment later.
Descriptor open_private(const std::string& path) {
  Descriptor folder = open_folder(path, O_NOFOLLOW);
  struct stat facts {};
  if (!folder.is_open() || fstat(folder.get(), &facts) != 0) return {};
  if (facts.st_uid != geteuid() || (facts.st_mode & kPermissions) != kPrivate) {
    errno = EPERM;
    return {};
  }
  return folder;
}

Descriptor make_private(const std::string& path) {
  if (mkdir(path.c_str(), kPrivate) != 0 && errno != EEXIST) return {};
  return open_private(path);
}

void remove_end_separators(std::string& path) {
  while (!path.empty() && path.back() == '/') path.pop_back();
}

// The folder above the private one, without a separator at its end. Nothing when the setting names no place, which was
// logged.
std::optional<std::string> base_folder() {
  std::string path = "/tmp";
  const std::string setting = setting_text(settings::kTemporaryFolder);
  const char* environment = secure_getenv("TMPDIR");
  if (!setting.empty() && !is_temporary_name(setting)) {  // "TEMP:" would lead back here
    path = system_path(setting);
    if (path.empty()) return std::nullopt;
  } else if (environment != nullptr && *environment == '/') {
    path = environment;
  }
  remove_end_separators(path);
  return path;
}

// The folder that the host chose. Its owner and mode are the host's business.
Descriptor chosen_folder(const std::string& path) {
  Descriptor folder = open_folder(path);
  if (!folder.is_open() && errno == ENOENT && mkdir(path.c_str(), kPrivate) == 0) folder = open_folder(path);
  return folder;
}

// The private folder in `base`. When something else bears its name, `refused` says so, and a folder with a name that
// nobody can foresee serves this process.
Descriptor private_folder(State& known, const std::string& base, Failure& refused) {
  const uid_t user = geteuid();
  if (known.base == base && known.user == user && !known.path.empty()) {
    Descriptor folder = open_private(known.path);
    if (folder.is_open()) return folder;
  }
  std::string path = base + "/yinet-" + std::to_string(user);
  Descriptor folder = make_private(path);
  if (!folder.is_open()) {
    refused = {path, errno};
    path += "-XXXXXX";
    if (mkdtemp(path.data()) != nullptr) folder = open_private(path);
  }
  if (folder.is_open()) {
    known.base = base;
    known.user = user;
    known.path = std::move(path);
  }
  return folder;
}

}  // namespace

TemporaryFolder temporary_folder() {
  const std::optional<std::string> base = base_folder();  // a plugged settings source may use files: not under the lock
  TemporaryFolder result;
  Failure failure;
  {
    State& known = state();
    const std::lock_guard guard(known.mutex);
    if (!known.chosen.empty()) {
      result.descriptor = chosen_folder(known.chosen);
      failure = {known.chosen, result.descriptor.is_open() ? 0 : errno};
      result.path = known.chosen;
    } else if (base) {
      result.descriptor = private_folder(known, *base, failure);
      result.path = known.path;
    }
  }
  if (!result.descriptor.is_open()) result.path.clear();
  if (failure.error != 0) {
    YLog.Event(message::kErrorLevel, message::kTemporaryFolderUnusable, failure.path, std::strerror(failure.error),
               result.path);
    errno = failure.error;
  }
  return result;
}

std::string known_temporary_folder() {
  State& known = state();
  const std::lock_guard guard(known.mutex);
  return known.chosen.empty() ? known.path : known.chosen;
}

void set_temporary_folder(std::string_view folder) {
  std::string path(folder);
  if (!path.empty()) {
    if (path.front() != '/') {
      std::error_code error;  // without a current folder no relative path leads anywhere
      path = std::filesystem::current_path(error).string() + "/" + path;
    }
    remove_end_separators(path);
    if (path.empty()) path = "/";
  }
  State& known = state();
  const std::lock_guard guard(known.mutex);
  known.chosen = std::move(path);
}

}  // namespace yinet
