#include "support/server_process.h"

#include <stdexcept>

namespace yinet::test {
namespace {

constexpr int kMostAttempts = 5;

// As the C library words EADDRINUSE, in whatever sentence a daemon puts it.
bool port_was_taken(const std::string& report) { return report.find("ddress already in use") != std::string::npos; }

}  // namespace

ServerProcess::ServerProcess(ServerSetup setup) {
  for (int attempt = 1;; ++attempt) {
    ports_.emplace(setup.ports);
    child_ = std::make_unique<ChildProcess>(setup.prepare(*ports_));
    if (serves(setup)) return;
    const std::string what = report(setup);
    if (attempt == kMostAttempts || !port_was_taken(what))
      throw std::runtime_error(setup.name + " does not serve\n" + what);
    child_.reset();
  }
}

bool ServerProcess::serves(const ServerSetup& setup) {
  bool good = false;
  const auto look = [&] {
    if (setup.ready) return setup.ready(*child_, *ports_);
    for (std::size_t i = 0; i < setup.listening; ++i)
      if (!port_is_open((*ports_)[i])) return false;
    return true;
  };
  eventually([&] { return (good = look()) || !child_->running(); });
  return good && child_->running();
}

std::string ServerProcess::report(const ServerSetup& setup) const {
  std::string text = child_->command_line() + "\n" + child_->output() + child_->errors();
  std::error_code ignored;
  if (!setup.log.empty() && std::filesystem::exists(setup.log, ignored)) text += read_file(setup.log);
  return text;
}

}  // namespace yinet::test
