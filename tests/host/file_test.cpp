#include "yinet/host/yfile.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <thread>

#include "host/file_fixture.h"
#include "support/requirements.h"
#include "yinet/host/message_numbers.h"

namespace {

using namespace std::string_literals;
using yinet::kAccessRead;
using yinet::kAccessWrite;
using yinet::kCreateAlways;
using yinet::kCreateNew;
using yinet::kOpenAlways;
using yinet::kOpenExisting;
using yinet::kTruncateExisting;
using yinet::test::read_file;
using yinet::test::write_file;
namespace fs = std::filesystem;

constexpr std::uint32_t kReadWrite = kAccessRead | kAccessWrite;
constexpr int kEveryCreation[] = {kCreateNew, kCreateAlways, kOpenExisting, kOpenAlways, kTruncateExisting};

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
    int error_when_missing;
    int error_when_there;
    const char* content;  // of an old file, once opened
  } rows[] = {
      {kCreateNew, 0, EEXIST, "old"}, {kCreateAlways, 0, 0, ""},          {kOpenExisting, ENOENT, 0, "old"},
      {kOpenAlways, 0, 0, "old"},     {kTruncateExisting, ENOENT, 0, ""}, {0, EINVAL, EINVAL, "old"},
      {6, EINVAL, EINVAL, "old"},
  };
  for (const YString& name : {YString("TEMP:file.txt"), name_of("file.txt")}) {
    const fs::path path = on_disk(name);
    for (const auto& row : rows) {
      SCOPED_TRACE(name.str() + " " + std::to_string(row.creation));
      fs::remove(path);
      YFile missing(name);
      EXPECT_EQ(missing.Open(row.creation, kReadWrite), row.error_when_missing == 0);
      EXPECT_EQ(missing.LastError(), row.error_when_missing);
      EXPECT_EQ(fs::exists(path), row.error_when_missing == 0);

      write_file(path, "old");
      YFile there(name);
      EXPECT_EQ(there.Open(row.creation, kReadWrite), row.error_when_there == 0);
      EXPECT_EQ(there.LastError(), row.error_when_there);
      EXPECT_EQ(read_file(path), row.content);
    }
  }
}

TEST_F(File, AccessLimitsWhatCanBeDone) {
  const YString name = name_of("file");
  write_file(on_disk(name), "old");
  YFile file(name);
  EXPECT_FALSE(file.Open(kOpenExisting, 0));
  EXPECT_FALSE(file.Open(kTruncateExisting, kAccessRead));
  EXPECT_EQ(file.LastError(), EINVAL);

  ASSERT_TRUE(file.Open(kOpenExisting, kAccessRead));
  EXPECT_FALSE(file.Write("new"));
  EXPECT_EQ(file.LastError(), EBADF);
  ASSERT_TRUE(file.Open(kOpenExisting, kAccessWrite));
  char byte = 0;
  EXPECT_EQ(file.Read(&byte, 1), -1);
  EXPECT_EQ(read_file(on_disk(name)), "old");

  EXPECT_TRUE(file.Open(kCreateAlways, kAccessRead)) << "empties the file even though it is only read";
  EXPECT_EQ(read_file(on_disk(name)), "");
}

TEST_F(File, WithoutAnOpenFileEverythingFails) {
  YFile file(name_of("missing"));
  std::string content = "x";
  EXPECT_EQ(file.Read(content.data(), 1), -1);
  EXPECT_FALSE(file.Write("a"));
  EXPECT_FALSE(file.Seek(0));
  EXPECT_FALSE(file.ReadAll(content));
  EXPECT_EQ(file.GetFileSize(), -1);
  EXPECT_TRUE(file.Close()) << "nothing can be lost";
}

TEST_F(File, FoldersAreNoFiles) {
  const YString name = name_of("folder");
  fs::create_directory(on_disk(name));
  YFile file(name);
  EXPECT_FALSE(file.Open(kOpenExisting, kAccessRead));
  EXPECT_EQ(file.LastError(), EISDIR);
  EXPECT_FALSE(YFile::Exist(name));
  EXPECT_FALSE(YFile::Delete(name));
  EXPECT_FALSE(YFile::Copy(name, name_of("copy")));
  EXPECT_EQ(file.GetFileSize(), -1);
}

