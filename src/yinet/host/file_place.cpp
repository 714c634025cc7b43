#include "yinet/host/file_place.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include "yinet/host/codepage.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/settings.h"
#include "yinet/host/temporary_folder.h"
#include "yinet/host/text.h"
#include "yinet/host/ylog.h"

namespace yinet {
namespace {

constexpr std::string_view kSeparators = "/\\";
constexpr std::string_view kTemporaryPrefix = "TEMP:";
constexpr std::size_t kDrivePrefix = 2;
constexpr mode_t kPrivateFolder = 0700;

constexpr bool is_letter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

// The text up to the next separator, which is cut off the front together with it.
std::string_view take_component(std::string_view& rest) {
  const std::size_t end = rest.find_first_of(kSeparators);
  const std::string_view component = rest.substr(0, end);
  rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  return component;
}

// Every component is converted by itself: a path may join names of different origin, of which one is UTF-8 already.
std::string with_system_names(std::string_view name) {
  std::string path;
  path.reserve(name.size() + name.size() / 4);
  for (;;) {
    const std::size_t end = name.find_first_of(kSeparators);
    path += name_to_utf8(name.substr(0, end));
    if (end == std::string_view::npos) return path;
    path += '/';
    name.remove_prefix(end + 1);
  }
}

std::string joined_path(const std::vector<std::string_view>& components) {
  std::string path;
  for (const std::string_view component : components) {
    if (!path.empty()) path += '/';
    path += component;
  }
  return path;
}

// What a name below a fixed folder comes to once "." and ".." are worked out by their letters alone.
struct Below {
  std::vector<std::string_view> components;
  bool climbed_out = false;  // a ".." that had nothing left to undo
};

Below below(std::string_view name) {
  Below result;
  while (!name.empty()) {
    const std::string_view component = take_component(name);
    if (component.empty() || component == ".") continue;
    if (component != "..") {
      result.components.push_back(component);
    } else if (result.components.empty()) {
      result.climbed_out = true;
    } else {
      result.components.pop_back();
    }
  }
  return result;
}

// `folder` and what lies below it; a name that ended with a separator still does.
std::string path_below(std::string folder, std::string_view name, const Below& inside) {
  if (folder.empty() || folder.back() != '/') folder += '/';
  if (inside.components.empty()) return folder;
  folder += with_system_names(joined_path(inside.components));
  if (is_separator(name.back())) folder += '/';
  return folder;
}

std::string refused(std::string_view name) {
  YLog.Event(message::kErrorLevel, message::kFileNameRefused, name);
  errno = EINVAL;
  return {};
}

// Names without a prefix.
std::string plain_path(std::string_view name) {
  std::string path = with_system_names(name);
  if (path.front() == '/') return path;
  std::error_code error;
  const std::string current = std::filesystem::current_path(error).string();
  if (error) {
    errno = error.value();
    return {};
  }
  return current + (current.ends_with('/') ? "" : "/") + path;
}

// As on the platform that knows drives, ".." ends at the drive's root.
std::string drive_path(std::string_view name) {
  const char letter = static_cast<char>(name.front() & ~0x20);
  const std::string folder = find_setting("Dateien", std::string("Laufwerk") + letter).value_or("");
  if (folder.empty() || prefix_length(folder) != 0) {
    YLog.Event(message::kErrorLevel, message::kDriveNotMapped, name);
    errno = ENODEV;
    return {};
  }
  const std::string_view rest = name.substr(kDrivePrefix);
  return path_below(plain_path(folder), rest, below(rest));
}

struct Resolved {
  std::string path;
  TemporaryFolder temporary;  // open when the name begins with "TEMP:"
};

Resolved resolved(std::string_view name) {
  Resolved result;
  if (name.empty()) {
    errno = ENOENT;
  } else if (name.find('\0') != std::string_view::npos) {
    result.path = refused(name);
  } else if (is_temporary_name(name)) {
    const std::string_view rest = name.substr(kTemporaryPrefix.size());
    const Below inside = below(rest);
    // Names that came in a mail or from a server end up here: nothing above the folder is theirs.
    if (inside.climbed_out) {
      result.path = refused(name);
      return result;
    }
    result.temporary = temporary_folder();
    if (result.temporary.descriptor.is_open()) result.path = path_below(result.temporary.path, rest, inside);
  } else {
    result.path = prefix_length(name) == kDrivePrefix ? drive_path(name) : plain_path(name);
  }
  return result;
}

// The part of `path` below `folder`, or nothing.
std::optional<std::string_view> part_below(std::string_view path, std::string_view folder) {
  if (folder.empty() || !path.starts_with(folder)) return std::nullopt;
  path.remove_prefix(folder.size());
  if (!folder.ends_with('/') && !path.empty() && path.front() != '/') return std::nullopt;
  return path;
}

std::optional<Place> place_in_temporary_folder(Descriptor folder, const Below& inside, MissingFolders missing) {
  std::string name = ".";
  for (const std::string_view component : inside.components) {
    if (name != ".") {
      if (missing == MissingFolders::create) mkdirat(folder.get(), name.c_str(), kPrivateFolder);
      Descriptor next(openat(folder.get(), name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
      if (!next.is_open()) return std::nullopt;
      folder = std::move(next);
    }
    name = component;
  }
  return Place(std::move(folder), std::move(name), true);
}

}  // namespace

bool is_temporary_name(std::string_view name) { return starts_with_ignoring_case(name, kTemporaryPrefix); }

std::size_t prefix_length(std::string_view name) {
  if (is_temporary_name(name)) return kTemporaryPrefix.size();
  return name.size() >= kDrivePrefix && is_letter(name[0]) && name[1] == ':' ? kDrivePrefix : 0;
}

std::string system_path(std::string_view name) { return resolved(name).path; }

std::optional<Place> find_place(std::string_view name, MissingFolders missing) {
  Resolved target = resolved(name);
  if (target.path.empty()) return std::nullopt;
  // A path that was resolved earlier and comes back as it is deserves the same care as the "TEMP:" name behind it.
  const std::string temporary =
      target.temporary.descriptor.is_open() ? target.temporary.path : known_temporary_folder();
  if (const std::optional<std::string_view> part = part_below(target.path, temporary)) {
    const Below inside = below(*part);
    if (!inside.climbed_out) {
      if (!target.temporary.descriptor.is_open()) target.temporary = temporary_folder();
      if (!target.temporary.descriptor.is_open()) return std::nullopt;
      if (target.temporary.path == temporary) {
        return place_in_temporary_folder(std::move(target.temporary.descriptor), inside, missing);
      }
    }
  }
  if (missing == MissingFolders::create) {
    std::error_code ignored;  // what is missing shows when the place is used
    std::filesystem::create_directories(std::filesystem::path(target.path).parent_path(), ignored);
  }
  return Place({}, std::move(target.path), false);
}

}  // namespace yinet
