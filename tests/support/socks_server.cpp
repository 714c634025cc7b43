#include "support/socks_server.h"

#include <unistd.h>

#include <sstream>
#include <utility>

#include "support/requirements.h"

namespace yinet::test {
namespace {

const char* program_of(SocksServer::Brand brand) {
  return brand == SocksServer::Brand::dante ? "danted" : "microsocks";
}

std::string dante_configuration(std::uint16_t port, const std::string& log) {
  std::ostringstream text;
  text << "logoutput: " << log << "\ninternal: 127.0.0.1 port = " << port << "\nexternal: lo\n"
       << "clientmethod: none\nsocksmethod: none\n";
  if (::geteuid() == 0) text << "user.privileged: root\nuser.unprivileged: nobody\n";
  text << "client pass { from: 0.0.0.0/0 to: 0.0.0.0/0 }\nsocks pass { from: 0.0.0.0/0 to: 0.0.0.0/0 }\n";
  return text.str();
}

}  // namespace

std::string SocksServer::missing(Brand brand) { return missing_program(program_of(brand)); }

SocksServer::SocksServer(Brand brand, std::string user, std::string password) {
  ServerSetup setup;
  setup.name = program_of(brand);
  setup.log = folder_ / "log";
  setup.prepare = [&](const ReservedPorts& ports) {
    ChildOptions child;
    const std::string port = std::to_string(ports[0]);
    if (brand == Brand::dante) {
      const auto file = folder_.write("danted.conf", dante_configuration(ports[0], (folder_ / "log").string()));
      child.argv = {"danted", "-f", file.string(), "-p", (folder_ / "pid").string(), "-N", "1"};
    } else {
      child.argv = {"microsocks", "-i", "127.0.0.1", "-p", port};
      if (!user.empty()) child.argv.insert(child.argv.end(), {"-u", user, "-P", password});
    }
    return child;
  };
  server_.emplace(std::move(setup));
}

}  // namespace yinet::test
