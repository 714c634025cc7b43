// Files over FTP, in clear and with explicit TLS, this library beside libcurl and the programs curl and lftp, against
// vsftpd on loopback. Files lie in memory (TMPDIR, otherwise /dev/shm). Uploads are measured from the first byte sent
// where the client can tell it: ftps reads the file before it opens the connection for it.
//
//   ftp_bench [small files] [large file MiB] [runs] [only]        default: 1000 1024 5, all comparisons
//
// `only` chooses comparisons by a part of their name, "upload, TLS" for example.

#include <curl/curl.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "side_by_side.h"
#include "support/bytes.h"
#include "support/requirements.h"
#include "support/servers.h"
#include "support/temp_dir.h"
#include "yinet/ftp/ftps.h"
#include "yinet/host/setting_table.h"
#include "yinet/script/functions.h"

namespace {

using namespace yinet::bench;
namespace fs = std::filesystem;
using yinet::test::FtpServer;

constexpr std::size_t kSmallSize = 10'000;
constexpr int kFilesWithPause = 20;
constexpr int kPlainType = 1;
constexpr int kTlsType = 4;

// What one round of a comparison is about.
struct Place {
  const FtpServer* server;
  bool tls;
  fs::path local;  // folder

  [[nodiscard]] std::string url(const std::string& name) const { return "ftp://" + server->address() + "/" + name; }
  [[nodiscard]] std::string account() const { return server->user() + ":" + server->password(); }
};

bool same_content(const fs::path& a, const fs::path& b) {
  struct Mapped {
    explicit Mapped(const fs::path& path) : size(fs::file_size(path)) {
      const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
      bytes = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file, 0);
      close(file);
    }
    ~Mapped() { munmap(bytes, size); }
    Mapped(const Mapped&) = delete;
    Mapped& operator=(const Mapped&) = delete;
    std::size_t size;
    void* bytes;
  };
  if (!fs::exists(a) || !fs::exists(b) || fs::file_size(a) != fs::file_size(b)) return false;
  const Mapped first(a);
  const Mapped second(b);
  return std::memcmp(first.bytes, second.bytes, first.size) == 0;
}

void write_pattern(const fs::path& path, std::size_t size) {
  const std::string block = yinet::test::pattern_bytes(std::size_t{1} << 20);
  std::ofstream file(path, std::ios::binary);
  for (std::size_t done = 0; done < size; done += block.size())
    file.write(block.data(), static_cast<std::streamsize>(std::min(block.size(), size - done)));
  if (!file.flush()) give_up(path.string());
}

// --- This library ------------------------------------------------------------------------------------------------------

void set_pause(const char* milliseconds) {
  yinet::set_setting(yinet::settings::kConnectPause.section, yinet::settings::kConnectPause.name, milliseconds);
}

ftps client(const Place& place) {
  return ftps(YString(place.server->address()), YString(place.server->user()), YString(place.server->password()),
              place.tls ? kTlsType : kPlainType, "");
}

Work yinet_download(const Place& place) {
  return [place](Stopwatch& watch) {
    set_pause("0");
    watch.restart();
    ftps ftp = client(place);
    return ftp.connect() == 0 && ftp.download_file("large", YString((place.local / "large").string()), 2) == 0 &&
           ftp.closeconnection() == 0;
  };
}

Work yinet_upload(const Place& place, bool from_first_byte) {
  return [=](Stopwatch& watch) {
    set_pause("0");
    watch.restart();
    ftps ftp = client(place);
    bool begun = !from_first_byte;
    ftp.on_progress([&](std::int64_t, std::int64_t) {
      if (!std::exchange(begun, true)) watch.restart();
    });
    return ftp.connect() == 0 && ftp.upload_file(YString((place.local / "source").string()), "uploaded", 2) == 0 &&
           ftp.closeconnection() == 0;
  };
}

Work yinet_small(const Place& place, bool upload, int files, const char* pause) {
  return [=](Stopwatch& watch) {
    set_pause(pause);
    YObject parameters;
    parameters.Store<YString>("pHOST", YString(place.server->address()));
    parameters.Store<YString>("pUser", YString(place.server->user()));
    parameters.Store<YString>("pPasswd", YString(place.server->password()));
    parameters.Store<std::int32_t>("pFTPTyp", place.tls ? kTlsType : kPlainType);
    parameters.Store<YString>("pZielverzeichnis", YString((place.local / "small").string()));
    YObject block;
    for (int i = 0; i < files; ++i) {
      const YString name(std::to_string(i));
      parameters.Store<YString>("pDateiname", name);
      parameters.Store<YString>("pQuellDateiname", YString((place.local / "small").string()) + "/" + name);
      parameters.Store<YString>("pZieldateiname", name);
      block.Store<YObject>("PARAMETER", parameters);
      if (i == 0) watch.restart();
      (upload ? FTPS_UPLOAD : FTPS_DOWNLOADDATEI)(&block);
      if (block.FindAt<YObject>(0)->GetInteger("_RETV") != 1) return false;
    }
    return true;
  };
}

