#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <set>
#include <thread>

#include "host/file_fixture.h"
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
  const std::pair<YString, std::string> rows[] = {{"temp:~EML\\", temp + "/~EML/"},
                                                  {"TEMP:a\\.\\b//..\\c", temp + "/a/c"},
                                                  {"TEMP:a\\..", temp + "/"},
                                                  {"/a\\b/../c", "/a/b/../c"},
                                                  {"TEMPO\\y", fs::current_path().string() + "/TEMPO/y"},
                                                  {"C:\\..\\..\\a", folder.path().string() + "/drive/a"},
                                                  {"", ""},
                                                  {"TEMP:a\\..\\..\\b", ""},
                                                  {"TEMP:a\0b"s, ""},
                                                  {"D:\\a", ""}};
  for (const auto& [name, path] : rows) EXPECT_EQ(YFileManager.ResolvePath(name).str(), path) << name.str();
  EXPECT_EQ(times_logged(message::kFileNameRefused), 2);
  EXPECT_EQ(times_logged(message::kDriveNotMapped), 1);
  EXPECT_EQ(YFileManager.ResolveSystemPath("/\xE4/\xD0\x9F/\x80"), "/\xC3\xA4/\xD0\x9F/\xE2\x82\xAC");
  for (const char* value : {"C:\\again", "TEMP:", ""}) {
    yinet::set_setting("Dateien", "LaufwerkC", value);
    EXPECT_EQ(YFileManager.ResolvePath("C:\\x"), "") << value;
  }
}

TEST_F(FileManager, TemporaryFolderIsPrivateAndStaysTheSame) {
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(temporary_folder(), usual_folder());
    EXPECT_EQ(fs::symlink_status(usual_folder()).permissions(), fs::perms::owner_all);
    fs::remove(usual_folder());  // a cleaner came by
  }
  EXPECT_EQ(times_logged(message::kTemporaryFolderUnusable), 0);
}

TEST_F(FileManager, TheEnvironmentNamesTheBaseWhenNoSettingDoes) {
  setenv("TMPDIR", (base.string() + "//").c_str(), 1);
  for (const char* setting : {"", "temp:loop"}) {
    yinet::set_setting("Dateien", "TempVerzeichnis", setting);
    EXPECT_EQ(temporary_folder(), usual_folder()) << setting;
  }
  unsetenv("TMPDIR");
}

// What somebody may have put there before us.
TEST_F(FileManager, WhatIsPlantedInPlaceOfTheTemporaryFolderIsNotUsed) {
  const fs::path elsewhere = folder.make_folder("elsewhere");
  chmod(elsewhere.c_str(), 0700);
  const std::function<void(const fs::path&)> plants[] = {
      [&](const fs::path& place) { fs::create_directory_symlink(elsewhere, place); },
      [](const fs::path& place) { write_file(place, "x"); },
      [](const fs::path& place) { fs::create_directory(place), chmod(place.c_str(), 0755); },
      [](const fs::path& place) {  // somebody else's, where we can make one
        fs::create_directory(place), chmod(place.c_str(), geteuid() == 0 ? 0700 : 0777);
        static_cast<void>(!chown(place.c_str(), 65534, 65534));
      },
  };
  long times = 0;
  for (const auto& plant : plants) {
    SCOPED_TRACE(times);
    const fs::path own_base = folder.make_folder("base" + std::to_string(times));
    yinet::set_setting("Dateien", "TempVerzeichnis", own_base.string());
    const fs::path planted = own_base / usual_folder().filename();
    plant(planted);
    const fs::path used = temporary_folder();
    EXPECT_TRUE(used.string().starts_with(planted.string() + "-")) << used;
    EXPECT_TRUE(YFile("TEMP:x").Open(yinet::kCreateNew, yinet::kAccessWrite));
    EXPECT_EQ(temporary_folder(), used) << "for the rest of the process";
    EXPECT_EQ(times_logged(message::kTemporaryFolderUnusable), ++times) << "said once";
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
    YFile file("TEMP:x");
    EXPECT_FALSE(file.Open(yinet::kOpenAlways, yinet::kAccessWrite)) << bad;
  }
  EXPECT_EQ(times_logged(message::kTemporaryFolderUnusable), 2);
  const fs::path chosen = folder / "chosen";
  yinet::set_temporary_folder(chosen.string() + "/");
  EXPECT_EQ(on_disk("TEMP:x"), chosen / "x");
  EXPECT_TRUE(fs::is_directory(chosen)) << "made on first use";
  yinet::set_temporary_folder((folder / "no/such").string());
  EXPECT_EQ(YFileManager.ResolvePath("TEMP:x"), "");
}

