// A host loads the library at run time and may drop it again. Both must leave the process as it was.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <clocale>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

#include "yinet/script/yinet_call.h"

namespace {

using Library = std::unique_ptr<void, int (*)(void*)>;
Library opened(int flags = 0) { return Library(dlopen(YINET_LIBRARY, RTLD_NOW | RTLD_LOCAL | flags), &dlclose); }
bool is_loaded() { return opened(RTLD_NOLOAD) != nullptr; }

template <typename Function>
Function* symbol(const Library& library, const char* name) {
  return reinterpret_cast<Function*>(dlsym(library.get(), name));
}

// What a library has no business with: locale, threads, signals, descriptors.
std::string process_state() {
  std::string state = std::setlocale(LC_ALL, nullptr);
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    for (const char* kind : {"Threads:", "SigBlk:", "SigIgn:", "SigCgt:"})
      if (line.starts_with(kind)) state += "\n" + line;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) state += "\n" + entry.path().string();
  return state;
}

TEST(Load, ChangesNoGlobalStateAndLeavesMemoryEachTime) {
  const std::string before = process_state();
  EXPECT_THAT(before, testing::HasSubstr("Threads:\t1\n"));
  for (int round = 0; round < 10; ++round) {
    auto library = opened();
    ASSERT_TRUE(library) << dlerror();
    EXPECT_EQ(process_state(), before);
    EXPECT_THAT(symbol<const char*()>(library, "yinet_version")(), testing::StrNe(""));
    library.reset();
    EXPECT_FALSE(is_loaded()) << "something pins it, round " << round;
  }
}

// What the library has set up by then, for itself, for TLS and for the thread, must not be missed when the thread ends. The
// server takes one ClientHello and closes.
TEST(Load, ThreadOutlivesTheLibraryItHasUsed) {
  constexpr char kTlsHandshake = 22;  // content type of a TLS record, RFC 8446 5.1
  for (int round = 0; round < 3; ++round) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{.sin_family = AF_INET, .sin_port = 0, .sin_addr = {htonl(INADDR_LOOPBACK)}, .sin_zero = {}};
    socklen_t size = sizeof address;
    auto* const name = reinterpret_cast<sockaddr*>(&address);
    ASSERT_TRUE(bind(listener, name, size) == 0 && listen(listener, 1) == 0 && getsockname(listener, name, &size) == 0);
    std::thread caller([&] {
      const auto library = opened();
      const std::string json = R"({"pUrl":"https://127.0.0.1:)" + std::to_string(ntohs(address.sin_port)) + "/\"}";
      char* answer = nullptr;
      EXPECT_EQ(symbol<decltype(yinet_call)>(library, "yinet_call")("HTTP_GET", json.c_str(), &answer), YINET_FAILED);
      symbol<decltype(yinet_free)>(library, "yinet_free")(answer);
    });
    const int connection = accept(listener, nullptr, nullptr);
    char first = 0;
    EXPECT_EQ(recv(connection, &first, 1, 0), 1);
    EXPECT_EQ(first, kTlsHandshake);
    close(connection);
    caller.join();
    close(listener);
    EXPECT_FALSE(is_loaded());
  }
}

}  // namespace
