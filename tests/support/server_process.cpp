#include "support/server_process.h"

#include <stdexcept>

namespace yinet::test {

ServerProcess::ServerProcess(const ServerSetup& setup) {
  constexpr int kMostAttempts = 5;
  for (int attempt = 1;; ++attempt) {
    ports_.emplace(setup.ports);
    child_ = std::make_unique<ChildProcess>(setup.prepare(*ports_));
    if (serves(setup)) return;
    std::string report = child_->command_line() + "\n" + child_->output() + child_->errors();
    if (std::filesystem::exists(setup.log)) report += read_file(setup.log);
    // As the C library words EADDRINUSE, in whatever sentence a daemon puts it.
    const bool port_was_taken = report.find("ddress already in use") != std::string::npos;
    if (attempt == kMostAttempts || !port_was_taken)
      throw std::runtime_error(setup.name + " does not serve\n" + report);
  }
}

bool ServerProcess::serves(const ServerSetup& setup) {
  const auto look = [&] {
    if (setup.ready) return setup.ready(*child_, *ports_);
    for (std::size_t i = 0; i < setup.listening; ++i)
      if (!port_is_open((*ports_)[i])) return false;
    return true;
  };
  bool good = false;
  eventually([&] { return (good = look()) || !child_->running(); });
  return good && child_->running();
}

}  // namespace yinet::test
