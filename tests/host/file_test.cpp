#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <thread>

#include "support/log_capture.h"
#include "support/resource_check.h"
#include "support/temp_dir.h"
#include "yinet/yinet.h"

namespace yinet {
namespace {

using namespace std::string_literals;
using test::read_file;
using test::write_file;
using testing::UnorderedElementsAre;
namespace fs = std::filesystem;

constexpr std::uint32_t kReadWrite = kAccessRead | kAccessWrite;

// A folder of the test's own, with "TEMP:" in a sub-folder of it. No test may leave a descriptor behind.
class File : public testing::Test {
 protected:
  File() : base(folder.make_folder("base")) {
    set_setting("Dateien", "TempVerzeichnis", base.string());
    set_temporary_folder("");
    umask(022);
  }

  YString name_of(std::string_view name) const { return YString((folder / name).string()); }
  static fs::path on_disk(const YString& name) { return YFileManager.ResolveSystemPath(name); }
  static fs::path temporary_folder() { return on_disk("TEMP:").parent_path(); }
  [[nodiscard]] fs::path usual_folder() const { return base / ("yinet-" + std::to_string(geteuid())); }
  static unsigned mode_of(const fs::path& path) { return static_cast<unsigned>(fs::status(path).permissions()); }
  void shell(const std::string& line) const {  // in the folder; the test itself is $PPID
    EXPECT_EQ(std::system(("cd " + folder.path().string() + " && " + line).c_str()), 0) << line;
  }
  [[nodiscard]] long times_logged(int number) const { return std::ranges::count(log.numbers(), number); }