TEST_F(File, NewFilesArePrivateInTheTemporaryFolderAndFollowTheMaskElsewhere) {
  const mode_t mask = umask(022);
  for (const char* name : {"TEMP:a", "TEMP:sub\\b"}) {
    ASSERT_TRUE(YFileManager.CreateFolder("TEMP:sub"));
    YFile file{YString(name)};
    ASSERT_TRUE(file.Open(kOpenAlways, kAccessWrite)) << name;
    EXPECT_EQ(mode_of(on_disk(name)), 0600U);
  }
  YFile file(name_of("c"));
  ASSERT_TRUE(file.Open(kCreateNew, kAccessWrite));
  EXPECT_EQ(mode_of(on_disk(file.GetName())), 0644U);
  umask(mask);
}

TEST_F(File, LinksPlantedInTheTemporaryFolderAreNeverFollowed) {
  const fs::path victim = folder.write("victim", "precious");
  const fs::path temp = on_disk("TEMP:");
  fs::create_symlink(victim, temp / "link.tmp");
  fs::create_symlink(folder / "not there", temp / "dangling.tmp");
  fs::create_directory_symlink(folder.path(), temp / "sub");
  const YString names[] = {"TEMP:link.tmp",
                           "TEMP:dangling.tmp",
                           "TEMP:sub\\victim",
                           "TEMP:sub\\new",
                           YFileManager.ResolvePath("TEMP:link.tmp"),
                           YFileManager.ResolvePath("TEMP:sub\\victim")};
  for (const YString& name : names) {
    for (const int creation : kEveryCreation) {
      YFile file(name);
      EXPECT_FALSE(file.Open(creation, kReadWrite)) << name.str() << " " << creation;
    }
    EXPECT_FALSE(YFile::Copy(YString(victim.string()), name));
    EXPECT_EQ(YFile(name).GetFileSize() > 100, false);
  }
  EXPECT_EQ(read_file(victim), "precious");
  EXPECT_FALSE(fs::exists(folder / "not there"));
  EXPECT_FALSE(fs::exists(folder / "new"));

  EXPECT_TRUE(YFile::Exist("TEMP:dangling.tmp")) << "the name is taken";
  EXPECT_FALSE(YFile::Delete("TEMP:sub\\victim"));
  EXPECT_TRUE(YFile::Delete("TEMP:link.tmp")) << "the link goes, not what it names";
  EXPECT_EQ(read_file(victim), "precious");
}

TEST_F(File, LinksElsewhereAreFollowed) {
  folder.write("target", "content");
  fs::create_symlink("target", folder / "link");
  fs::create_symlink("nowhere", folder / "dangling");
  fs::create_directory_symlink(base, folder / "to folder");
  EXPECT_EQ(YFile(name_of("link")).GetFileSize(), 7);
  EXPECT_TRUE(YFile::Exist(name_of("link")));
  EXPECT_TRUE(YFile::Exist(name_of("dangling")));
  EXPECT_FALSE(YFile::Exist(name_of("to folder")));
}

TEST_F(File, APipeUnderTheNameOfATemporaryFileNeitherHangsNorServes) {
  ASSERT_EQ(mkfifo((on_disk("TEMP:") / "pipe").c_str(), 0600), 0);
  for (const std::uint32_t access : {kAccessRead, kAccessWrite, kReadWrite}) {
    YFile file("TEMP:pipe");
    EXPECT_FALSE(file.Open(kOpenAlways, access));
  }
}

