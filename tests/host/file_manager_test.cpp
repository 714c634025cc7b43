#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <optional>
#include <set>
#include <thread>

#include "host/file_fixture.h"
#include "support/requirements.h"
#include "yinet/host/message_numbers.h"

namespace {

using namespace std::string_literals;
using yinet::test::read_file;
using yinet::test::write_file;
namespace fs = std::filesystem;
namespace message = yinet::message;

class FileManager : public yinet::test::FileTest {
 protected:
  [[nodiscard]] fs::path usual_folder() const { return base / ("yinet-" + std::to_string(geteuid())); }
  static fs::path temporary_folder() { return on_disk("TEMP:").parent_path(); }
  static std::set<std::string> listed(const fs::path& path) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(path)) names.insert(entry.path().filename());
    return names;
  }
};

TEST_F(FileManager, ResolvesNames) {
  yinet::set_setting("Dateien", "LaufwerkC", folder.path().string() + "\\drive/");
  yinet::set_temporary_folder(base.string());
  const std::string temp = base.string();
  const std::string drive = folder.path().string() + "/drive";
  const std::string here = fs::current_path();
  const struct {
    YString name;
    std::string path;
  } rows[] = {
      {"TEMP:", temp + "/"},
      {"temp:x.tmp", temp + "/x.tmp"},
      {"Temp:\\x.tmp", temp + "/x.tmp"},
      {"TEMP:/x.tmp", temp + "/x.tmp"},
      {"TEMP:~EML\\", temp + "/~EML/"},
      {"TEMP:~EML", temp + "/~EML"},
      {"TEMP:a\\.\\b//..\\c", temp + "/a/c"},
      {"TEMP:a\\..", temp + "/"},
      {"/a\\b/../c", "/a/b/../c"},
      {"\\a\\", "/a/"},
      {"x\\y", here + "/x/y"},
      {"TEMPO", here + "/TEMPO"},
      {"C:\\a\\b", drive + "/a/b"},
      {"c:/a/", drive + "/a/"},
      {"C:", drive + "/"},
      {"C:\\..\\..\\a", drive + "/a"},
      {"", ""},
      {"TEMP:..", ""},
      {"TEMP:a\\..\\..\\b", ""},
      {"TEMP:a\0b"s, ""},
      {"/a\0b"s, ""},
      {"D:\\a", ""},
      {"/\xE4/\xD0\x9F/\x80", "/\xE4/\xD0\x9F/\x80"},
  };
  for (const auto& row : rows) EXPECT_EQ(YFileManager.ResolvePath(row.name).str(), row.path) << row.name.str();
  EXPECT_EQ(times_logged(message::kFileNameRefused), 4);
  EXPECT_EQ(times_logged(message::kDriveNotMapped), 1);
  EXPECT_EQ(YFileManager.ResolveSystemPath("/\xE4/\xD0\x9F/\x80"), "/\xC3\xA4/\xD0\x9F/\xE2\x82\xAC");
}

TEST_F(FileManager, AResolvedNameFindsItsFileAgain) {
  for (const std::string name : {"\xC3\xA4.txt", "\xD0\x9F.txt", "\xC3\x83\xC2\xA4.txt", "\xE2\x82\xAC"}) {  // on disk
    folder.write(name, name);
    const YString text = YFileManager.ResolvePath(YString((folder / name).string()));
    EXPECT_EQ(YFileManager.ResolveSystemPath(text), (folder / name).string());
    EXPECT_EQ(YFileManager.ResolvePath(text), text);
  }
}

TEST_F(FileManager, DriveSettingThatIsNoFolderOfTheSystemIsNotUsed) {
  for (const char* value : {"C:\\again", "TEMP:", ""}) {
    yinet::set_setting("Dateien", "LaufwerkC", value);
    EXPECT_EQ(YFileManager.ResolvePath("C:\\x"), "") << value;
  }
  EXPECT_EQ(times_logged(message::kDriveNotMapped), 3);
}

