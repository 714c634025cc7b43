// HTTP requests and large bodies, this library beside libcurl, against a server in a process of its own on loopback.
// Transfers take seconds, so they are timed as a whole: median, fastest and slowest of a few runs.
//
//   http_bench [requests] [body MiB] [runs]        default: 500 1024 5

#include <curl/curl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include "side_by_side.h"
#include "support/certificates.h"
#include "yinet/host/setting_table.h"
#include "yinet/http/http.h"

namespace {

using namespace yinet::bench;

constexpr std::size_t kPieceSize = 256 * 1024;
constexpr std::size_t kSmallBody = 1024;

// --- The server: one connection after the other ------------------------------------------------------------------------

struct Listener {
  int socket = -1;
  int port = 0;
};

Listener listen_on_loopback() {
  Listener listener{.socket = ::socket(AF_INET, SOCK_STREAM, 0)};
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const raw = reinterpret_cast<sockaddr*>(&address);
  if (bind(listener.socket, raw, size) != 0 || listen(listener.socket, 16) != 0) give_up("listen");
  if (getsockname(listener.socket, raw, &size) != 0) give_up("getsockname");
  listener.port = ntohs(address.sin_port);
  return listener;
}

class Client {  // as the server sees it
 public:
  Client(int socket, SSL_CTX* context) : socket_(socket) {
    const int on = 1;
    setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (!context) return;
    session_ = SSL_new(context);
    SSL_set_fd(session_, socket_);
  }
  ~Client() {
    if (session_) SSL_shutdown(session_);
    shutdown(socket_, SHUT_WR);
    char rest[4096];
    while (read(socket_, rest, sizeof rest) > 0) {
    }
    SSL_free(session_);
    close(socket_);
  }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  bool accept() { return !session_ || SSL_accept(session_) == 1; }
  std::string request() {
    std::string text;
    char piece[4096];
    while (text.find("\r\n\r\n") == std::string::npos) {
      const auto count = session_ ? SSL_read(session_, piece, sizeof piece) : read(socket_, piece, sizeof piece);
      if (count <= 0) return {};
      text.append(piece, static_cast<std::size_t>(count));
    }
    return text;
  }
  bool write(std::string_view bytes) {
    while (!bytes.empty()) {
      const auto count = session_ ? SSL_write(session_, bytes.data(), static_cast<int>(bytes.size()))
                                  : ::write(socket_, bytes.data(), bytes.size());
      if (count <= 0) return false;
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
  }

 private:
  int socket_;
  SSL* session_ = nullptr;
};

// "GET /counted/SIZE" or "GET /chunked/SIZE"
void serve(Client& client) {
  const std::string request = client.request();
  const std::size_t number = request.find('/', request.find('/') + 1);
  if (number == std::string::npos) return;
  const bool chunked = request.find("/chunked/") != std::string::npos;
  std::size_t left = std::strtoull(request.c_str() + number + 1, nullptr, 10);
  std::string head = "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\nConnection: close\r\n";
  head += chunked ? "Transfer-Encoding: chunked\r\n\r\n" : "Content-Length: " + std::to_string(left) + "\r\n\r\n";
  if (left <= kSmallBody && !chunked) {
    client.write(head + std::string(left, 'x'));
    return;
  }
  char size_line[32];
  std::snprintf(size_line, sizeof size_line, "%zx\r\n", kPieceSize);
  const std::string piece = chunked ? size_line + std::string(kPieceSize, 'x') + "\r\n" : std::string(kPieceSize, 'x');
  if (!client.write(head)) return;
  for (; left >= kPieceSize; left -= kPieceSize)
    if (!client.write(piece)) return;
  if (chunked) client.write("0\r\n\r\n");
}

pid_t start_server(const Listener& listener, SSL_CTX* context) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  std::signal(SIGPIPE, SIG_IGN);
  for (;;) {
    Client client(accept(listener.socket, nullptr, nullptr), context);
    if (client.accept()) serve(client);
  }
}

// --- The clients: one request each, the body in memory; the number of body bytes, or -1 ---------------------------------

using Request = std::function<long(const std::string& url)>;

long with_yinet(const std::string& url) {
  HTTP http;
  YBuffer body;
  YString type;
  YString status;
  return http.Get(YString(url), body, type, status) ? body.Size() : -1;
}

std::size_t keep(char* bytes, std::size_t size, std::size_t count, void* buffer) {
  static_cast<YBuffer*>(buffer)->Add(bytes, static_cast<long>(size * count));
  return size * count;
}

long with_curl(CURL* handle, const std::string& url) {
  YBuffer body;
  curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
  curl_easy_setopt(handle, CURLOPT_FORBID_REUSE, 1L);
  curl_easy_setopt(handle, CURLOPT_PROXY, "");
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 0L);
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 0L);
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, keep);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, &body);
  return curl_easy_perform(handle) == CURLE_OK ? body.Size() : -1;
}

