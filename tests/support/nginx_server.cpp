#include "support/nginx_server.h"

#include <unistd.h>

#include <sstream>
#include <utility>

#include "support/certificates.h"

namespace yinet::test {
namespace fs = std::filesystem;

namespace {

constexpr const char* kEchoModule = "/usr/lib/nginx/modules/ngx_http_echo_module.so";

std::string locations() {
  std::ostringstream text;
  for (const int code : NginxServer::kStatusCodes)
    text << "location = /status/" << code << " { return " << code << " \"status " << code << "\"; }\n";
  for (const int code : {301, 302, 303, 307, 308})
    text << "location = /redirect/" << code << " { return " << code << " $scheme://$http_host/hello.txt; }\n";
  // A static file refuses POST with 405, and what an error page names is fetched by GET.
  for (const auto& [folder, code] : {std::pair("post", "200"), std::pair("fault", "500")})
    text << "location ~ ^/" << folder << "(/.*)$ { error_page 405 =" << code << " $1; return 405; }\n";
  text << "location = /empty { return 200 \"\"; }\nlocation = /cookies {\n";
  for (const std::string_view cookie : NginxServer::kCookies) text << "  add_header Set-Cookie \"" << cookie << "\";\n";
  text << "  return 200 \"cookies\"; }\n";
  if (NginxServer::has_echo())
    text << "location = /echo { echo_read_request_body; echo_request_body; }\n"
         << "location = /request { echo -n $echo_client_request_headers; }\n"
         << "location ~ ^/chunked(/.*)$ { echo_location $1; }\n";
  return text.str();
}

// Everything nginx would write elsewhere goes to `folder`.
std::string configuration(const ReservedPorts& ports, const fs::path& folder, const fs::path& documents) {
  const std::string here = folder.string();
  const PemPair pair = Certificates::shared().good();
  std::ostringstream text;
  if (NginxServer::has_echo()) text << "load_module " << kEchoModule << ";\n";
  if (::geteuid() == 0) text << "user root;\n";  // workers of another user couldn't enter the private folders
  text << "daemon off;\nworker_processes 1;\npid " << here << "/pid;\nerror_log " << here << "/error.log;\n"
       << "events { worker_connections 1024; }\nhttp {\n";
  for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
    text << kind << "_temp_path " << here << "/" << kind << ";\n";
  text << "types { text/html html; text/plain txt; text/xml xml; }\ndefault_type application/octet-stream;\n"
       << "gzip off;\nsendfile on;\nclient_max_body_size 0;\nkeepalive_requests 1000000;\n"
       << "access_log off;\nroot " << documents.string() << ";\nssl_certificate " << pair.certificate.string()
       << ";\nssl_certificate_key " << pair.key.string() << ";\n"
       << "server {\nlisten 127.0.0.1:" << ports[0] << ";\nlisten 127.0.0.1:" << ports[1] << " ssl;\n"
       << locations() << "}\n}\n";
  return text.str();
}

}  // namespace

bool NginxServer::has_echo() { return fs::exists(kEchoModule); }

NginxServer::NginxServer() {
  add_document("index.html", kIndex);
  add_document("hello.txt", kHello);
  ServerSetup setup;
  setup.name = "nginx";
  setup.ports = 2;
  setup.listening = 2;
  setup.log = folder_ / "error.log";
  setup.prepare = [&](const ReservedPorts& ports) {
    const fs::path file = folder_.write("nginx.conf", configuration(ports, folder_.path(), documents_.path()));
    ChildOptions child;
    child.argv = {"nginx", "-e", (folder_ / "error.log").string(), "-p", folder_.path().string(), "-c", file.string()};
    return child;
  };
  server_.emplace(std::move(setup));
}

std::string NginxServer::url(std::string_view path) const {
  return "http://127.0.0.1:" + std::to_string(port()) + std::string(path);
}

std::string NginxServer::tls_url(std::string_view path) const {
  return "https://127.0.0.1:" + std::to_string(tls_port()) + std::string(path);
}

}  // namespace yinet::test