TEST_F(FileManager, TemporaryFolderIsPrivateAndStaysTheSame) {
  EXPECT_FALSE(fs::exists(usual_folder()));
  EXPECT_EQ(temporary_folder(), usual_folder());
  struct stat facts {};
  ASSERT_EQ(lstat(usual_folder().c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode & 07777, 0700U);
  EXPECT_EQ(temporary_folder(), usual_folder());
  fs::remove(usual_folder());  // a cleaner came by
  EXPECT_EQ(temporary_folder(), usual_folder());
  EXPECT_TRUE(fs::exists(usual_folder()));
  EXPECT_EQ(times_logged(message::kTemporaryFolderUnusable), 0);
}

// What somebody may have put there before us.
TEST_F(FileManager, WhatIsPlantedInPlaceOfTheTemporaryFolderIsNotUsed) {
  const fs::path elsewhere = folder.make_folder("elsewhere");
  chmod(elsewhere.c_str(), 0700);
  const auto own_folder = [](mode_t mode) {
    return [mode](const fs::path& place) {
      fs::create_directory(place);
      chmod(place.c_str(), mode);
    };
  };
  struct Row {
    const char* what;
    std::function<void(const fs::path&)> plant;
  };
  std::vector<Row> rows = {
      {"a link to a folder of ours", [&](const fs::path& place) { fs::create_directory_symlink(elsewhere, place); }},
      {"a link to nowhere", [](const fs::path& place) { fs::create_symlink("nowhere", place); }},
      {"a file", [](const fs::path& place) { write_file(place, "x"); }},
      {"a folder that others can read", own_folder(0755)},
      {"a folder that others can write to", own_folder(0777)},
  };
  if (geteuid() == 0) {
    rows.push_back({"somebody else's folder", [&](const fs::path& place) {
                      own_folder(0700)(place);
                      ASSERT_EQ(chown(place.c_str(), 65534, 65534), 0);
                    }});
  }
  long times = 0;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    const fs::path own_base = folder.make_folder("base" + std::to_string(times));
    yinet::set_setting("Dateien", "TempVerzeichnis", own_base.string());
    const fs::path planted = own_base / usual_folder().filename();
    row.plant(planted);
    const fs::path used = temporary_folder();
    EXPECT_NE(used, planted);
    EXPECT_TRUE(used.string().starts_with(planted.string() + "-")) << used;
    EXPECT_EQ(times_logged(message::kTemporaryFolderUnusable), ++times);
    YFile file("TEMP:x");
    EXPECT_TRUE(file.Open(yinet::kCreateNew, yinet::kAccessWrite));
    EXPECT_EQ(temporary_folder(), used) << "for the rest of the process";
    EXPECT_EQ(times_logged(message::kTemporaryFolderUnusable), times) << "said once";
    EXPECT_FALSE(fs::exists(planted / "x"));
  }
  EXPECT_TRUE(fs::is_empty(elsewhere));
}

TEST_F(FileManager, TemporaryFolderReplacedByALinkLaterIsNotUsed) {
  YFile file("TEMP:x");
  ASSERT_TRUE(file.Open(yinet::kCreateNew, yinet::kAccessWrite));
  const fs::path elsewhere = folder.make_folder("elsewhere");
  fs::rename(usual_folder(), folder / "moved");
  fs::create_directory_symlink(elsewhere, usual_folder());
  EXPECT_TRUE(file.Open(yinet::kOpenAlways, yinet::kAccessWrite));
  EXPECT_NE(temporary_folder(), usual_folder());
  EXPECT_TRUE(fs::is_empty(elsewhere));
}

TEST_F(FileManager, WithoutAUsableBaseTemporaryNamesFailAndTheLogSaysSo) {
  for (const char* bad : {"/proc/nowhere", "/dev/null", "Q:\\temp"}) {
    yinet::set_setting("Dateien", "TempVerzeichnis", bad);
    EXPECT_EQ(YFileManager.ResolvePath("TEMP:x"), "") << bad;
    YFile file("TEMP:x");
    EXPECT_FALSE(file.Open(yinet::kOpenAlways, yinet::kAccessWrite)) << bad;
    EXPECT_NE(file.LastError(), 0) << bad;
  }
  EXPECT_EQ(times_logged(message::kTemporaryFolderUnusable), 4);
  EXPECT_EQ(times_logged(message::kDriveNotMapped), 2);
}

TEST_F(FileManager, TheEnvironmentNamesTheBaseWhenNoSettingDoes) {
  const char* const set = std::getenv("TMPDIR");
  const std::optional<std::string> old = set != nullptr ? std::optional<std::string>(set) : std::nullopt;
  for (const char* setting : {"", "temp:loop"}) {
    yinet::set_setting("Dateien", "TempVerzeichnis", setting);
    setenv("TMPDIR", (base.string() + "//").c_str(), 1);
    EXPECT_EQ(temporary_folder(), usual_folder()) << setting;
  }
  old ? setenv("TMPDIR", old->c_str(), 1) : unsetenv("TMPDIR");
}

