// A host loads the library at run time and may drop it again. Both must leave the process as it was.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <clocale>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>

namespace {

struct Closer {
  void operator()(void* library) const { dlclose(library); }
};
using Library = std::unique_ptr<void, Closer>;

Library load(const char* file = YINET_LIBRARY) {
  Library library(dlopen(file, RTLD_NOW | RTLD_LOCAL));
  EXPECT_TRUE(library) << dlerror();
  return library;
}

std::set<std::string> names_in(const char* folder) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) names.insert(entry.path().filename());
  return names;
}

// What a library has no business with.
struct ProcessState {
  std::size_t threads = names_in("/proc/self/task").size();
  std::set<std::string> descriptors = names_in("/proc/self/fd");
  std::string locale = std::setlocale(LC_ALL, nullptr);
  std::map<int, void (*)(int)> signal_handlers;
  std::set<int> blocked_signals;

  ProcessState() {
    sigset_t mask;
    sigprocmask(SIG_SETMASK, nullptr, &mask);
    for (int number = 1; number < NSIG; ++number) {
      struct sigaction action;
      std::memset(&action, 0, sizeof action);
      if (sigaction(number, nullptr, &action) == 0) signal_handlers[number] = action.sa_handler;
      if (sigismember(&mask, number) == 1) blocked_signals.insert(number);
    }
  }
};

TEST(Load, StartsNothingAndChangesNoGlobalState) {
  std::setlocale(LC_ALL, "C");
  const ProcessState before;
  const Library library = load();
  const ProcessState now;
  EXPECT_EQ(before.threads, now.threads);
  EXPECT_EQ(before.descriptors, now.descriptors);
  EXPECT_EQ(before.locale, now.locale);
  EXPECT_EQ(before.signal_handlers, now.signal_handlers);
  EXPECT_EQ(before.blocked_signals, now.blocked_signals);
}

TEST(Load, LibraryLeavesMemoryEachTimeItIsUnloaded) {
  for (int round = 0; round < 10; ++round) {
    Library library = load();
    ASSERT_TRUE(library);
    const auto version = reinterpret_cast<const char* (*)()>(dlsym(library.get(), "yinet_version"));
    ASSERT_TRUE(version) << dlerror();
    EXPECT_THAT(version(), testing::StrNe(""));
    library.reset();
    EXPECT_FALSE(Library(dlopen(YINET_LIBRARY, RTLD_NOW | RTLD_NOLOAD))) << "something pins it, round " << round;
  }
}

// What the library has set up by then, for itself, for TLS and for the thread, must not be missed when the thread ends. The
// server takes one ClientHello and closes.
TEST(Load, ThreadOutlivesTheLibraryItHasUsed) {
  constexpr char kTlsHandshake = 22;  // content type of a TLS record, RFC 8446 5.1
  for (int round = 0; round < 3; ++round) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const name = reinterpret_cast<sockaddr*>(&address);
    ASSERT_TRUE(bind(listener, name, size) == 0 && listen(listener, 1) == 0 && getsockname(listener, name, &size) == 0);
    std::thread server([&] {
      const int connection = accept(listener, nullptr, nullptr);
      char first = 0;
      EXPECT_EQ(recv(connection, &first, 1, 0), 1);
      EXPECT_EQ(first, kTlsHandshake);
      close(connection);
    });
    std::thread([&] {
      const Library plugin = load(YINET_PLUGIN);
      const auto fetch_fails = reinterpret_cast<bool (*)(const char*)>(dlsym(plugin.get(), "plugin_fetch_fails"));
      ASSERT_TRUE(fetch_fails) << dlerror();
      EXPECT_TRUE(fetch_fails(("https://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/").c_str()));
    }).join();
    shutdown(listener, SHUT_RDWR);  // should nobody have come
    server.join();
    close(listener);
    EXPECT_FALSE(Library(dlopen(YINET_PLUGIN, RTLD_NOW | RTLD_NOLOAD)));
    EXPECT_FALSE(Library(dlopen(YINET_LIBRARY, RTLD_NOW | RTLD_NOLOAD)));
  }
}

}  // namespace
