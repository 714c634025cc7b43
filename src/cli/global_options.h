#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace yinet::cli {

// Options that hold for every command and may stand before or after it.
class GlobalOptions {
 public:
  void add_to(CLI::App& program);
  // Puts them into force; otherwise the exit code of a wrong call, which has been told.
  [[nodiscard]] int apply() const;

 private:
  [[nodiscard]] int apply_setting(const std::string& assignment) const;

  std::string settings_file_;
  std::vector<std::string> assignments_;
  std::string log_form_;
  std::string language_;
  bool trace_ = false;
};

}  // namespace yinet::cli
