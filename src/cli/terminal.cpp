#include "terminal.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

#include "command.h"
#include "yinet/host/codepage.h"
#include "yinet/host/text.h"
#include "yinet/host/ylog.h"

namespace yinet::cli {
namespace {

bool g_remarks_as_json = false;
int g_output_error = 0;  // errno when standard output first took less than it was given

class InputFile {
 public:
  explicit InputFile(const std::string& name)
      : owned_(name != "-"), descriptor_(owned_ ? open(name.c_str(), O_RDONLY | O_CLOEXEC) : STDIN_FILENO) {}
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;
  ~InputFile() {
    if (owned_ && descriptor_ >= 0) close(descriptor_);
  }

  // False after a failure of the system, which errno names.
  bool read_all(std::string& bytes) const {
    if (descriptor_ < 0) return false;
    std::array<char, 65536> piece{};
    while (true) {
      const ssize_t count = read(descriptor_, piece.data(), piece.size());
      if (count == 0) return true;
      if (count > 0) bytes.append(piece.data(), static_cast<std::size_t>(count));
      else if (errno != EINTR) return false;
    }
  }

 private:
  bool owned_;
  int descriptor_;
};

}  // namespace

void print(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() && g_output_error == 0) g_output_error = errno;
}

bool finish_output() {
  if (std::fflush(stdout) == 0 && !std::ferror(stdout)) return true;
  remark("standard output could not be written: " +
         std::string(std::strerror(g_output_error ? g_output_error : errno)));
  return false;
}

void remark(std::string_view text) {
  std::string line = "yinet: " + std::string(text);
  if (g_remarks_as_json) {
    const nlohmann::ordered_json object = {{"kind", "remark"}, {"text", text}};
    line = object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
  }
  line += '\n';
  std::fwrite(line.data(), 1, line.size(), stderr);
}

void remarks_as_json(bool on) { g_remarks_as_json = on; }

int wrong_call(std::string_view text) {
  remark(mask_url_passwords(text));
  return kWrongCall;
}

void print_log(const LogRecord& record) {
  constexpr int kLastShownLevel = 6;
  if (record.level > kLastShownLevel && !debug_traces()) return;
  const std::string line = (g_remarks_as_json ? log_json_line(record) : log_line(record)) + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
}

TextArgument text_from_argument(std::string_view argument) {
  if (auto text = ansi_from_utf8(argument)) return {std::move(*text), false};
  return {std::string(argument), true};
}

YString to_ansi(std::string_view argument) { return YString(text_from_argument(argument).text); }

std::string shown(std::string_view ansi) { return utf8_from_ansi(printable(ansi)); }

std::optional<std::string> read_file(const std::string& name, std::string& problem) {
  std::string bytes;
  if (InputFile(name).read_all(bytes)) return bytes;
  problem = file_title(name) + " cannot be read: " + std::strerror(errno);
  return std::nullopt;
}

std::string file_title(const std::string& name) { return name == "-" ? "standard input" : name; }

}  // namespace yinet::cli