TEST_F(File, NamesGoToTheDiskAsUtf8) {
  const struct {
    std::string_view name;
    std::string_view on_disk;
  } rows[] = {
      {"Gr\xFC\xDF"
       "e.txt",
       "Gr\xC3\xBC\xC3\x9F"
       "e.txt"},
      {"\x80 \x81.txt", "\xE2\x82\xAC \xC2\x81.txt"},
      {"\xD0\x9F\xD1\x80.txt", "\xD0\x9F\xD1\x80.txt"},                 // UTF-8 stays
      {"\xD0\x9F\xD1\x80\\\xE4.txt", "\xD0\x9F\xD1\x80/\xC3\xA4.txt"},  // each component by itself
      {"a b\\c'd\".txt", "a b/c'd\".txt"},
  };
  folder.make_folder("\xD0\x9F\xD1\x80");
  folder.make_folder("a b");
  for (const auto& row : rows) {
    YFile file(name_of(row.name));
    ASSERT_TRUE(file.Open(kCreateNew, kAccessWrite)) << row.on_disk << " " << file.LastError();
    EXPECT_TRUE(fs::exists(folder / row.on_disk)) << row.on_disk;
  }
}

TEST_F(File, NamesThatCantBeUsedFailWithAReason) {
  const YString with_nul("TEMP:a\0.txt"s);
  const struct {
    YString name;
    int error;
  } rows[] = {
      {"", ENOENT},
      {with_nul, EINVAL},
      {YString(folder.path().string() + "/a\0b"s), EINVAL},
      {"TEMP:..\\outside", EINVAL},
      {"TEMP:" + YString(std::string(300, 'x')), ENAMETOOLONG},
      {name_of(std::string(300, 'x')), ENAMETOOLONG},
      {"TEMP:missing\\file", ENOENT},
      {"TEMP:", EISDIR},
      {"X:\\file", ENODEV},
  };
  for (const auto& row : rows) {
    YFile file(row.name);
    EXPECT_FALSE(file.Open(kOpenAlways, kReadWrite)) << row.name.str();
    EXPECT_EQ(file.LastError(), row.error) << row.name.str();
    EXPECT_FALSE(YFile::Exist(row.name));
    EXPECT_FALSE(YFile::Delete(row.name));
  }
  EXPECT_GT(times_logged(yinet::message::kFileNameRefused), 0);
  EXPECT_GT(times_logged(yinet::message::kDriveNotMapped), 0);
}

TEST_F(File, ReadsAndWritesWhereItStands) {
  YFile file("TEMP:file");
  ASSERT_TRUE(file.Open(kCreateNew, kReadWrite));
  ASSERT_TRUE(file.Write("0123456789"));
  ASSERT_TRUE(file.Write(""));
  EXPECT_FALSE(file.Write("x", -1));
  EXPECT_EQ(file.GetFileSize(), 10);
  ASSERT_TRUE(file.Seek(6));
  std::string target(8, '-');
  EXPECT_EQ(file.Read(target.data(), -1), -1);
  EXPECT_EQ(file.Read(target.data(), 8), 4);
  EXPECT_EQ(target, "6789----");
  EXPECT_EQ(file.Read(target.data(), 8), 0);
  ASSERT_TRUE(file.Seek(3));
  EXPECT_TRUE(file.ReadAll(target));
  EXPECT_EQ(target, "3456789");
  EXPECT_TRUE(file.ReadAll(target));
  EXPECT_EQ(target, "");
  EXPECT_FALSE(file.Seek(-1));
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(file.GetFileSize(), 10) << "of the closed file, by its name";
}

TEST_F(File, ReadsAllOfAFileThatTellsNoSize) {
  YFile file("/proc/self/smaps");
  ASSERT_TRUE(file.Open(kOpenExisting, kAccessRead));
  ASSERT_EQ(file.GetFileSize(), 0);
  std::string content;
  EXPECT_TRUE(file.ReadAll(content));
  EXPECT_GT(content.size(), 4096U);
  EXPECT_EQ(content.back(), '\n');
}

TEST_F(File, PositionsAndSizesGoBeyondFourGigabytes) {
  constexpr std::int64_t kFar = 5'000'000'000;
  YFile file("TEMP:large");
  ASSERT_TRUE(file.Open(kCreateNew, kReadWrite));
  ASSERT_TRUE(file.Seek(kFar));
  ASSERT_TRUE(file.Write("end"));
  EXPECT_EQ(file.GetFileSize(), kFar + 3);
  ASSERT_TRUE(file.Seek(kFar));
  std::string content;
  EXPECT_TRUE(file.ReadAll(content));
  EXPECT_EQ(content, "end");
}