  test::ResourceCheck check;
  LogCapture log;
  test::TempDir folder;
  fs::path base;  // where the private temporary folder is made
};

TEST_F(File, NamesBecomePathsOrFailWithAReason) {
  const std::string temp = base.string(), here = folder.path().string();
  set_setting("Dateien", "LaufwerkC", here + "\\drive/");
  set_temporary_folder(temp);
  const std::pair<YString, std::string> paths[] = {{"temp:~EML\\", temp + "/~EML/"},
                                                   {"TEMP:a\\.\\b//..\\c", temp + "/a/c"},
                                                   {"/a\\b/../c", "/a/b/../c"},
                                                   {"TEMPO\\y", fs::current_path().string() + "/TEMPO/y"},
                                                   {"C:\\..\\..\\a", here + "/drive/a"}};
  for (const auto& [name, path] : paths) EXPECT_EQ(YFileManager.ResolvePath(name).str(), path) << name.str();
  EXPECT_EQ(YFileManager.ResolveSystemPath("/\xE4/\xD0\x9F/\x80"), "/\xC3\xA4/\xD0\x9F/\xE2\x82\xAC");
  const std::pair<YString, int> bad[] = {{"", ENOENT},
                                         {"TEMP:a\0.txt"s, EINVAL},
                                         {"TEMP:a\\..\\..\\b", EINVAL},
                                         {name_of(std::string(300, 'x')), ENAMETOOLONG},
                                         {"TEMP:", EISDIR},
                                         {"D:\\file", ENODEV}};
  for (const auto& [name, error] : bad) {
    YFile file(name);
    EXPECT_TRUE(!file.Open(kOpenAlways, kReadWrite) && file.LastError() == error) << name.str() << file.LastError();
    EXPECT_FALSE(YFile::Exist(name) || YFile::Delete(name) || YFile::Copy(name, "TEMP:copy")) << name.str();
  }
  EXPECT_TRUE(times_logged(message::kFileNameRefused) && times_logged(message::kDriveNotMapped));
  for (const char* value : {"C:\\again", "TEMP:", ""}) {
    set_setting("Dateien", "LaufwerkC", value);
    EXPECT_EQ(YFileManager.ResolvePath("C:\\x"), "") << value;
  }
}

TEST_F(File, TheTemporaryFolderIsPrivateAndWhereTheHostOrTheEnvironmentSays) {
  setenv("TMPDIR", (base.string() + "//").c_str(), 1);
  for (const char* setting : {base.c_str(), "", "temp:loop"}) {
    set_setting("Dateien", "TempVerzeichnis", setting);
    EXPECT_EQ(temporary_folder(), usual_folder()) << setting;
    EXPECT_EQ(mode_of(usual_folder()), 0700U);
    fs::remove(usual_folder());  // a cleaner came by
  }
  unsetenv("TMPDIR");
  for (const char* bad : {"/proc/nowhere", "/dev/null", "Q:\\temp"}) {
    set_setting("Dateien", "TempVerzeichnis", bad);
    EXPECT_FALSE(YFile("TEMP:x").Open(kOpenAlways, kAccessWrite)) << bad;
  }
  EXPECT_EQ(times_logged(message::kTemporaryFolderUnusable), 2);
  set_temporary_folder((folder / "chosen/").string());
  EXPECT_TRUE(on_disk("TEMP:x") == folder / "chosen/x" && fs::is_directory(folder / "chosen")) << "made on first use";
}

// What somebody may have put there before us, or between two uses.
TEST_F(File, WhatIsPlantedInPlaceOfTheTemporaryFolderIsNotUsed) {
  shell("mkdir -m 700 elsewhere");
  long times = 0;
  for (const char* plant : {"ln -s ../elsewhere $1$", "touch $1$", "mkdir -m 755 $1$",  // the last: somebody else's
                            "mkdir -m 777 $1$ && { ! chown 1 $1$ || chmod 700 $1$; }"})
    for (const bool was_used : {false, true}) {
      SCOPED_TRACE(plant);
      base = folder.make_folder("base" + std::to_string(++times));
      set_setting("Dateien", "TempVerzeichnis", base.string());
      if (was_used) fs::remove(temporary_folder());
      shell(formatted(plant, usual_folder().string()));
      std::array<fs::path, 4> used;
      std::vector<std::jthread> threads;
      for (fs::path& path : used) threads.emplace_back([&path] { path = temporary_folder(); });
      threads.clear();
      EXPECT_TRUE(used[0].string().starts_with(usual_folder().string() + "-")) << used[0];
      EXPECT_THAT(used, testing::Each(used[0])) << "all threads use one";
      EXPECT_EQ(times_logged(message::kTemporaryFolderUnusable), times) << "said once";
      EXPECT_TRUE(YFile("TEMP:x").Open(kCreateNew, kAccessWrite) && fs::exists(used[0] / "x")) << "from now on";
    }
  EXPECT_TRUE(fs::is_empty(folder / "elsewhere"));
}

TEST_F(File, FoldersAreMadeWithAllAboveThemAndListed) {
  for (const auto& [name, mode] : {std::pair(YString("TEMP:a\\b\\c\\"), 0700U), {name_of("a\\b/c"), 0755U}}) {
    for (const bool there : {false, true})
      EXPECT_TRUE(YFileManager.FolderExists(name + "\\") == there && YFileManager.CreateFolder(name));
    EXPECT_EQ(mode_of(on_disk(name)), mode);
  }
  folder.write("list/\xC3\xA4", "");
  folder.make_folder("list/\xD0\x9F");
  for (const char* name : {"list/\xE4", "list/\xE4/sub"}) EXPECT_FALSE(YFileManager.CreateFolder(name_of(name)));
  EXPECT_THAT(YFileManager.ListFolder(name_of("list\\")), UnorderedElementsAre("\xE4", "\xD0\x9F"));
}

TEST_F(File, LinksPlantedInTheTemporaryFolderAreNeverFollowed) {
  const fs::path victim = folder.write("elsewhere/victim", "precious");
  shell("ln -s elsewhere/victim link && cd " + on_disk("TEMP:").string() +
        " && ln -s ../../link link && ln -s ../../elsewhere sub && ln -s sub/none dangling && mkfifo pipe");
  for (const YString name : {"TEMP:link", "TEMP:dangling", "TEMP:sub\\victim", "TEMP:sub\\new", "TEMP:pipe"})
    for (const YString& form : {name, YFileManager.ResolvePath(name)}) {
      for (const int creation : {kCreateNew, kCreateAlways, kOpenExisting, kOpenAlways, kTruncateExisting})
        EXPECT_FALSE(YFile(form).Open(creation, kReadWrite)) << form.str() << " " << creation;
      EXPECT_FALSE(YFile::Copy(YString(victim.string()), form)) << form.str();
    }
  for (const char* name : {"TEMP:sub", "TEMP:sub\\new"})
    EXPECT_FALSE(YFileManager.FolderExists(name) || YFileManager.CreateFolder(name) || YFileManager.EmptyFolder(name) ||
                 !YFileManager.ListFolder(name).empty());
  EXPECT_TRUE(YFile::Exist("TEMP:dangling")) << "the name is taken";
  EXPECT_FALSE(YFile::Delete("TEMP:sub\\victim"));
  EXPECT_TRUE(YFile::Delete("TEMP:link")) << "the link goes, not what it names";
  EXPECT_EQ(read_file(victim), "precious");
  EXPECT_THAT(YFileManager.ListFolder(name_of("elsewhere")), UnorderedElementsAre("victim"));
  EXPECT_EQ(YFile(name_of("link")).GetFileSize(), 8) << "elsewhere links are followed";
}

TEST_F(File, ATreeOfAnyDepthIsEmptiedButNothingBehindItsLinks) {
  const fs::path outside = folder.write("outside/kept", "precious");
  const fs::path eml = on_disk("TEMP:~EML");
  for (const char* where : {"", ".deleted-1", "sub/deep/-rf"}) {  // the second is a name of our own
    fs::create_directories(eml / where);
    write_file(eml / where / "bad \xFF\n name", "x");
    fs::create_symlink(outside, eml / where / "file link");
    fs::create_directory_symlink(outside.parent_path(), eml / where / "folder link");
    mkfifo((eml / where / "pipe").c_str(), 0600);
  }
  std::string deep = eml.string();
  for (int depth = 0; depth < 600; ++depth) deep += "/d";
  fs::create_directories(deep);
  shell(
      "ln -s outside link && prlimit --pid $PPID --nofile=64:");  // the tree is deeper than the process may open folders
  EXPECT_TRUE(YFileManager.EmptyFolder("TEMP:~EML\\") && fs::is_empty(eml));
  for (const char* name : {"outside/kept", "link", "link\\"}) EXPECT_FALSE(YFileManager.EmptyFolder(name_of(name)));
  EXPECT_EQ(read_file(outside), "precious");
  EXPECT_TRUE(YFileManager.EmptyFolder(name_of("outside/")) && fs::is_empty(folder / "outside"));
}

TEST_F(File, WhatCantBeDeletedIsReportedAndTheRestGoes) {
  shell("mkdir -p mixed/locked && touch mixed/a mixed/locked/stays mixed/z && chmod 500 mixed/locked");
  const fs::path mixed = folder / "mixed";
  if (geteuid() == 0) {  // root may delete anything: be somebody else for a moment
    shell("chown 65534 . mixed mixed/locked");
    EXPECT_TRUE(!YFileManager.EmptyFolder(name_of("mixed")) && fs::exists(mixed / "a")) << "somebody else's";
    ASSERT_EQ(seteuid(65534), 0);
  }
  EXPECT_FALSE(YFileManager.EmptyFolder(name_of("mixed/locked")) || YFileManager.EmptyFolder(name_of("mixed")));
  static_cast<void>(!seteuid(getuid()));
  EXPECT_TRUE(!fs::exists(mixed / "a") && !fs::exists(mixed / "z") && fs::exists(mixed / "locked/stays"));
}

TEST_F(File, CreationValuesDoWhatTheyDoOnTheOriginalPlatform) {
  // Value and access, then the errors when the file is missing and when it is there, and what is left in it.
  const std::tuple<int, std::uint32_t, int, int, const char*> rows[] = {
      {kCreateNew, kReadWrite, 0, EEXIST, "old"},     {kCreateAlways, kReadWrite, 0, 0, ""},
      {kCreateAlways, kAccessRead, 0, 0, ""},         {kOpenExisting, kReadWrite, ENOENT, 0, "old"},
      {kOpenExisting, 0, EINVAL, EINVAL, "old"},      {kOpenAlways, kReadWrite, 0, 0, "old"},
      {kTruncateExisting, kReadWrite, ENOENT, 0, ""}, {kTruncateExisting, kAccessRead, EINVAL, EINVAL, "old"},
      {6, kReadWrite, EINVAL, EINVAL, "old"}};
  for (const YString& name : {YString("TEMP:file.txt"), name_of("file.txt")}) {
    const fs::path path = on_disk(name);
    for (const auto& [creation, access, error_when_missing, error_when_there, content] : rows) {
      SCOPED_TRACE(name.str() + " " + std::to_string(creation));
      fs::remove(path);
      YFile file(name);
      EXPECT_EQ(file.Open(creation, access) ? 0 : file.LastError(), error_when_missing);
      EXPECT_EQ(fs::exists(path), error_when_missing == 0);
      write_file(path, "old");
      EXPECT_EQ(file.Open(creation, access) ? 0 : file.LastError(), error_when_there);
      EXPECT_EQ(read_file(path), content);
    }
  }
}

TEST_F(File, ReadsAndWritesWhereItStandsAndAsItsAccessAllows) {
  YFile file("TEMP:file");
  EXPECT_FALSE(file.Write("a")) << "not open";
  ASSERT_TRUE(file.Open(kCreateNew, kAccessWrite) && file.Write("0123456789"));
  std::string target(8, '-');
  EXPECT_TRUE(!file.Write("x", -1) && file.Read(target.data(), 1) == -1);
  EXPECT_EQ(fcntl(file.Descriptor(), F_GETFD), FD_CLOEXEC);
  ASSERT_TRUE(file.Open(kOpenExisting, kAccessRead) && file.Seek(6));
  EXPECT_TRUE(!file.Write("a") && !file.Seek(-1) && file.Read(target.data(), -1) == -1);
  EXPECT_TRUE(file.Read(target.data(), 8) == 4 && target == "6789----") << target;
  YFile sizeless("/proc/self/smaps");
  EXPECT_TRUE(sizeless.Open(kOpenExisting, kAccessRead) && sizeless.ReadAll(target) && target.size() > 4096);
  sizeless = std::move(file);  // which closes what was open
  EXPECT_TRUE(sizeless.Seek(3) && sizeless.ReadAll(target) && target == "3456789") << target;
}

TEST_F(File, CopyMakesTheSameBytesOrNoFileAndNeverHarmsItsSource) {
  const fs::path source = folder.write("source", std::string(700'000, 'a') + "end");
  const std::string content = read_file(source);
  // New files follow the mask, those in the temporary folder and copies of private ones are private.
  const std::tuple<mode_t, YString, unsigned> modes[] = {
      {0600, name_of("private"), 0600}, {0644, name_of("open"), 0644}, {0644, "TEMP:open", 0600}};
  for (const auto& [mode, copy, expected] : modes) {
    chmod(source.c_str(), mode);
    EXPECT_TRUE(YFile::Copy(name_of("source"), copy) && read_file(on_disk(copy)) == content) << copy.str();
    EXPECT_EQ(mode_of(on_disk(copy)), expected) << copy.str();
    EXPECT_TRUE(YFile(copy + ".new").Open(kOpenAlways, kAccessWrite));
    EXPECT_EQ(mode_of(on_disk(copy + ".new")), copy.StartsWith("TEMP:") ? 0600U : 0644U);
  }
  std::signal(SIGXFSZ, SIG_IGN);
  shell("prlimit --pid $PPID --fsize=300000:");
  for (const YString& target : {YString("TEMP:copy"), name_of("copy")})
    EXPECT_TRUE(!YFile::Copy(name_of("source"), target) && errno == EFBIG && !YFile::Exist(target));
  shell("prlimit --pid $PPID --fsize=unlimited:");
  EXPECT_TRUE(!YFile::Copy(name_of("source"), "/dev/full") && errno == ENOSPC && fs::exists("/dev/full"));
  shell("ln source same && ln -s source link && printf target >target");
  EXPECT_TRUE(!YFile::Copy(name_of("source"), name_of("target"), false) && read_file(folder / "target") == "target");
  for (const YString& same : {name_of("source"), name_of("same"), name_of("link")})
    EXPECT_FALSE(YFile::Copy(name_of("source"), same) || YFile::Copy(same, name_of("source"))) << same.str();
  EXPECT_TRUE(read_file(source) == content);
}

TEST(FileName, IsPathNameAndExtension) {  // the fuzzer proves that the three make up the whole
  const std::tuple<const char*, const char*> names[] = {
      {"a\\b/c.tar.gz", "c.tar"}, {"a.b\\c", "c"}, {".x", ""}, {"..", "."}, {"TEMP:x", "x"}, {"12:30.txt", "12:30"}};
  for (const auto& [path, name] : names) EXPECT_EQ(YFile::ExtractName(path), name) << path;
}

}  // namespace
}  // namespace yinet
