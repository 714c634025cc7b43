#include "password_prompt.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>

namespace yinet::cli {
namespace {

constexpr std::array kSignals = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGTSTP};

volatile std::sig_atomic_t g_signal = 0;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

void note_signal(int signal) { g_signal = signal; }

// While it lives, signals end a read from the terminal instead of the program. What is ignored stays so.
class NotedSignals {
 public:
  NotedSignals() {
    g_signal = 0;
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
      sigaction(kSignals[i], nullptr, &before_[i]);
      if (before_[i].sa_handler == SIG_IGN) continue;
      struct sigaction noted {};
      noted.sa_handler = &note_signal;  // without SA_RESTART
      sigaction(kSignals[i], &noted, nullptr);
    }
  }
  NotedSignals(const NotedSignals&) = delete;
  NotedSignals& operator=(const NotedSignals&) = delete;
  ~NotedSignals() {
    for (std::size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i], &before_[i], nullptr);
  }

 private:
  std::array<struct sigaction, kSignals.size()> before_{};
};

class SilentTerminal {
 public:
  SilentTerminal() : descriptor_(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY)) {
    silent_ = descriptor_ >= 0 && tcgetattr(descriptor_, &before_) == 0;
    if (!silent_) return;
    termios silent = before_;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(descriptor_, TCSAFLUSH, &silent);
  }
  SilentTerminal(const SilentTerminal&) = delete;
  SilentTerminal& operator=(const SilentTerminal&) = delete;
  ~SilentTerminal() {
    if (silent_) tcsetattr(descriptor_, TCSAFLUSH, &before_);
    if (silent_) write("\n");
    if (descriptor_ >= 0) close(descriptor_);
  }
  [[nodiscard]] bool silent() const { return silent_; }
  void write(const std::string& text) const { static_cast<void>(!::write(descriptor_, text.data(), text.size())); }

  // False when the input ended or a signal came before the line's end.
  bool read_line(std::string& line) const {
    for (char c = 0; g_signal == 0 && read(descriptor_, &c, 1) == 1; line.push_back(c))
      if (c == '\n') return true;
    return false;
  }

 private:
  int descriptor_;
  termios before_{};
  bool silent_ = false;
};

// One try; a signal that came meanwhile is in g_signal.
std::optional<std::string> ask_once(const std::string& question, std::string& problem) {
  const NotedSignals signals;
  const SilentTerminal terminal;
  problem = "there is no terminal to ask on";
  if (!terminal.silent()) return std::nullopt;
  terminal.write(question);
  std::string line;
  problem = "none was typed";
  return terminal.read_line(line) ? std::optional(line) : std::nullopt;
}

}  // namespace

std::optional<std::string> ask_for_password(const std::string& question, std::string& problem) {
  for (;;) {
    auto answer = ask_once(question, problem);
    if (answer || g_signal == 0) return answer;
    std::raise(g_signal);  // the program goes on after a stop, and asks again
  }
}

}  // namespace yinet::cli