// A writer that pauses and a timer whose signals interrupt every wait.
TEST_F(File, SignalsAndShortCountsDoNotShowInARead) {
  const YString name = name_of("pipe");
  ASSERT_EQ(mkfifo(on_disk(name).c_str(), 0600), 0);
  struct sigaction old {};
  struct sigaction interrupt {};
  interrupt.sa_handler = [](int) {};
  sigaction(SIGALRM, &interrupt, &old);
  sigset_t alarm{};
  sigemptyset(&alarm);
  sigaddset(&alarm, SIGALRM);
  pthread_sigmask(SIG_BLOCK, &alarm, nullptr);  // the writer inherits it: every signal hits the reader
  std::thread writer([path = on_disk(name)] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const int pipe = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    for (int piece = 0; piece < 4; ++piece) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      EXPECT_EQ(write(pipe, "12345", 5), 5);
    }
    close(pipe);
  });
  pthread_sigmask(SIG_UNBLOCK, &alarm, nullptr);
  const itimerval often = {{0, 2000}, {0, 2000}};
  const itimerval never = {};
  setitimer(ITIMER_REAL, &often, nullptr);
  YFile file(name);
  EXPECT_TRUE(file.Open(kOpenExisting, kAccessRead)) << file.LastError();
  std::string target(30, '-');
  EXPECT_EQ(file.Read(target.data(), 30), 20) << file.LastError();
  setitimer(ITIMER_REAL, &never, nullptr);
  writer.join();
  sigaction(SIGALRM, &old, nullptr);
  EXPECT_EQ(target, "12345123451234512345----------");
}

TEST_F(File, AFullDiskFailsTheWrite) {
  YFile device("/dev/full");
  ASSERT_TRUE(device.Open(kOpenExisting, kAccessWrite));
  EXPECT_FALSE(device.Write("x"));
  EXPECT_EQ(device.LastError(), ENOSPC);
  EXPECT_FALSE(YFile::Copy(YString(folder.write("source", "content").string()), "/dev/full"));
  EXPECT_TRUE(fs::exists("/dev/full")) << "only half-written files go";
}

TEST_F(File, AFullTemporaryFolderFailsTheWriteAndLeavesNoHalfCopy) {
  YINET_REQUIRE_ROOT();
  constexpr std::size_t kDisk = 256 * 1024;
  if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("none", base.c_str(), "tmpfs", 0, "size=256k") != 0) {
    GTEST_SKIP() << "mounting a small file system is not permitted here (it takes CAP_SYS_ADMIN)";
  }
  const YString source(folder.write("source", std::string(2 * kDisk, 'x')).string());
  EXPECT_FALSE(YFile::Copy(source, "TEMP:copy"));
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_FALSE(YFile::Exist("TEMP:copy"));
  {
    YFile file("TEMP:file");
    ASSERT_TRUE(file.Open(kCreateNew, kAccessWrite));
    EXPECT_TRUE(file.Write(std::string(kDisk / 4, 'x')));
    EXPECT_FALSE(file.Write(std::string(kDisk, 'x')));
    EXPECT_EQ(file.LastError(), ENOSPC);
  }
  umount2(base.c_str(), MNT_DETACH);
}