long with_one_handle(const std::string& url) {  // TLS sessions are resumed, connections are not
  static CURL* const handle = curl_easy_init();
  return with_curl(handle, url);
}

long with_new_handles(const std::string& url) {
  CURL* const handle = curl_easy_init();
  const long size = with_curl(handle, url);
  curl_easy_cleanup(handle);
  return size;
}

// `count` requests, each with a body of `expected` bytes.
Work requests(Request request, const std::string& url, int count, long expected) {
  return [=](Stopwatch& watch) {
    request(url.substr(0, url.rfind('/')) + "/1");  // one-time set-up of the libraries is not what is compared
    watch.restart();
    for (int i = 0; i < count; ++i)
      if (request(url) != expected) return false;
    return true;
  };
}

}  // namespace

int main(int argc, char** argv) {
  const auto argument = [&](int index, int otherwise) { return argc > index ? std::atoi(argv[index]) : otherwise; };
  const int count = argument(1, 500);
  const long body = static_cast<long>(argument(2, 1024)) << 20;
  const int runs = argument(3, 5);
  curl_global_init(CURL_GLOBAL_DEFAULT);
  print_machine(curl_version());

  const yinet::test::PemPair certificate = yinet::test::Certificates::shared().good();
  SSL_CTX* const context = SSL_CTX_new(TLS_server_method());
  if (SSL_CTX_use_certificate_file(context, certificate.certificate.c_str(), SSL_FILETYPE_PEM) != 1 ||
      SSL_CTX_use_PrivateKey_file(context, certificate.key.c_str(), SSL_FILETYPE_PEM) != 1)
    give_up("certificate");
  const Listener plain = listen_on_loopback();
  const Listener tls = listen_on_loopback();
  const pid_t servers[] = {start_server(plain, nullptr), start_server(tls, context)};
  const auto url = [&](bool secure, const char* form, long size) {
    return (secure ? "https://127.0.0.1:" : "http://127.0.0.1:") + std::to_string(secure ? tls.port : plain.port) +
           "/" + form + "/" + std::to_string(size);
  };
  const auto with_settings = [](const char* pause, const char* exact) {
    return [=](const std::string& target) {
      using namespace yinet;
      set_setting(settings::kConnectPause.section, settings::kConnectPause.name, pause);
      set_setting(settings::kHttpExactReader.section, settings::kHttpExactReader.name, exact);
      return with_yinet(target);
    };
  };

  std::printf("\n%d requests of 1 KB on new connections; one body of %ld MiB\n\n", count, body >> 20);
  print_table_head("libcurl");
  for (const bool secure : {false, true}) {
    const auto small = [&](Request request) {
      return requests(std::move(request), url(secure, "counted", kSmallBody), count, kSmallBody);
    };
    compare(secure ? "requests, TLS" : "requests, plain",
            {{"yinet, pause 50 ms", small(with_settings("50", "0"))},
             {"yinet, pause 0", small(with_settings("0", "0"))},
             {"libcurl, one handle", small(with_one_handle)},
             {"libcurl, new handles", small(with_new_handles)}},
            runs);
    for (const char* const form : {"counted", "chunked"}) {
      const auto large = [&](Request request) {
        return requests(std::move(request), url(secure, form, body), 1, body);
      };
      compare((std::string(form) + (secure ? ", TLS" : ", plain")).c_str(),
              {{"yinet", large(with_settings("0", "0"))},
               {"yinet, exact", large(with_settings("0", "1"))},
               {"libcurl", large(with_new_handles)}},
              runs);
    }
  }
  for (const pid_t server : servers) kill(server, SIGTERM);
}
