// Files over all protocols, this library beside plain libcurl code (one easy handle, stdio files, libcurl's defaults),
// against real servers on loopback. Files lie in memory (TMPDIR, otherwise /dev/shm). One large file, and many of 10 KB over
// one connection. With "ftps" both stay at TLS 1.2, with which libcurl is reliable.
//
//   transfer_bench [MiB] [small files] [runs] [protocol...]      default: 1024 1000 5, all protocols

#include <curl/curl.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "side_by_side.h"
#include "support/bytes.h"
#include "support/servers.h"
#include "support/temp_dir.h"
#include "yinet/filetransfer/yinet_file_transfer.h"

namespace {

namespace fs = std::filesystem;
using namespace yinet::bench;
using namespace yinet::test;

constexpr std::size_t kSmallFile = 10 * 1024;

// --- The servers ----------------------------------------------------------------------------------------------------------

struct Site {
  std::string protocol, url, user, password;
  fs::path folder;
  std::shared_ptr<void> server;
};

Site make_site(const std::string& protocol) {
  if (protocol == "sftp") {
    auto server = std::make_shared<SshServer>();
    return {protocol, "sftp://" + server->address(), SshServer::user(), SshServer::password(), server->folder(),
            server};
  }
  if (protocol.starts_with("http")) {
    auto server = std::make_shared<NginxServer>();
    const std::string url = protocol == "http" ? server->url("") : server->tls_url("");
    return {protocol, url, "", "", server->folder(), server};
  }
  auto server = std::make_shared<FtpServer>(FtpServer::Options{.brand = FtpBrand::vsftpd, .tls = protocol == "ftps"});
  return {protocol, protocol + "://" + server->address(), server->user(), server->password(), server->folder(), server};
}

// --- The two clients ------------------------------------------------------------------------------------------------------

class Client {
 public:
  virtual ~Client() = default;
  virtual bool upload(const fs::path& local, const std::string& remote) = 0;
  virtual bool download(const std::string& remote, const fs::path& local) = 0;
};

class OurClient : public Client {
 public:
  explicit OurClient(const Site& site) {
    transfer_.SetServerUrl(YString(site.url));
    transfer_.SetUsername(YString(site.user));
    transfer_.SetPassword(YString(site.password));
  }
  bool upload(const fs::path& local, const std::string& remote) override {
    return transfer_.UploadFile(YString(local.string()), YString(remote));
  }
  bool download(const std::string& remote, const fs::path& local) override {
    return transfer_.DownloadToFile(YString(remote), YString(local.string()));
  }

 private:
  YInetFileTransfer transfer_;
};

class CurlClient : public Client {
 public:
  explicit CurlClient(const Site& site) : handle_(curl_easy_init(), curl_easy_cleanup) {
    base_ = site.protocol == "ftps" ? "ftp" + site.url.substr(4) : site.url;
    base_ += site.protocol == "sftp" ? site.folder.string() + "/" : "/";
    set(CURLOPT_USERNAME, site.user.empty() ? nullptr : site.user.c_str());
    set(CURLOPT_PASSWORD, site.user.empty() ? nullptr : site.password.c_str());
    if (site.protocol == "ftps") {
      set(CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_ALL));
      set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_MAX_TLSv1_2));
    }
    set(CURLOPT_SSL_VERIFYPEER, 0L);
    set(CURLOPT_SSL_VERIFYHOST, 0L);
  }
  bool upload(const fs::path& local, const std::string& remote) override {
    set(CURLOPT_UPLOAD, 1L);
    return run(local, "rb", CURLOPT_READDATA, remote);
  }
  bool download(const std::string& remote, const fs::path& local) override {
    set(CURLOPT_UPLOAD, 0L);
    return run(local, "wb", CURLOPT_WRITEDATA, remote);
  }

 private:
  template <typename Value>
  void set(CURLoption option, Value value) {
    curl_easy_setopt(handle_.get(), option, value);
  }
  bool run(const fs::path& local, const char* mode, CURLoption data, const std::string& remote) {
    std::FILE* const file = std::fopen(local.c_str(), mode);
    set(data, file);
    set(CURLOPT_URL, (base_ + remote).c_str());
    const bool done = curl_easy_perform(handle_.get()) == CURLE_OK;
    return std::fclose(file) == 0 && done;
  }
  std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> handle_;
  std::string base_;
};

// --- Comparing ------------------------------------------------------------------------------------------------------------

using Transfers = std::function<bool(Client&)>;

void compare_both(const Site& site, const std::string& what, int runs, const Transfers& transfers) {
  const auto work_with = [&]<typename Kind>(std::type_identity<Kind>) {
    return [&](Stopwatch& watch) {
      watch.restart();
      Kind client(site);
      return transfers(client);
    };
  };
  compare(
      site.protocol + " " + what,
      {{"YInet", work_with(std::type_identity<OurClient>())}, {"libcurl", work_with(std::type_identity<CurlClient>())}},
      runs);
}

void require_same(const fs::path& copy, const fs::path& original) {
  std::ifstream a(copy, std::ios::binary), b(original, std::ios::binary);
  using Bytes = std::istreambuf_iterator<char>;
  if (fs::file_size(copy) != fs::file_size(original) || !std::equal(Bytes(a), Bytes(), Bytes(b)))
    give_up("the files differ");
}

void bench(const std::string& protocol, std::size_t megabytes, int files, int runs) {
  const Site site = make_site(protocol);
  const TempDir local("bench");
  const std::string block = pattern_bytes(std::size_t{1} << 20);
  const fs::path large = local / "large", small = local / "small", back = local / "back";
  {
    std::ofstream file(large, std::ios::binary);
    for (std::size_t i = 0; i < megabytes; ++i) file.write(block.data(), static_cast<std::streamsize>(block.size()));
  }
  write_file(small, std::string_view(block).substr(0, kSmallFile));
  const auto many = [&](auto one) -> Transfers {
    return [=](Client& client) {
      for (int i = 0; i < files; ++i)
        if (!one(client, "small" + std::to_string(i))) return false;
      return true;
    };
  };
  if (protocol.starts_with("http")) {
    fs::copy_file(large, site.folder / "large");
    for (int i = 0; i < files; ++i) fs::copy_file(small, site.folder / ("small" + std::to_string(i)));
  } else {
    compare_both(site, "upload, large", runs, [&](Client& client) { return client.upload(large, "large"); });
    require_same(site.folder / "large", large);
    compare_both(site, "upload, small", runs,
                 many([=](Client& client, const std::string& name) { return client.upload(small, name); }));
  }
  compare_both(site, "download, large", runs, [&](Client& client) { return client.download("large", back); });
  require_same(back, large);
  compare_both(site, "download, small", runs,
               many([=](Client& client, const std::string& name) { return client.download(name, back); }));
}

}  // namespace

int main(int argc, char** argv) {
  const auto number = [&](int index, int usual) { return argc > index ? std::atoi(argv[index]) : usual; };
  std::vector<std::string> protocols(argv + std::min(argc, 4), argv + argc);
  if (protocols.empty()) protocols = {"ftp", "ftps", "sftp", "http", "https"};
  if (!std::getenv("TMPDIR")) ::setenv("TMPDIR", "/dev/shm", 1);
  print_machine(curl_version());
  print_table_head("libcurl");
  for (const std::string& protocol : protocols)
    bench(protocol, static_cast<std::size_t>(number(1, 1024)), number(2, 1000), number(3, 5));
}