TEST_F(File, DescriptorsHaveOneOwnerAndStayInTheProcess) {
  int number = -1;
  {
    YFile first("TEMP:file");
    ASSERT_TRUE(first.Open(kCreateNew, kReadWrite));
    number = first.Descriptor();
    EXPECT_EQ(fcntl(number, F_GETFD), FD_CLOEXEC);
    YFile second(std::move(first));
    EXPECT_FALSE(first.IsOpen());  // NOLINT(bugprone-use-after-move)
    YFile third("TEMP:other");
    ASSERT_TRUE(third.Open(kCreateNew, kReadWrite));
    const int replaced = third.Descriptor();
    third = std::move(second);
    EXPECT_EQ(third.Descriptor(), number);
    EXPECT_EQ(third.GetName(), "TEMP:file");
    EXPECT_EQ(fcntl(replaced, F_GETFD), -1);
    third = std::move(*&third);
    EXPECT_TRUE(third.IsOpen());
    ASSERT_TRUE(third.Open(kOpenExisting, kAccessRead)) << "opening again closes first";
    EXPECT_EQ(third.Descriptor(), number);
  }
  EXPECT_EQ(fcntl(number, F_GETFD), -1);
}

TEST_F(File, CopyMakesTheSameBytesAndKeepsPrivateFilesPrivate) {
  const mode_t mask = umask(022);
  const std::string content = std::string(700'000, 'a') + "end";
  const fs::path source = folder.write("source", content);
  chmod(source.c_str(), 0600);
  const YString from(source.string());
  EXPECT_TRUE(YFile::Copy(from, name_of("copy")));
  EXPECT_EQ(read_file(folder / "copy"), content);
  EXPECT_EQ(mode_of(folder / "copy"), 0600U);
  chmod(source.c_str(), 0644);
  EXPECT_TRUE(YFile::Copy(from, "TEMP:copy"));
  EXPECT_EQ(mode_of(on_disk("TEMP:copy")), 0600U);
  EXPECT_TRUE(YFile::Copy(YString(folder.write("empty", "").string()), name_of("copy")));
  EXPECT_EQ(read_file(folder / "copy"), "");
  umask(mask);
}

TEST_F(File, CopyThatCantBeDoneChangesNothing) {
  folder.write("source", "source");
  folder.write("target", "target");
  fs::create_hard_link(folder / "source", folder / "same");
  fs::create_symlink("source", folder / "link");
  EXPECT_FALSE(YFile::Copy(name_of("source"), name_of("target"), false));
  EXPECT_FALSE(YFile::Copy(name_of("missing"), name_of("target")));
  EXPECT_FALSE(YFile::Copy(name_of("source"), name_of("no folder/target")));
  for (const char* same : {"source", "same", "link"}) {
    EXPECT_FALSE(YFile::Copy(name_of("source"), name_of(same))) << same;
    EXPECT_FALSE(YFile::Copy(name_of(same), name_of("source"))) << same;
  }
  EXPECT_EQ(read_file(folder / "source"), "source");
  EXPECT_EQ(read_file(folder / "target"), "target");
}

TEST(FileName, PartsOfAName) {
  const struct {
    const char *path, *folder, *name, *extension;
  } rows[] = {
      {"C:\\a\\b.txt", "C:\\a\\", "b", ".txt"},
      {"/a/b.txt", "/a/", "b", ".txt"},
      {"a\\b/c.tar.gz", "a\\b/", "c.tar", ".gz"},
      {"a/b\\c", "a/b\\", "c", ""},
      {"a.b\\c", "a.b\\", "c", ""},
      {".x", "", "", ".x"},
      {"a\\.x", "a\\", "", ".x"},
      {"b.", "", "b", "."},
      {"..", "", ".", "."},
      {"a\\", "a\\", "", ""},
      {"", "", "", ""},
      {"TEMP:MAIL0001.TMP", "TEMP:", "MAIL0001", ".TMP"},
      {"temp:~EML\\x.y", "temp:~EML\\", "x", ".y"},
      {"C:b.txt", "C:", "b", ".txt"},
      {"12:30.txt", "", "12:30", ".txt"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(YFile::ExtractPath(row.path), row.folder) << row.path;
    EXPECT_EQ(YFile::ExtractName(row.path), row.name) << row.path;
    EXPECT_EQ(YFile::ExtractExtension(row.path), row.extension) << row.path;
    EXPECT_EQ(YFile::ExtractNameAndExtension(row.path).str(), std::string(row.name) + row.extension) << row.path;
  }
}

}  // namespace