// --- libcurl -----------------------------------------------------------------------------------------------------------

using CurlHandle = std::unique_ptr<CURL, decltype(&curl_easy_cleanup)>;
using CFile = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

struct CurlSource {
  std::FILE* file;
  Stopwatch* watch;  // null: from the beginning
};

std::size_t read_source(char* bytes, std::size_t size, std::size_t count, void* data) {
  auto& source = *static_cast<CurlSource*>(data);
  if (source.watch != nullptr) std::exchange(source.watch, nullptr)->restart();
  return std::fread(bytes, size, count, source.file);
}

std::size_t write_target(char* bytes, std::size_t size, std::size_t count, void* file) {
  return std::fwrite(bytes, size, count, static_cast<std::FILE*>(file));
}

bool curl_transfer(CURL* handle, const Place& place, const std::string& remote, const fs::path& local, bool upload,
                   Stopwatch* watch) {
  const CFile file(std::fopen(local.c_str(), upload ? "rb" : "wb"), &std::fclose);
  if (!file) return false;
  CurlSource source{file.get(), watch};
  curl_easy_setopt(handle, CURLOPT_URL, place.url(remote).c_str());
  curl_easy_setopt(handle, CURLOPT_USERPWD, place.account().c_str());
  curl_easy_setopt(handle, CURLOPT_PROXY, "");
  curl_easy_setopt(handle, CURLOPT_USE_SSL, place.tls ? CURLUSESSL_ALL : CURLUSESSL_NONE);
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 0L);
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 0L);
  curl_easy_setopt(handle, CURLOPT_FORBID_REUSE, 1L);
  curl_easy_setopt(handle, CURLOPT_UPLOAD, upload ? 1L : 0L);
  if (upload) {
    curl_easy_setopt(handle, CURLOPT_READFUNCTION, read_source);
    curl_easy_setopt(handle, CURLOPT_READDATA, &source);
    curl_easy_setopt(handle, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(fs::file_size(local)));
  } else {
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, write_target);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, file.get());
  }
  return curl_easy_perform(handle) == CURLE_OK;
}

Work curl_large(const Place& place, bool upload, bool from_first_byte) {
  return [=](Stopwatch& watch) {
    watch.restart();
    const CurlHandle handle(curl_easy_init(), &curl_easy_cleanup);
    return curl_transfer(handle.get(), place, upload ? "uploaded" : "large",
                         place.local / (upload ? "source" : "large"), upload, from_first_byte ? &watch : nullptr);
  };
}

Work curl_small(const Place& place, bool upload, int files, bool one_handle) {
  return [=](Stopwatch& watch) {
    watch.restart();
    CurlHandle handle(curl_easy_init(), &curl_easy_cleanup);
    for (int i = 0; i < files; ++i) {
      const std::string name = std::to_string(i);
      if (!one_handle && i > 0) handle.reset(curl_easy_init());
      if (!curl_transfer(handle.get(), place, name, place.local / "small" / name, upload, nullptr)) return false;
    }
    return true;
  };
}

// --- Programs ----------------------------------------------------------------------------------------------------------

