#include <CLI/CLI.hpp>

#include "yinet/host/version.h"

int main(int argc, char** argv) {
  CLI::App app("YInet: network, mail and security functions on the command line.", "yinet");
  app.set_version_flag("--version", yinet_version());
  CLI11_PARSE(app, argc, argv);
  return 0;
}