TEST_F(FileManager, TheHostMayChooseTheTemporaryFolder) {
  const fs::path chosen = folder / "chosen";
  yinet::set_temporary_folder(chosen.string() + "/");
  EXPECT_EQ(on_disk("TEMP:x"), chosen / "x");
  EXPECT_TRUE(fs::is_directory(chosen)) << "made on first use";
  yinet::set_temporary_folder((folder / "no/such").string());
  EXPECT_EQ(YFileManager.ResolvePath("TEMP:x"), "");
  EXPECT_EQ(times_logged(message::kTemporaryFolderUnusable), 1);
  yinet::set_temporary_folder("");
  EXPECT_EQ(temporary_folder(), usual_folder());
}

TEST_F(FileManager, ThreadsGetOneTemporaryFolder) {
  fs::create_symlink("nowhere", usual_folder());  // so that its name can't be foreseen
  std::vector<std::string> found(8);
  std::vector<std::thread> threads;
  for (std::string& path : found) {
    threads.emplace_back([&path] {
      for (int round = 0; round < 50; ++round) path = YFileManager.ResolveSystemPath("TEMP:x");
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(std::set<std::string>(found.begin(), found.end()).size(), 1U);
  EXPECT_EQ(times_logged(message::kTemporaryFolderUnusable), 1);
}

TEST_F(FileManager, CreatesFoldersWithAllAboveThem) {
  const mode_t mask = umask(022);
  for (const YString& name : {YString("TEMP:a\\b\\c\\"), name_of("a\\b/c")}) {
    EXPECT_FALSE(YFileManager.FolderExists(name));
    EXPECT_TRUE(YFileManager.CreateFolder(name));
    EXPECT_TRUE(YFileManager.CreateFolder(name)) << "there already";
    EXPECT_TRUE(YFileManager.FolderExists(name + "\\"));
    struct stat facts {};
    ASSERT_EQ(stat(on_disk(name).c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777, name.StartsWith("TEMP:") ? 0700U : 0755U);
  }
  folder.write("file", "");
  EXPECT_FALSE(YFileManager.CreateFolder(name_of("file")));
  EXPECT_FALSE(YFileManager.CreateFolder(name_of("file/sub")));
  EXPECT_FALSE(YFileManager.FolderExists(name_of("file")));
  EXPECT_FALSE(YFileManager.CreateFolder("TEMP:..\\x"));
  EXPECT_TRUE(YFileManager.CreateFolder("TEMP:"));
  umask(mask);
}

TEST_F(FileManager, FoldersBehindLinksInTheTemporaryFolderDoNotCount) {
  const fs::path elsewhere = folder.make_folder("elsewhere/sub");
  fs::create_directory_symlink(elsewhere.parent_path(), on_disk("TEMP:") / "link");
  for (const char* name : {"TEMP:link", "TEMP:link\\", "TEMP:link\\sub", "TEMP:link\\new"}) {
    EXPECT_FALSE(YFileManager.FolderExists(name)) << name;
    EXPECT_FALSE(YFileManager.CreateFolder(name)) << name;
    EXPECT_FALSE(YFileManager.EmptyFolder(name)) << name;
    EXPECT_TRUE(YFileManager.ListFolder(name).empty()) << name;
  }
  EXPECT_EQ(listed(elsewhere.parent_path()), std::set<std::string>{"sub"});
}

TEST_F(FileManager, EmptiesAFolderButNothingBehindItsLinks) {
  const fs::path outside = folder.write("outside/kept", "precious");
  ASSERT_TRUE(YFileManager.CreateFolder("TEMP:~EML\\sub\\deep\\deeper"));
  const fs::path eml = on_disk("TEMP:~EML");
  for (const char* name :
       {"a", "sub/b", "sub/deep/c", "sub/deep/deeper/d", ".hidden", "-rf", "bad \xFF name", "line\nbreak"}) {
    write_file(eml / name, "x");
  }
  fs::create_directory(eml / ".deleted-1");  // a name that the work itself might use
  write_file(eml / ".deleted-1/x", "x");
  for (const char* where : {"", "sub", "sub/deep"}) {
    fs::create_symlink(outside, eml / where / "file link");
    fs::create_directory_symlink(outside.parent_path(), eml / where / "folder link");
    fs::create_symlink("nowhere", eml / where / "dangling");
    mkfifo((eml / where / "pipe").c_str(), 0600);
  }
  EXPECT_TRUE(YFileManager.EmptyFolder("TEMP:~EML\\"));
  EXPECT_TRUE(fs::is_empty(eml));
  EXPECT_EQ(read_file(outside), "precious");
  EXPECT_TRUE(YFileManager.EmptyFolder("TEMP:~EML\\")) << "empty already";
  EXPECT_FALSE(YFileManager.EmptyFolder("TEMP:missing"));
  EXPECT_FALSE(YFileManager.EmptyFolder(YString(outside.string())));
}

TEST_F(FileManager, EmptiesFoldersOutsideTheTemporaryOneUnlessTheyAreLinks) {
  folder.write("real/file", "x");
  fs::create_directory_symlink("real", folder / "link");
  EXPECT_FALSE(YFileManager.EmptyFolder(name_of("link")));
  EXPECT_FALSE(YFileManager.EmptyFolder(name_of("link\\")));
  EXPECT_TRUE(fs::exists(folder / "real/file"));
  EXPECT_TRUE(YFileManager.EmptyFolder(name_of("real/")));
  EXPECT_TRUE(fs::is_empty(folder / "real"));
}

// Deeper than a path can name and than the process may open folders.
TEST_F(FileManager, EmptiesATreeOfAnyDepth) {
  constexpr int kDepth = 600;
  int level = open(on_disk("TEMP:").c_str(), O_PATH | O_DIRECTORY);
  for (int depth = 0; depth < kDepth; ++depth) {
    ASSERT_EQ(mkdirat(level, "subfolder", 0700), 0);
    const int next = openat(level, "subfolder", O_PATH | O_DIRECTORY);
    close(level);
    level = next;
  }
  close(level);
  rlimit usual{};
  getrlimit(RLIMIT_NOFILE, &usual);
  const rlimit few{64, usual.rlim_max};
  setrlimit(RLIMIT_NOFILE, &few);
  EXPECT_TRUE(YFileManager.EmptyFolder("TEMP:"));
  setrlimit(RLIMIT_NOFILE, &usual);
  EXPECT_TRUE(fs::is_empty(on_disk("TEMP:")));
}

TEST_F(FileManager, WhatBelongsToSomebodyElseIsNotEmptied) {
  YINET_REQUIRE_ROOT();
  const fs::path foreign = folder.write("foreign/file", "x").parent_path();
  ASSERT_EQ(chown(foreign.c_str(), 65534, 65534), 0);
  EXPECT_FALSE(YFileManager.EmptyFolder(YString(foreign.string())));
  EXPECT_TRUE(fs::exists(foreign / "file"));
}

TEST_F(FileManager, WhatCantBeDeletedIsReportedAndTheRestGoes) {
  const fs::path mixed = folder.make_folder("mixed");
  for (const char* name : {"a", "locked/inner/stays", "open/b", "open/locked/inner/stays", "z"}) {
    folder.write("mixed/" + std::string(name), "x");
  }
  const fs::path shut = folder.write("shut/stays", "x").parent_path();
  const bool root = geteuid() == 0;
  for (const char* name :
       {"mixed/locked/inner", "mixed/locked", "mixed/open/locked/inner", "mixed/open/locked", "shut"}) {
    chmod((folder / name).c_str(), 0500);
  }
  if (root) {  // root may delete anything: be somebody else for a moment
    for (const fs::path& path : {folder.path(), mixed, mixed / "open", shut}) {
      ASSERT_EQ(chown(path.c_str(), 65534, 65534), 0);
    }
    ASSERT_EQ(seteuid(65534), 0);
  }
  EXPECT_FALSE(YFileManager.EmptyFolder(YString(mixed.string())));
  EXPECT_FALSE(YFileManager.EmptyFolder(YString(shut.string())));
  if (root) {
    ASSERT_EQ(seteuid(0), 0);
  }
  EXPECT_FALSE(fs::exists(mixed / "a"));
  EXPECT_FALSE(fs::exists(mixed / "open/b"));
  EXPECT_FALSE(fs::exists(mixed / "z"));
  EXPECT_TRUE(fs::exists(mixed / "locked/inner/stays"));
}

TEST_F(FileManager, ListsNamesAsText) {
  folder.write("list/\xC3\xA4", "");
  folder.write("list/\xD0\x9F", "");
  folder.make_folder("list/sub");
  std::set<std::string> names;
  for (const YString& name : YFileManager.ListFolder(name_of("list\\"))) names.insert(name.str());
  EXPECT_EQ(names, (std::set<std::string>{"\xE4", "\xD0\x9F", "sub"}));
  EXPECT_TRUE(YFileManager.ListFolder(name_of("missing")).empty());
}

}  // namespace
