// A host loads the library at run time and may drop it again. Both must leave the process as it was.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include <clocale>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>

namespace {

struct Closer {
  void operator()(void* library) const { dlclose(library); }
};
using Library = std::unique_ptr<void, Closer>;

Library load() {
  Library library(dlopen(YINET_LIBRARY, RTLD_NOW | RTLD_LOCAL));
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

void expect_same(const ProcessState& before, const ProcessState& now) {
  EXPECT_EQ(before.threads, now.threads);
  EXPECT_EQ(before.descriptors, now.descriptors);
  EXPECT_EQ(before.locale, now.locale);
  EXPECT_EQ(before.signal_handlers, now.signal_handlers);
  EXPECT_EQ(before.blocked_signals, now.blocked_signals);
}

TEST(Load, StartsNothingAndChangesNoGlobalState) {
  std::setlocale(LC_ALL, "C");
  const ProcessState before;
  const Library library = load();
  expect_same(before, ProcessState());
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

}  // namespace
