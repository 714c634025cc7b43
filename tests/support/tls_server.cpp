#include "support/tls_server.h"

namespace yinet::test {

TlsServer::TlsServer(const Options& options) {
  const PemPair pair = Certificates::shared().good();
  ServerSetup setup;
  setup.name = "openssl s_server";
  setup.prepare = [&](const ReservedPorts& ports) {
    ChildOptions child;
    child.argv = {"openssl", "s_server",
                  "-accept", "127.0.0.1:" + std::to_string(ports.first()),
                  "-cert",   pair.certificate.string(),
                  "-key",    pair.key.string()};
    child.argv.insert(child.argv.end(), options.arguments.begin(), options.arguments.end());
    child.keep_input_open = true;  // at the end of its input it would end itself
    return child;
  };
  // A look at the port would count as its first connection.
  setup.ready = [](ChildProcess& child, const ReservedPorts&) {
    return child.output().find("ACCEPT") != std::string::npos;
  };
  server_.emplace(std::move(setup));
}

}  // namespace yinet::test
