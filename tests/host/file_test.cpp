#include "yinet/host/yfile.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "host/file_fixture.h"

namespace {

using namespace std::string_literals;
using namespace yinet;
using yinet::test::read_file;
using yinet::test::write_file;
namespace fs = std::filesystem;

constexpr std::uint32_t kReadWrite = kAccessRead | kAccessWrite;

class File : public yinet::test::FileTest {
 protected:
  static mode_t mode_of(const fs::path& path) {
    struct stat facts {};
    return stat(path.c_str(), &facts) == 0 ? facts.st_mode & 0777 : 0;
  }
};

TEST_F(File, CreationValuesDoWhatTheyDoOnTheOriginalPlatform) {
  const struct {
    int creation;
    int error_when_missing, error_when_there;
    const char* content;  // of an old file, once opened
  } rows[] = {{kCreateNew, 0, EEXIST, "old"}, {kCreateAlways, 0, 0, ""},          {kOpenExisting, ENOENT, 0, "old"},
              {kOpenAlways, 0, 0, "old"},     {kTruncateExisting, ENOENT, 0, ""}, {6, EINVAL, EINVAL, "old"}};
  for (const YString& name : {YString("TEMP:file.txt"), name_of("file.txt")}) {
    const fs::path path = on_disk(name);
    for (const auto& row : rows) {
      SCOPED_TRACE(name.str() + " " + std::to_string(row.creation));
      fs::remove(path);
      YFile file(name);
      EXPECT_EQ(file.Open(row.creation, kReadWrite), row.error_when_missing == 0);
      EXPECT_EQ(file.LastError(), row.error_when_missing);
      EXPECT_EQ(fs::exists(path), row.error_when_missing == 0);
      write_file(path, "old");
      EXPECT_EQ(file.Open(row.creation, kReadWrite), row.error_when_there == 0);
      EXPECT_EQ(file.LastError(), row.error_when_there);
      EXPECT_EQ(read_file(path), row.content);
    }
  }
}

TEST_F(File, AccessLimitsWhatCanBeDone) {
  YFile file(YString(folder.write("file", "old").string()));
  EXPECT_FALSE(file.Write("a")) << "not open";
  EXPECT_FALSE(file.Open(kOpenExisting, 0) || file.Open(kTruncateExisting, kAccessRead));
  ASSERT_TRUE(file.Open(kOpenExisting, kAccessRead));
  EXPECT_FALSE(file.Write("new"));
  ASSERT_TRUE(file.Open(kOpenExisting, kAccessWrite));
  char byte = 0;
  EXPECT_EQ(file.Read(&byte, 1), -1);
  EXPECT_EQ(read_file(folder / "file"), "old");
  EXPECT_TRUE(file.Open(kCreateAlways, kAccessRead)) << "empties the file even though it is only read";
  EXPECT_EQ(read_file(folder / "file"), "");
}

TEST_F(File, NewFilesArePrivateInTheTemporaryFolderAndFollowTheMaskElsewhere) {
  umask(022);
  ASSERT_TRUE(YFileManager.CreateFolder("TEMP:sub"));
  for (const auto& [name, mode] : {std::pair(YString("TEMP:a"), 0600U), std::pair(YString("TEMP:sub\\b"), 0600U),
                                   std::pair(name_of("c"), 0644U)}) {
    EXPECT_TRUE(YFile(name).Open(kOpenAlways, kAccessWrite)) << name.str();
    EXPECT_EQ(mode_of(on_disk(name)), mode) << name.str();
  }
}

TEST_F(File, LinksPlantedInTheTemporaryFolderAreNeverFollowed) {
  const fs::path victim = folder.write("victim", "precious");
  const fs::path temp = on_disk("TEMP:");
  fs::create_symlink(victim, temp / "link.tmp");
  fs::create_symlink(folder / "not there", temp / "dangling.tmp");
  fs::create_directory_symlink(folder.path(), temp / "sub");
  ASSERT_EQ(mkfifo((temp / "pipe").c_str(), 0600), 0);  // opening one must not hang
  for (const YString& name : {YString("TEMP:link.tmp"), YString("TEMP:dangling.tmp"), YString("TEMP:sub\\victim"),
                              YString("TEMP:sub\\new"), YString("TEMP:pipe"), YFileManager.ResolvePath("TEMP:link.tmp"),
                              YFileManager.ResolvePath("TEMP:sub\\victim")}) {
    for (const int creation : {kCreateNew, kCreateAlways, kOpenExisting, kOpenAlways, kTruncateExisting}) {
      YFile file(name);
      EXPECT_FALSE(file.Open(creation, kReadWrite)) << name.str() << " " << creation;
    }
    EXPECT_FALSE(YFile::Copy(YString(victim.string()), name));
  }
  EXPECT_EQ(read_file(victim), "precious");
  EXPECT_FALSE(fs::exists(folder / "not there") || fs::exists(folder / "new"));
  EXPECT_TRUE(YFile::Exist("TEMP:dangling.tmp")) << "the name is taken";
  EXPECT_FALSE(YFile::Delete("TEMP:sub\\victim"));
  EXPECT_TRUE(YFile::Delete("TEMP:link.tmp")) << "the link goes, not what it names";
  EXPECT_EQ(read_file(victim), "precious");
  fs::create_symlink("victim", folder / "link");
  EXPECT_EQ(YFile(name_of("link")).GetFileSize(), 8) << "elsewhere links are followed";
}

TEST_F(File, NamesThatCantBeUsedFailWithAReason) {
  const std::pair<YString, int> rows[] = {{"", ENOENT},
                                          {"TEMP:a\0.txt"s, EINVAL},
                                          {"TEMP:..\\outside", EINVAL},
                                          {name_of(std::string(300, 'x')), ENAMETOOLONG},
                                          {"TEMP:", EISDIR},
                                          {YString(base.string()), EISDIR},
                                          {"X:\\file", ENODEV}};
  for (const auto& [name, error] : rows) {
    YFile file(name);
    EXPECT_FALSE(file.Open(kOpenAlways, kReadWrite)) << name.str();
    EXPECT_EQ(file.LastError(), error) << name.str();
    EXPECT_FALSE(YFile::Exist(name) || YFile::Delete(name) || YFile::Copy(name, "TEMP:copy")) << name.str();
  }
}

TEST_F(File, ReadsAndWritesWhereItStands) {
  YFile file("TEMP:file");
  ASSERT_TRUE(file.Open(kCreateNew, kReadWrite) && file.Write("0123456789"));
  EXPECT_FALSE(file.Write("x", -1));
  EXPECT_EQ(file.GetFileSize(), 10);
  ASSERT_TRUE(file.Seek(6));
  std::string target(8, '-');
  EXPECT_EQ(file.Read(target.data(), -1), -1);
  EXPECT_EQ(file.Read(target.data(), 8), 4);
  EXPECT_EQ(target, "6789----");
  ASSERT_TRUE(file.Seek(3));
  EXPECT_TRUE(file.ReadAll(target));
  EXPECT_EQ(target, "3456789");
  EXPECT_FALSE(file.Seek(-1));
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(file.GetFileSize(), 10) << "of the closed file, by its name";
  YFile sizeless("/proc/self/smaps");
  ASSERT_TRUE(sizeless.Open(kOpenExisting, kAccessRead));
  EXPECT_TRUE(sizeless.ReadAll(target));
  EXPECT_GT(target.size(), 4096U);
}

TEST_F(File, AFullDiskFailsTheWriteAndLeavesNoHalfCopy) {
  YFile device("/dev/full");
  ASSERT_TRUE(device.Open(kOpenExisting, kAccessWrite));
  EXPECT_FALSE(device.Write("x"));
  EXPECT_EQ(device.LastError(), ENOSPC);
  const YString source(folder.write("source", std::string(512 * 1024, 'x')).string());
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit usual{};
  getrlimit(RLIMIT_FSIZE, &usual);
  const rlimit small{300 * 1024, usual.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  for (const YString& target : {YString("TEMP:copy"), name_of("copy")}) {
    EXPECT_FALSE(YFile::Copy(source, target));
    EXPECT_EQ(errno, EFBIG);
    EXPECT_FALSE(YFile::Exist(target));
  }
  EXPECT_FALSE(YFile::Copy(source, "/dev/full"));
  EXPECT_TRUE(fs::exists("/dev/full")) << "only half-written files go";
  setrlimit(RLIMIT_FSIZE, &usual);
}

TEST_F(File, DescriptorsHaveOneOwnerAndStayInTheProcess) {
  int number = -1;
  {
    YFile first("TEMP:file");
    ASSERT_TRUE(first.Open(kCreateNew, kReadWrite));
    number = first.Descriptor();
    EXPECT_EQ(fcntl(number, F_GETFD), FD_CLOEXEC);
    YFile second("TEMP:other");
    ASSERT_TRUE(second.Open(kCreateNew, kReadWrite));
    const int replaced = second.Descriptor();
    second = YFile(std::move(first));
    EXPECT_EQ(fcntl(replaced, F_GETFD), -1);
    ASSERT_TRUE(second.Open(kOpenExisting, kAccessRead)) << "opening again closes first";
    EXPECT_EQ(second.Descriptor(), number);
  }
  EXPECT_EQ(fcntl(number, F_GETFD), -1);
}

TEST_F(File, CopyMakesTheSameBytesAndKeepsPrivateFilesPrivate) {
  umask(022);
  const fs::path source = folder.write("source", std::string(700'000, 'a') + "end");
  chmod(source.c_str(), 0600);
  EXPECT_TRUE(YFile::Copy(YString(source.string()), name_of("copy")));
  EXPECT_EQ(read_file(folder / "copy"), read_file(source));
  EXPECT_EQ(mode_of(folder / "copy"), 0600U);
  chmod(source.c_str(), 0644);
  EXPECT_TRUE(YFile::Copy(YString(source.string()), "TEMP:copy"));
  EXPECT_EQ(mode_of(on_disk("TEMP:copy")), 0600U);
}

TEST_F(File, CopyThatCantBeDoneChangesNothing) {
  folder.write("source", "source");
  folder.write("target", "target");
  fs::create_hard_link(folder / "source", folder / "same");
  fs::create_symlink("source", folder / "link");
  EXPECT_FALSE(YFile::Copy(name_of("source"), name_of("target"), false));
  for (const char* same : {"source", "same", "link"}) {
    EXPECT_FALSE(YFile::Copy(name_of("source"), name_of(same))) << same;
    EXPECT_FALSE(YFile::Copy(name_of(same), name_of("source"))) << same;
  }
  EXPECT_EQ(read_file(folder / "source"), "source");
  EXPECT_EQ(read_file(folder / "target"), "target");
}

TEST(FileName, PartsOfAName) {
  const std::array<std::string, 3> rows[] = {{"a\\b/", "c.tar", ".gz"}, {"a.b\\", "c", ""}, {"", "", ".x"},
                                             {"", ".", "."},           {"TEMP:", "x", ""},  {"", "12:30", ".txt"}};
  for (const auto& [folder, name, extension] : rows) {
    const std::string path = folder + name + extension;
    EXPECT_EQ(YFile::ExtractPath(path), folder) << path;
    EXPECT_EQ(YFile::ExtractName(path), name) << path;
    EXPECT_EQ(YFile::ExtractExtension(path), extension) << path;
  }
}

}  // namespace
