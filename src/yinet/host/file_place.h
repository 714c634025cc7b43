#pragma once

// Where a name of the library leads on this system: the one place that knows logical prefixes, separators and drive
// letters. Internal to the file layer. Safe from several threads.
//
// What lies in the temporary folder is reached from the folder's own descriptor, component by component, and never
// through a link: whoever else can write there can neither redirect a file nor swap a folder between check and use.

#include <fcntl.h>

#include <optional>
#include <string>
#include <string_view>

#include "yinet/host/descriptor.h"

namespace yinet {

// The absolute path of a name, as bytes of the system. Empty, with errno, for the empty name and where no path can be
// given; the log then says why.
std::string system_path(std::string_view name);

// The arguments for the system's ...at() calls.
class Place {
 public:
  Place(Descriptor folder, std::string name, bool temporary)
      : folder_(std::move(folder)), name_(std::move(name)), temporary_(temporary) {}

  [[nodiscard]] int folder() const { return folder_.is_open() ? folder_.get() : AT_FDCWD; }
  [[nodiscard]] const char* name() const { return name_.c_str(); }  // one component, or a path when not temporary
  // In the temporary folder: private files, no links.
  [[nodiscard]] bool temporary() const { return temporary_; }

 private:
  Descriptor folder_;
  std::string name_;
  bool temporary_;
};

enum class MissingFolders { fail, create };

// Nothing, with errno, when there is no such place. Folders above the name are made when asked for; the name itself is
// not touched.
std::optional<Place> find_place(std::string_view name, MissingFolders missing = MissingFolders::fail);

// True for "/" and "\".
constexpr bool is_separator(char c) { return c == '/' || c == '\\'; }
// Length of the logical prefix or drive letter that a name begins with, its colon included; 0 without one.
std::size_t prefix_length(std::string_view name);
bool is_temporary_name(std::string_view name);  // begins with "TEMP:"

}  // namespace yinet
