#include "yinet/host/yfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "yinet/host/file_place.h"
#include "yinet/host/huge_pages.h"

namespace {

using yinet::Place;

constexpr mode_t kPrivateFile = 0600;
constexpr mode_t kFollowingTheMask = 0666;
constexpr std::size_t kCopyPiece = std::size_t{256} * 1024;
constexpr std::size_t kReadAhead = std::size_t{64} * 1024;  // read of a file at a time

// Flags for the system, or nothing for values that don't make sense together.
std::optional<int> open_flags(int creation, std::uint32_t access, bool temporary) {
  const bool read = (access & yinet::kAccessRead) != 0;
  const bool write = (access & yinet::kAccessWrite) != 0;
  if (!read && !write) return std::nullopt;
  int flags = write ? (read ? O_RDWR : O_WRONLY) : O_RDONLY;
  switch (creation) {
    case yinet::kCreateNew: flags |= O_CREAT | O_EXCL; break;
    case yinet::kCreateAlways:
      flags = O_CREAT | (read ? O_RDWR : O_WRONLY);
      break;  // emptying needs the right to write
    case yinet::kOpenExisting: break;
    case yinet::kOpenAlways: flags |= O_CREAT; break;
    case yinet::kTruncateExisting:
      if (!write) return std::nullopt;
      break;
    default: return std::nullopt;
  }
  flags |= O_CLOEXEC | O_NOCTTY;
  // Should a pipe wait there under the file's name, opening it must not hang; for files the flag means nothing.
  if (temporary) flags |= O_NOFOLLOW | O_NONBLOCK;
  return flags;
}

// Opens or creates the file; closed, with errno, on failure. What is no file of its own kind is refused before anything
// in it is changed.
yinet::Descriptor open_file(const Place& place, int creation, std::uint32_t access, mode_t mode) {
  const std::optional<int> flags = open_flags(creation, access, place.temporary());
  if (!flags) {
    errno = EINVAL;
    return {};
  }
  yinet::Descriptor file;
  do {
    file.reset(openat(place.folder(), place.name(), *flags, mode));
  } while (!file.is_open() && errno == EINTR);
  struct stat facts {};
  if (!file.is_open() || fstat(file.get(), &facts) != 0) return {};
  if (S_ISDIR(facts.st_mode) || (place.temporary() && !S_ISREG(facts.st_mode))) {
    errno = S_ISDIR(facts.st_mode) ? EISDIR : EACCES;
    return {};
  }
  const bool empty = creation == yinet::kCreateAlways || creation == yinet::kTruncateExisting;
  if (empty && S_ISREG(facts.st_mode) && facts.st_size > 0 && ftruncate(file.get(), 0) != 0) return {};
  return file;
}

yinet::Descriptor open_file(const Place& place, int creation, std::uint32_t access) {
  return open_file(place, creation, access, place.temporary() ? kPrivateFile : kFollowingTheMask);
}

// Bytes read, fewer than asked for only at the end; -1, with errno, on failure.
ssize_t read_fully(int file, char* target, std::size_t count) {
  std::size_t done = 0;
  while (done < count) {
    const ssize_t step = read(file, target + done, count - done);
    if (step == 0) break;
    if (step < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    done += static_cast<std::size_t>(step);
  }
  return static_cast<ssize_t>(done);
}

bool write_fully(int file, const char* bytes, std::size_t count) {
  while (count > 0) {
    const ssize_t step = write(file, bytes, count);
    if (step < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    bytes += step;
    count -= static_cast<std::size_t>(step);
  }
  return true;
}

// After EINTR the descriptor is closed all the same, and closing it again might hit somebody else's.
bool close_file(int file) { return close(file) == 0 || errno == EINTR; }

bool facts_of(const Place& place, struct stat& facts) {
  return fstatat(place.folder(), place.name(), &facts, place.temporary() ? AT_SYMLINK_NOFOLLOW : 0) == 0;
}

bool same_file(const struct stat& a, const struct stat& b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

bool copy_content(int from, int to) {
  std::vector<char> piece(kCopyPiece);
  for (;;) {
    const ssize_t count = read_fully(from, piece.data(), piece.size());
    if (count <= 0) return count == 0;
    if (!write_fully(to, piece.data(), static_cast<std::size_t>(count))) return false;
  }
}

// Where the last component of a name begins.
std::size_t name_start(std::string_view path) {
  const std::size_t separator = path.find_last_of("/\\");
  return separator == std::string_view::npos ? yinet::prefix_length(path) : separator + 1;
}

// Where its extension begins, the end of the text when there is none.
std::size_t extension_start(std::string_view path) {
  const std::size_t dot = path.rfind('.');
  return dot == std::string_view::npos || dot < name_start(path) ? path.size() : dot;
}

}  // namespace

YFile::YFile(YFile&& other) noexcept
    : name_(std::move(other.name_)),
      descriptor_(std::exchange(other.descriptor_, -1)),
      last_error_(std::exchange(other.last_error_, 0)) {}

YFile& YFile::operator=(YFile&& other) noexcept {
  if (this != &other) {
    Close();
    name_ = std::move(other.name_);
    descriptor_ = std::exchange(other.descriptor_, -1);
    last_error_ = std::exchange(other.last_error_, 0);
  }
  return *this;
}

YFile::~YFile() { Close(); }

bool YFile::failed() {
  last_error_ = errno;
  return false;
}

bool YFile::Open(int creation, std::uint32_t access, std::uint32_t /*share*/, std::uint32_t /*attributes*/) {
  Close();
  last_error_ = 0;
  const std::optional<Place> place = yinet::find_place(name_);
  if (!place) return failed();
  yinet::Descriptor file = open_file(*place, creation, access);
  if (!file.is_open()) return failed();
  descriptor_ = file.release();
  return true;
}

long YFile::Read(void* target, long count) {
  if (count < 0) {
    last_error_ = EINVAL;
    return -1;
  }
  const ssize_t done = read_fully(descriptor_, static_cast<char*>(target), static_cast<std::size_t>(count));
  if (done < 0) failed();
  return done;
}

bool YFile::Write(const void* bytes, long count) {
  if (count < 0) {
    last_error_ = EINVAL;
    return false;
  }
  return write_fully(descriptor_, static_cast<const char*>(bytes), static_cast<std::size_t>(count)) || failed();
}

std::int64_t YFile::GetFileSize() const {
  struct stat facts {};
  if (IsOpen()) return fstat(descriptor_, &facts) == 0 ? facts.st_size : -1;
  const std::optional<Place> place = yinet::find_place(name_);
  return place && facts_of(*place, facts) && !S_ISDIR(facts.st_mode) ? facts.st_size : -1;
}

bool YFile::Seek(std::int64_t position) { return lseek(descriptor_, position, SEEK_SET) >= 0 || failed(); }

bool YFile::Close() {
  if (!IsOpen()) return true;
  return close_file(std::exchange(descriptor_, -1)) || failed();
}

bool YFile::ReadAll(std::string& target) {
  target.clear();
  try {
    const std::int64_t size = GetFileSize();
    const off_t position = lseek(descriptor_, 0, SEEK_CUR);
    if (position >= 0 && size > position) target.reserve(static_cast<std::size_t>(size - position));
    yinet::prefer_huge_pages(target.data(), target.capacity());
    // Through a piece that stays in the processor's cache: the memory of a large text is touched only once.
    const auto piece = std::make_unique_for_overwrite<char[]>(kReadAhead);
    for (;;) {
      const ssize_t done = read_fully(descriptor_, piece.get(), kReadAhead);
      if (done < 0) return failed();
      target.append(piece.get(), static_cast<std::size_t>(done));
      if (static_cast<std::size_t>(done) < kReadAhead) return true;
    }
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
  } catch (const std::length_error&) {
    errno = ENOMEM;
  }
  return failed();
}

bool YFile::Exist(const YString& name) {
  const std::optional<Place> place = yinet::find_place(name);
  struct stat facts {};
  if (!place || fstatat(place->folder(), place->name(), &facts, AT_SYMLINK_NOFOLLOW) != 0) return false;
  // A link that leads nowhere still keeps a new file from being created under its name.
  if (S_ISLNK(facts.st_mode)) return !facts_of(*place, facts) || !S_ISDIR(facts.st_mode);
  return !S_ISDIR(facts.st_mode);
}

bool YFile::Delete(const YString& name) {
  const std::optional<Place> place = yinet::find_place(name);
  return place && unlinkat(place->folder(), place->name(), 0) == 0;
}

bool YFile::Copy(const YString& from, const YString& to, bool overwrite) {
  const std::optional<Place> source_place = yinet::find_place(from);
  const std::optional<Place> target_place = yinet::find_place(to);
  if (!source_place || !target_place) return false;
  const yinet::Descriptor source = open_file(*source_place, yinet::kOpenExisting, yinet::kAccessRead);
  struct stat source_facts {};
  if (!source.is_open() || fstat(source.get(), &source_facts) != 0) return false;
  struct stat target_facts {};
  if (facts_of(*target_place, target_facts) && same_file(source_facts, target_facts)) {
    errno = EEXIST;  // opening the target would empty the source
    return false;
  }
  // A copy of a file that only its owner may read is no more open than the file.
  const mode_t mode = target_place->temporary() ? kPrivateFile : source_facts.st_mode & kFollowingTheMask;
  yinet::Descriptor target =
      open_file(*target_place, overwrite ? yinet::kCreateAlways : yinet::kCreateNew, yinet::kAccessWrite, mode);
  if (!target.is_open() || fstat(target.get(), &target_facts) != 0) return false;
  bool complete = copy_content(source.get(), target.get());
  int error = errno;
  if (!close_file(target.release()) && complete) {
    complete = false;
    error = errno;
  }
  if (!complete) {
    // Half a file is worse than none. A device stays.
    if (S_ISREG(target_facts.st_mode)) unlinkat(target_place->folder(), target_place->name(), 0);
    errno = error;
  }
  return complete;
}

YString YFile::ExtractName(const YString& path) {
  const std::string_view text = path;
  const std::size_t start = name_start(text);
  return YString(text.substr(start, extension_start(text) - start));
}

YString YFile::ExtractExtension(const YString& path) {
  const std::string_view text = path;
  return YString(text.substr(extension_start(text)));
}

YString YFile::ExtractPath(const YString& path) {
  const std::string_view text = path;
  return YString(text.substr(0, name_start(text)));
}

YString YFile::ExtractNameAndExtension(const YString& path) {
  const std::string_view text = path;
  return YString(text.substr(name_start(text)));
}
