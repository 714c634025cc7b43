#include "support/http_proxy.h"

#include <utility>

namespace yinet::test {
namespace {

ServerSetup setup(const TempDir& folder, const std::string& user, const std::string& password) {
  ServerSetup setup;
  setup.name = "tinyproxy";
  setup.log = folder / "log";
  setup.prepare = [&](const ReservedPorts& ports) {
    std::string text = "Port " + std::to_string(ports[0]) + "\nListen 127.0.0.1\nAllow 127.0.0.0/8\nPidFile \"" +
                       (folder / "pid").string() + "\"\nLogFile \"" + (folder / "log").string() + "\"\n";
    if (!user.empty()) text += "BasicAuth " + user + " " + password + "\n";
    return ChildOptions{.argv = {"tinyproxy", "-d", "-c", folder.write("proxy.conf", text).string()}};
  };
  return setup;
}

}  // namespace

HttpProxy::HttpProxy(const std::string& user, const std::string& password) : server_(setup(folder_, user, password)) {}

}  // namespace yinet::test
