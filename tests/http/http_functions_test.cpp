// HTTP_GET and HTTP_POST from end to end: against nginx, into a file.

#include <sys/resource.h>

#include <csignal>
#include <filesystem>

#include "http/http_fixture.h"
#include "support/bytes.h"
#include "support/nginx_server.h"
#include "support/requirements.h"
#include "support/temp_dir.h"
#include "yinet/host/yfile.h"
#include "yinet/http/http_body_file.h"
#include "yinet/script/functions.h"

namespace yinet::test {
namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

class HttpFunctions : public HttpTest {
 protected:
  HttpFunctions() { set_temporary_folder(folder_.path().string()); }
  ~HttpFunctions() override { set_temporary_folder(""); }

  YObject& call(void (*function)(YObject*), const std::string& url) {
    parameters().StoreText("pUrl", url);
    function(&block_);
    return parameters();
  }
  YObject& parameters() { return block_.Ensure<YObject>("block"); }
  std::string response() { return read_file(YFileManager.ResolveSystemPath(parameters().GetString("pResponseFile"))); }
  [[nodiscard]] std::size_t files() const {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder_.path()), {}));
  }

  TempDir folder_;
  YObject block_;
};

TEST_F(HttpFunctions, TalkToARealServer) {
  YINET_REQUIRE_PROGRAM("nginx");
  if (!NginxServer::has_echo()) GTEST_SKIP() << "nginx has no echo module: install libnginx-mod-http-echo";
  const NginxServer nginx;
  const std::string big = pattern_bytes(5000011);
  nginx.add_document("big.bin", big);
  const struct {
    const char* path;
    std::string_view status;
    std::optional<std::string_view> body;  // absent: a failure, without a file
  } kCases[] = {
      {"/", "200 OK", NginxServer::kIndex},        {"/big.bin", "200 OK", big},
      {"/chunked/big.bin", "200 OK", big},         {"/empty", "200 OK", ""},
      {"/missing", "404 Not Found", std::nullopt}, {"/redirect/301", "301 Moved Permanently", std::nullopt},
  };
  std::size_t made = 0;
  for (const bool tls : {false, true}) {
    for (const auto& wanted : kCases) {
      const std::string url = tls ? nginx.tls_url(wanted.path) : nginx.url(wanted.path);
      block_.Clear();
      parameters().StoreText("pResponseFile", "before");
      const YObject& result = call(HTTP_GET, url);
      EXPECT_EQ(result.GetType("_RETV"), kTypeBool) << url;
      EXPECT_EQ(result.GetBool("_RETV"), wanted.body.has_value()) << url;
      EXPECT_TRUE(result.GetString("pStatus").Equals(wanted.status)) << url;
      EXPECT_EQ(files(), made += wanted.body.has_value()) << url;
      EXPECT_THAT(result.GetString("pResponseFile").str(), MatchesRegex(wanted.body ? "TEMP:[0-9]+\\.tmp" : "before"));
      if (wanted.body) {
        EXPECT_TRUE(response() == *wanted.body) << url;
      }
    }
  }

  call(HTTP_GET, "");
  EXPECT_EQ(parameters().GetString("pStatus"), "301 Moved Permanently") << "not cleared: the worker wrote none";
  EXPECT_TRUE(call(HTTP_POST, nginx.url("/request")).GetBool("_RETV"));
  EXPECT_THAT(response(), testing::HasSubstr("Content-Length:0\r\n"));

  const std::string bytes = pattern_bytes(300000);
  for (const bool tls : {false, true}) {
    if (tls)
      parameters().Store<YBuffer>("pContent", YBuffer(bytes));
    else
      parameters().StoreText("pContent", bytes);
    EXPECT_TRUE(call(HTTP_POST, tls ? nginx.tls_url("/echo") : nginx.url("/echo")).GetBool("_RETV"));
    EXPECT_TRUE(response() == bytes);
  }
  EXPECT_TRUE(get(nginx.url("/cookies")));
  EXPECT_TRUE(get(nginx.url("/request")));
  EXPECT_THAT(std::string(body()),
              testing::HasSubstr("COOKIE: session=abc123\r\nCOOKIE: lang=de\r\nCOOKIE: empty=\r\n"));
  EXPECT_THAT(log_.numbers(), ElementsAre(21410, 21901));
}

TEST_F(HttpFunctions, FullDiskLeavesNoFileAndTheResultTrue) {
  ScriptedPeer peer(
      after_request().send(std::string(kOk) + "Content-Length: 100000\r\n\r\n" + std::string(100000, 'x')));
  std::signal(SIGXFSZ, SIG_IGN);  // the write then fails in the middle, as on a full disk
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit small{.rlim_cur = 5000, .rlim_max = before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  call(HTTP_GET, peer.url());
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_TRUE(parameters().GetBool("_RETV"));
  EXPECT_FALSE(parameters().Exist("pResponseFile"));
  EXPECT_EQ(files(), 0U);
  EXPECT_THAT(log_.numbers(), ElementsAre(21906));
}

TEST_F(HttpFunctions, BodyFileCountsOnOverFilesAndLinks) {
  folder_.write("8.tmp", "taken");
  std::filesystem::create_symlink(folder_ / "victim", folder_ / "9.tmp");
  folder_.write("999999.tmp", "taken");
  EXPECT_EQ(write_body_file("a", 7), YString("TEMP:10.tmp"));
  EXPECT_EQ(write_body_file("b", 999998), YString("TEMP:0.tmp"));
  EXPECT_EQ(read_file(folder_ / "10.tmp"), "a");
  EXPECT_FALSE(std::filesystem::exists(folder_ / "victim"));
  const auto rights = std::filesystem::status(folder_ / "10.tmp").permissions();
  EXPECT_EQ(rights, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

}  // namespace
}  // namespace yinet::test
