#include "support/nginx_server.h"

#include <unistd.h>

#include <sstream>

#include "support/requirements.h"

namespace yinet::test {
namespace fs = std::filesystem;

namespace {

constexpr const char* kEchoModule = "/usr/lib/nginx/modules/ngx_http_echo_module.so";

std::string fixed_locations(const fs::path& documents) {
  std::ostringstream text;
  for (const int code : NginxServer::kStatusCodes)
    text << "location = /status/" << code << " { return " << code << " \"status " << code << "\"; }\n";
  for (const int code : {301, 302, 303, 307, 308})
    text << "location = /redirect/" << code << " { return " << code << " $scheme://$http_host/hello.txt; }\n";
  text << "location = /redirect/loop { return 302 $scheme://$http_host/redirect/loop; }\n"
       << "location = /empty { return 200 \"\"; }\n"
       << "location /listing/ { alias " << documents.string() << "/; index none; autoindex on; }\n"
       << "location = /cookies {\n";
  for (const std::string_view cookie : NginxServer::kCookies) text << "  add_header Set-Cookie \"" << cookie << "\";\n";
  text << "  return 200 \"cookies\"; }\n";
  if (NginxServer::has_echo())
    text << "location = /echo { echo_read_request_body; echo_request_body; }\n"
         << "location = /request { echo -n $echo_client_request_headers; }\n"
         << "location ~ ^/chunked(/.*)$ { echo_location $1; }\n";
  return text.str();
}

std::string tls_lines(const NginxServer::Options& options) {
  const PemPair pair = options.certificate ? *options.certificate : Certificates::shared().good();
  std::string text = "ssl_certificate " + pair.certificate.string() + ";\nssl_certificate_key " + pair.key.string() +
                     ";\nssl_protocols " + options.protocols + ";\n";
  if (options.protocols.find("TLSv1.1") != std::string::npos) text += "ssl_ciphers ALL:@SECLEVEL=0;\n";
  if (!options.client_ca.empty())
    text += "ssl_client_certificate " + options.client_ca.string() + ";\nssl_verify_client on;\n";
  return text;
}

std::string server_block(std::uint16_t port, bool tls, bool closing, const std::string& content) {
  const std::string suffix = std::to_string(port) + (tls ? " ssl" : "") + ";\n";
  std::string text = "server {\nlisten 127.0.0.1:" + suffix;
  if (missing_ipv6().empty()) text += "listen [::1]:" + suffix;
  if (closing) text += "keepalive_timeout 0;\n";
  return text + content + "}\n";
}

// Everything nginx would write elsewhere goes to `folder`.
std::string configuration(const ReservedPorts& ports, const fs::path& folder, const fs::path& documents,
                          const NginxServer::Options& options) {
  const std::string here = folder.string();
  std::ostringstream text;
  if (NginxServer::has_echo()) text << "load_module " << kEchoModule << ";\n";
  if (::geteuid() == 0) text << "user root;\n";  // workers of another user couldn't enter the private folders
  text << "daemon off;\nworker_processes 1;\npid " << here << "/pid;\nerror_log " << here << "/error.log;\n"
       << "events { worker_connections 1024; }\nhttp {\n";
  for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
    text << kind << "_temp_path " << here << "/" << kind << ";\n";
  text << "types { text/html html; text/plain txt; }\ndefault_type application/octet-stream;\n"
       << "gzip off;\nsendfile on;\nclient_max_body_size 0;\nkeepalive_requests 1000000;\n"
       << "log_format short '$server_port $request $status $body_bytes_sent';\n"
       << "access_log " << (options.log_requests ? here + "/access.log short" : "off") << ";\n"
       << "root " << documents.string() << ";\n"
       << tls_lines(options);
  const std::string content = fixed_locations(documents) + options.locations;
  for (std::size_t i = 0; i < 4; ++i) text << server_block(ports[i], i % 2 == 1, i >= 2, content);
  text << "}\n";
  return text.str();
}

}  // namespace

bool NginxServer::has_echo() { return fs::exists(kEchoModule); }

NginxServer::NginxServer(const Options& options) {
  add_document("index.html", kIndex);
  add_document("hello.txt", kHello);
  ServerSetup setup;
  setup.name = "nginx";
  setup.ports = 4;
  setup.listening = 4;
  setup.log = folder_ / "error.log";
  setup.prepare = [&](const ReservedPorts& ports) {
    const fs::path file = folder_.write("nginx.conf", configuration(ports, folder_.path(), documents(), options));
    ChildOptions child;
    child.argv = {"nginx", "-e", (folder_ / "error.log").string(), "-p", folder_.path().string(), "-c", file.string()};
    return child;
  };
  server_.emplace(std::move(setup));
}

std::string NginxServer::url(std::string_view path, std::string_view host) const {
  return "http://" + std::string(host) + ":" + std::to_string(port()) + std::string(path);
}

std::string NginxServer::tls_url(std::string_view path, std::string_view host) const {
  return "https://" + std::string(host) + ":" + std::to_string(tls_port()) + std::string(path);
}

std::vector<std::string> NginxServer::requests() const {
  std::istringstream text(read_file(folder_ / "access.log"));
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  return lines;
}

bool NginxServer::wait_for_requests(std::size_t count, milliseconds patience) const {
  return eventually([&] { return requests().size() >= count; }, patience);
}

}  // namespace yinet::test
