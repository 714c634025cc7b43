#include "local_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "command.h"
#include "terminal.h"
#include "transfer_call.h"
#include "yinet/host/codepage.h"
#include "yinet/host/yfile.h"

namespace yinet::cli {
namespace {

constexpr std::size_t kPiece = 65536;

// What the handler of signals deletes; empty for nothing. Only one file is on the way at a time.
char g_doomed[PATH_MAX] = "";  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

void delete_doomed(int signal) {
  if (g_doomed[0] != '\0') unlink(g_doomed);
  raise(signal);  // with its usual effect, once this has returned
}

// A signal that is ignored (by nohup, say) stays so.
void delete_on_signals() {
  for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM}) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    if (action.sa_handler != SIG_DFL) continue;
    action.sa_handler = &delete_doomed;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(signal, &action, nullptr);
  }
}

// A new file with a name of its own, gone with the object unless it was moved.
class PassingFile {
 public:
  PassingFile() = default;
  PassingFile(const PassingFile&) = delete;
  PassingFile& operator=(const PassingFile&) = delete;
  ~PassingFile() {
    if (g_doomed[0] != '\0') unlink(g_doomed);
    g_doomed[0] = '\0';
    if (descriptor_ >= 0) close(descriptor_);
  }

  // In a folder, whose name ends with a slash; false with errno.
  bool make(const std::string& folder) {
    constexpr std::string_view kName = ".yinet-XXXXXX.part";
    path_ = folder + std::string(kName);
    if (path_.size() >= sizeof g_doomed) {
      errno = ENAMETOOLONG;
      return false;
    }
    delete_on_signals();
    descriptor_ = mkostemps(path_.data(), static_cast<int>(std::strlen(".part")), O_CLOEXEC);
    // A signal that comes in between leaves an empty file.
    if (descriptor_ >= 0) std::memcpy(g_doomed, path_.c_str(), path_.size() + 1);
    return descriptor_ >= 0;
  }
  bool move_to(const std::string& target) const { return std::rename(path_.c_str(), target.c_str()) == 0; }
  [[nodiscard]] const std::string& path() const { return path_; }
  // Of the same file, even when somebody has deleted its name.
  [[nodiscard]] int descriptor() const { return descriptor_; }

 private:
  std::string path_;
  int descriptor_ = -1;
};

std::string temporary_folder() { return YFileManager.ResolveSystemPath("TEMP:"); }

YString library_name(const std::string& path) { return YString(name_from_utf8(path)); }

int not_written(const std::string& target, int error) {
  return fail(kLocalFile, target + " cannot be written: " + std::strerror(error));
}

// The system's reason why a file takes no more bytes, asked for by writing some; 0 when it takes them now.
int reason_for_no_more(int descriptor) {
  const std::array<char, kPiece> bytes{};
  constexpr int kTries = 2;  // the first may fill the last block
  lseek(descriptor, 0, SEEK_END);
  for (int i = 0; i < kTries; ++i)
    if (write(descriptor, bytes.data(), bytes.size()) < 0) return errno;
  return 0;
}

mode_t usual_mode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

// Prints a file; an error of standard output is told at the end of the program.
bool print_file(const std::string& path) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return false;
  std::array<char, kPiece> piece{};
  ssize_t count = 0;
  while ((count = read(descriptor, piece.data(), piece.size())) > 0)
    print(std::string_view(piece.data(), static_cast<std::size_t>(count)));
  close(descriptor);
  return count == 0;
}

// `finish` brings the complete file where it belongs; false with errno.
template <typename Finish>
int fetch_into(PassingFile& part, const std::string& target, const std::function<int(const YString&)>& work,
               Finish finish) {
  const int code = work(library_name(part.path()));
  if (code == kSucceeded) return finish() ? kSucceeded : not_written(target, errno);
  if (code != kLocalFile) return code;
  const int error = reason_for_no_more(part.descriptor());
  return error != 0 ? not_written(target, error) : fail(code, target + " could not be written to its end");
}

int fetch_to_output(const std::function<int(const YString&)>& work) {
  PassingFile part;
  if (!part.make(temporary_folder())) return not_written("a temporary file", errno);
  return fetch_into(part, "a temporary file", work, [&] { return print_file(part.path()); });
}

int fetch_directly(const std::string& target, const std::function<int(const YString&)>& work) {
  const int code = work(to_ansi(target));
  return code == kLocalFile ? fail(code, target + " could not be written") : code;
}

// A file that is there keeps its mode, and its owner where the system lets us.
int fetch_beside(const std::string& target, const std::string& path, const struct stat* old,
                 const std::function<int(const YString&)>& work) {
  if (old != nullptr && access(path.c_str(), W_OK) != 0) return not_written(target, errno);
  PassingFile part;
  if (!part.make(path.substr(0, path.rfind('/') + 1)))  // a folder that takes no new file may hold one to write to
    return old != nullptr ? fetch_directly(target, work) : not_written(target, errno);
  if (old != nullptr) static_cast<void>(!fchown(part.descriptor(), old->st_uid, old->st_gid));
  fchmod(part.descriptor(), old != nullptr ? old->st_mode & 0777 : usual_mode());
  return fetch_into(part, target, work, [&] { return part.move_to(path); });
}

bool is_standard_output(const struct stat& file) {
  struct stat output {};
  return fstat(STDOUT_FILENO, &output) == 0 && output.st_dev == file.st_dev && output.st_ino == file.st_ino;
}

bool copy_input(int target) {
  std::array<char, kPiece> piece{};
  ssize_t count = 0;
  while ((count = read(STDIN_FILENO, piece.data(), piece.size())) > 0) {
    for (ssize_t done = 0, more = 0; done < count; done += more)
      if ((more = write(target, piece.data() + done, static_cast<std::size_t>(count - done))) < 0) return false;
  }
  return count == 0;
}

}  // namespace

int fetch_file(const std::string& file, const std::string& remote, const std::function<int(const YString&)>& work) {
  if (file == "-") return fetch_to_output(work);
  const auto target = download_target(file, remote);
  if (!target) return wrong_call("the URL names no file; name the local one");
  const std::string named = YFileManager.ResolveSystemPath(std::string_view(to_ansi(*target)));
  std::error_code error;
  const std::filesystem::path real = std::filesystem::canonical(named, error);  // a link stays one
  const std::string path = error ? named : real.string();
  struct stat old {};
  if (named.empty()) return fail(kLocalFile, *target + " cannot be written");
  if (stat(path.c_str(), &old) != 0) return fetch_beside(*target, path, nullptr, work);
  if (S_ISCHR(old.st_mode) || S_ISBLK(old.st_mode)) return fetch_directly(*target, work);
  if (S_ISDIR(old.st_mode)) return not_written(*target, EISDIR);
  if (is_standard_output(old)) return fetch_to_output(work);
  return S_ISREG(old.st_mode) ? fetch_beside(*target, path, &old, work) : fetch_directly(*target, work);
}

int send_file(const std::string& file, const std::function<int(const std::string&)>& work) {
  if (file != "-") return work(file);
  PassingFile copy;
  if (!copy.make(temporary_folder())) return not_written("a temporary file", errno);
  if (copy_input(copy.descriptor())) return work(copy.path());
  return fail(kLocalFile, std::string("standard input cannot be copied: ") + std::strerror(errno));
}

}  // namespace yinet::cli