TEST_F(FileManager, ThreadsGetOneTemporaryFolder) {
  fs::create_symlink("nowhere", usual_folder());  // so that its name can't be foreseen
  std::vector<std::string> found(8);
  std::vector<std::thread> threads;
  for (std::string& path : found)
    threads.emplace_back([&path] { path = YFileManager.ResolveSystemPath("TEMP:x"); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(std::set<std::string>(found.begin(), found.end()).size(), 1U);
  EXPECT_EQ(times_logged(message::kTemporaryFolderUnusable), 1);
}

TEST_F(FileManager, CreatesFoldersWithAllAboveThem) {
  umask(022);
  for (const YString& name : {YString("TEMP:a\\b\\c\\"), name_of("a\\b/c")}) {
    EXPECT_FALSE(YFileManager.FolderExists(name));
    EXPECT_TRUE(YFileManager.CreateFolder(name));
    EXPECT_TRUE(YFileManager.CreateFolder(name)) << "there already";
    EXPECT_TRUE(YFileManager.FolderExists(name + "\\"));
    const auto mode = static_cast<unsigned>(fs::status(on_disk(name)).permissions());
    EXPECT_EQ(mode, name.StartsWith("TEMP:") ? 0700U : 0755U);
  }
  folder.write("file", "");
  EXPECT_FALSE(YFileManager.CreateFolder(name_of("file")) || YFileManager.CreateFolder(name_of("file/sub")));
  folder.write("list/\xC3\xA4", "");
  folder.make_folder("list/\xD0\x9F");
  std::set<std::string> names;
  for (const YString& name : YFileManager.ListFolder(name_of("list\\"))) names.insert(name.str());
  EXPECT_EQ(names, (std::set<std::string>{"\xE4", "\xD0\x9F"}));
}

TEST_F(FileManager, FoldersBehindLinksInTheTemporaryFolderDoNotCount) {
  const fs::path elsewhere = folder.make_folder("elsewhere/sub");
  fs::create_directory_symlink(elsewhere.parent_path(), on_disk("TEMP:") / "link");
  for (const char* name : {"TEMP:link", "TEMP:link\\sub", "TEMP:link\\new"}) {
    EXPECT_FALSE(YFileManager.FolderExists(name)) << name;
    EXPECT_FALSE(YFileManager.CreateFolder(name)) << name;
    EXPECT_FALSE(YFileManager.EmptyFolder(name)) << name;
    EXPECT_TRUE(YFileManager.ListFolder(name).empty()) << name;
  }
  EXPECT_EQ(listed(elsewhere.parent_path()), std::set<std::string>{"sub"});
}

TEST_F(FileManager, EmptiesAFolderButNothingBehindItsLinks) {
  const fs::path outside = folder.write("outside/kept", "precious");
  const fs::path eml = on_disk("TEMP:~EML");
  for (const char* where : {"", ".deleted-1", "sub/deep/-rf"}) {  // the second is a name of our own
    fs::create_directories(eml / where);
    write_file(eml / where / "bad \xFF\n name", "x");
    fs::create_symlink(outside, eml / where / "file link");
    fs::create_directory_symlink(outside.parent_path(), eml / where / "folder link");
    fs::create_symlink("nowhere", eml / where / "dangling");
    mkfifo((eml / where / "pipe").c_str(), 0600);
  }
  EXPECT_TRUE(YFileManager.EmptyFolder("TEMP:~EML\\"));
  EXPECT_TRUE(fs::is_empty(eml));
  EXPECT_FALSE(YFileManager.EmptyFolder(YString(outside.string())));
  // Elsewhere too, unless the folder itself is a link.
  fs::create_directory_symlink("outside", folder / "link");
  EXPECT_FALSE(YFileManager.EmptyFolder(name_of("link")));
  EXPECT_FALSE(YFileManager.EmptyFolder(name_of("link\\")));
  EXPECT_EQ(read_file(outside), "precious");
  EXPECT_TRUE(YFileManager.EmptyFolder(name_of("outside/")));
  EXPECT_TRUE(fs::is_empty(folder / "outside"));
}

// Deeper than the process may open folders.
TEST_F(FileManager, EmptiesATreeOfAnyDepth) {
  std::string deep = on_disk("TEMP:").string();
  for (int depth = 0; depth < 600; ++depth) deep += "d/";
  fs::create_directories(deep);
  rlimit usual{};
  getrlimit(RLIMIT_NOFILE, &usual);
  const rlimit few{64, usual.rlim_max};
  setrlimit(RLIMIT_NOFILE, &few);
  EXPECT_TRUE(YFileManager.EmptyFolder("TEMP:"));
  setrlimit(RLIMIT_NOFILE, &usual);
  EXPECT_TRUE(fs::is_empty(on_disk("TEMP:")));
}

TEST_F(FileManager, WhatCantBeDeletedIsReportedAndTheRestGoes) {
  for (const char* name : {"a", "locked/inner/stays", "z"}) folder.write("mixed/" + std::string(name), "x");
  const fs::path mixed = folder / "mixed";
  for (const char* name : {"locked/inner", "locked"}) chmod((mixed / name).c_str(), 0500);
  if (geteuid() == 0) {  // root may delete anything: be somebody else for a moment
    for (const fs::path& path : {folder.path(), mixed, mixed / "locked/inner"}) ASSERT_EQ(chown(path.c_str(), 65534, 65534), 0);
    EXPECT_FALSE(YFileManager.EmptyFolder(name_of("mixed"))) << "somebody else's";
    EXPECT_TRUE(fs::exists(mixed / "a"));
    ASSERT_EQ(seteuid(65534), 0);
  }
  EXPECT_FALSE(YFileManager.EmptyFolder(name_of("mixed/locked/inner")) || YFileManager.EmptyFolder(name_of("mixed")));
  static_cast<void>(!seteuid(getuid()));
  EXPECT_FALSE(fs::exists(mixed / "a") || fs::exists(mixed / "z"));
  EXPECT_TRUE(fs::exists(mixed / "locked/inner/stays"));
}

}  // namespace
