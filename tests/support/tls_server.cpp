#include "support/tls_server.h"

namespace yinet::test {
namespace {

ServerSetup setup_with(const std::vector<std::string>& arguments) {
  ServerSetup setup;
  setup.name = "openssl s_server";
  setup.prepare = [&](const ReservedPorts& ports) {
    const PemPair pair = Certificates::shared().good();
    // At the end of its input it would end itself.
    ChildOptions child{.argv = {"sh", "-c", "sleep 60 | exec \"$@\"", "sh", "openssl", "s_server", "-accept",
                                "127.0.0.1:" + std::to_string(ports.first()), "-cert", pair.certificate.string(),
                                "-key", pair.key.string()}};
    child.argv.insert(child.argv.end(), arguments.begin(), arguments.end());
    return child;
  };
  // A look at the port would count as its first connection.
  setup.ready = [](ChildProcess& child, const ReservedPorts&) {
    return child.output().find("ACCEPT") != std::string::npos;
  };
  return setup;
}

}  // namespace

TlsServer::TlsServer(const std::vector<std::string>& arguments) : server_(setup_with(arguments)) {}

}  // namespace yinet::test