Work program(std::vector<std::string> argv) {
  return [argv = std::move(argv)](Stopwatch& watch) {
    watch.restart();
    const pid_t pid = fork();
    if (pid == 0) {
      const int nowhere = open("/dev/null", O_RDWR);
      dup2(nowhere, STDOUT_FILENO);
      dup2(nowhere, STDERR_FILENO);
      std::vector<char*> raw;
      for (const std::string& text : argv) raw.push_back(const_cast<char*>(text.c_str()));
      raw.push_back(nullptr);
      execvp(raw[0], raw.data());
      _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
  };
}

Work curl_program(const Place& place, bool upload) {
  std::vector<std::string> argv = {"curl", "-q", "-s", "-k", "--noproxy", "*", "-u", place.account()};
  if (place.tls) argv.emplace_back("--ssl-reqd");
  if (upload) argv.insert(argv.end(), {"-T", (place.local / "source").string(), place.url("uploaded")});
  else argv.insert(argv.end(), {"-o", (place.local / "large").string(), place.url("large")});
  return program(std::move(argv));
}

Work lftp_program(const Place& place, bool upload) {
  const std::string secure =
      place.tls ? "set ftp:ssl-force true; set ftp:ssl-protect-data true; " : "set ftp:ssl-allow false; ";
  const std::string work = upload ? "put " + (place.local / "source").string() + " -o uploaded"
                                  : "get large -o " + (place.local / "large").string();
  return program(
      {"lftp", "-c",
       "set cmd:fail-exit true; set net:max-retries 1; set ssl:verify-certificate false; set xfer:clobber true; " +
           secure + "open -u " + place.server->user() + "," + place.server->password() + " ftp://" +
           place.server->address() + "; " + work});
}

// --- Comparisons --------------------------------------------------------------------------------------------------------

std::string g_only;  // part of the names of comparisons to make

bool is_wanted(const std::string& what) { return what.find(g_only) != std::string::npos; }

// Every client must bring the same bytes before it is timed.
void compare_checked(const std::string& what, const std::vector<Contender>& contenders, int runs,
                     const fs::path& result, const fs::path& wanted) {
  if (!is_wanted(what)) return;
  for (const Contender& contender : contenders) {
    fs::remove(result);
    Stopwatch watch;
    if (contender.work(watch) && same_content(result, wanted)) continue;
    std::printf("%s: %s does not bring the file\n", what.c_str(), contender.name.c_str());
    std::exit(1);
  }
  compare(what, contenders, runs);
}

void compare_large(const Place& place, int runs) {
  const std::string suffix = place.tls ? ", TLS" : ", plain";
  const fs::path uploaded = place.server->folder() / "uploaded";
  const fs::path source = place.local / "source";
  const bool lftp = yinet::test::missing_program("lftp").empty();
  const bool curl = yinet::test::missing_program("curl").empty();
  const auto with_programs = [&](bool upload, std::vector<Contender> contenders) {
    if (curl) contenders.insert(contenders.begin() + 1, {"curl", curl_program(place, upload)});
    if (lftp) contenders.insert(contenders.begin() + 1, {"lftp", lftp_program(place, upload)});
    return contenders;
  };
  fs::create_hard_link(source, place.server->folder() / "large");
  compare_checked(
      "download" + suffix,
      with_programs(false, {{"yinet", yinet_download(place)}, {"libcurl", curl_large(place, false, false)}}), runs,
      place.local / "large", source);
  fs::remove(place.local / "large");
  fs::remove(place.server->folder() / "large");
  compare_checked("upload" + suffix,
                  with_programs(true, {{"yinet, file read before", yinet_upload(place, false)},
                                       {"libcurl", curl_large(place, true, false)}}),
                  runs, uploaded, source);
  compare_checked("upload" + suffix + ", from the first byte",
                  {{"yinet", yinet_upload(place, true)}, {"libcurl", curl_large(place, true, true)}}, runs, uploaded,
                  source);
  fs::remove(uploaded);
}

void compare_small(const Place& place, int files, int runs) {
  const fs::path folder = place.local / "small";
  fs::create_directories(folder);
  for (int i = 0; i < files; ++i) {
    write_pattern(folder / std::to_string(i), kSmallSize);
    place.server->add(std::to_string(i), "");  // made now, so that all uploads find the same
  }
  const int few = std::min(files, kFilesWithPause);
  for (const bool upload : {true, false}) {
    const std::string what = std::string(upload ? "uploads" : "downloads") + (place.tls ? ", TLS" : ", plain");
    const auto rows = [&](int count, const char* pause) {
      return std::vector<Contender>{
          {std::string("yinet, pause ") + pause + " ms", yinet_small(place, upload, count, pause)},
          {"libcurl, one handle", curl_small(place, upload, count, true)},
          {"libcurl, new handles", curl_small(place, upload, count, false)}};
    };
    if (!is_wanted(what)) continue;
    compare(std::to_string(few) + " " + what, rows(few, "50"), 1);
    compare(std::to_string(files) + " " + what, rows(files, "0"), runs);
    for (int i = 0; i < files; ++i) {
      const std::string name = std::to_string(i);
      if (same_content(folder / name, place.server->folder() / name)) continue;
      std::printf("%s: file %d is not the same on both sides\n", what.c_str(), i);
      std::exit(1);
    }
  }
  fs::remove_all(folder);
}

}  // namespace

int main(int argc, char** argv) {
  const auto argument = [&](int index, int otherwise) { return argc > index ? std::atoi(argv[index]) : otherwise; };
  const int files = argument(1, 1000);
  const std::size_t size = static_cast<std::size_t>(argument(2, 1024)) << 20;
  const int runs = argument(3, 5);
  if (argc > 4) g_only = argv[4];
  setenv("TMPDIR", "/dev/shm", 0);
  curl_global_init(CURL_GLOBAL_DEFAULT);
  print_machine(curl_version());
  std::printf("\n%d files of %zu bytes on new connections; one file of %zu MiB\n\n", files, kSmallSize, size >> 20);
  print_table_head("libcurl");

  const yinet::test::TempDir local("bench");
  write_pattern(local / "source", size);
  fs::permissions(local / "source", fs::perms::others_read, fs::perm_options::add);
  for (const bool tls : {false, true}) {
    const FtpServer server({.brand = yinet::test::FtpBrand::vsftpd, .tls = tls});
    const Place place{&server, tls, local / ""};
    if (size > 0) compare_large(place, runs);
    if (files > 0) compare_small(place, files, runs);
  }
}
