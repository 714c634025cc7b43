#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "yinet/host/export.h"
#include "yinet/host/ystring.h"

// Files by logical name. Names are Windows-1252 text, may begin with a logical prefix ("TEMP:", without regard to
// case), and take "\" and "/" alike as separators; on disk they are UTF-8 (see yinet::name_to_utf8). A drive letter
// ("C:\") is mapped to a folder by the setting "Dateien"/"Laufwerk<letter>"; without it the open fails and the log says
// so. A name with a NUL byte is refused, and a "TEMP:" name whose ".." would lead out of the temporary folder.
//
// Nothing in the temporary folder is reached through a link, the folders on the way included, whether its name begins
// with "TEMP:" or is the path that "TEMP:" was resolved to.

namespace yinet {

// Creation values of YFile::Open.
inline constexpr int kCreateNew = 1;     // fails when the file exists
inline constexpr int kCreateAlways = 2;  // empties an existing file
inline constexpr int kOpenExisting = 3;
inline constexpr int kOpenAlways = 4;        // creates a missing file, keeps an existing one as it is
inline constexpr int kTruncateExisting = 5;  // fails when there is none

inline constexpr std::uint32_t kAccessRead = 0x80000000U;
inline constexpr std::uint32_t kAccessWrite = 0x40000000U;
inline constexpr std::uint32_t kShareRead = 1;  // share modes cannot be enforced here and are ignored
inline constexpr std::uint32_t kShareWrite = 2;
inline constexpr std::uint32_t kAttributeNormal = 0x80;

}  // namespace yinet

// One open file. Owns its descriptor; the destructor closes it. Moved, never copied. One thread at a time.
class YINET_API YFile {
 public:
  YFile() = default;
  explicit YFile(const YString& name) : name_(name) {}
  YFile(const YFile&) = delete;
  YFile& operator=(const YFile&) = delete;
  YFile(YFile&& other) noexcept;
  YFile& operator=(YFile&& other) noexcept;
  ~YFile();

  void SetName(const YString& name) { name_ = name; }
  [[nodiscard]] const YString& GetName() const { return name_; }

  // Opens the named file; an open one is closed first. New files in "TEMP:" have mode 0600, and what is there must be a
  // plain file; new files elsewhere follow the process's umask. Folders can't be opened. False when the system refuses
  // or the values make no sense together; LastError tells why.
  bool Open(int creation, std::uint32_t access, std::uint32_t share = yinet::kShareRead,
            std::uint32_t attributes = yinet::kAttributeNormal);
  [[nodiscard]] bool IsOpen() const { return descriptor_ >= 0; }
  // Bytes read, fewer than asked for only at the end of the file; -1 on failure.
  long Read(void* target, long count);
  // True when all bytes were taken by the system.
  bool Write(const void* bytes, long count);
  bool Write(std::string_view bytes) { return Write(bytes.data(), static_cast<long>(bytes.size())); }
  [[nodiscard]] std::int64_t GetFileSize() const;  // bytes; -1 when neither open nor there
  bool Seek(std::int64_t position);                // from the start of the file
  // False when closing reports that written data was lost.
  bool Close();
  [[nodiscard]] int LastError() const { return last_error_; }  // errno of the last failure of this object, 0 for none
  [[nodiscard]] int Descriptor() const { return descriptor_; }

  // Reads the whole open file from the current position; false on failure.
  bool ReadAll(std::string& target);

  // For these three errno tells why they failed.
  static bool Exist(const YString& name);   // a file of any kind that is no folder, or a link that leads nowhere
  static bool Delete(const YString& name);  // never a folder; of a link, the link itself
  // Fails, and changes nothing, when both names mean one file. When the copying itself fails, no half file is left.
  static bool Copy(const YString& from, const YString& to, bool overwrite = true);

  // Parts of a name, without touching the disk. The extension begins with its dot: "C:\a\b.txt" has the path "C:\a\",
  // the name "b" and the extension ".txt". A name that begins with its only dot (".x") is all extension.
  static YString ExtractName(const YString& path);
  static YString ExtractExtension(const YString& path);
  static YString ExtractPath(const YString& path);
  static YString ExtractNameAndExtension(const YString& path);

 private:
  bool failed();  // keeps errno; always false

  YString name_;
  int descriptor_ = -1;
  int last_error_ = 0;
};

// Resolves logical names. Stateless towards its callers; safe from several threads.
class YINET_API YFileManager_class {
 public:
  // The real path of a logical name, absolute, in the text form of the library (Windows-1252 where it can). A separator
  // at the end stays, and "TEMP:" has one, so that a name can be put behind it. Empty when it cannot be resolved (a
  // refused name, a drive letter without a folder, no usable temporary folder), which is logged, and for an empty name.
  YString ResolvePath(const YString& name) const;
  // The same as bytes for the system's calls (UTF-8).
  std::string ResolveSystemPath(std::string_view name) const;
  bool FolderExists(const YString& name) const;
  bool CreateFolder(const YString& name) const;  // with all missing folders above it; true when it is there afterwards
  // Deletes files and sub-folders in a folder, never through links; the folder stays, must belong to the caller's user
  // and may be no link itself. False when something could not be deleted; its sub-folders may have moved up then.
  bool EmptyFolder(const YString& name) const;
  // Names of the entries of a folder, "." and ".." left out, as library text; unsorted, and no more than
  // `limit` of them unless it is negative.
  std::vector<YString> ListFolder(const YString& name, int limit = -1) const;
};
YINET_API extern YFileManager_class YFileManager;

namespace yinet {

// Makes "TEMP:" point to another folder for this process; the empty text restores the default, a private folder per
// user (mode 0700, owner checked) that is created on first use. `folder` is a path of the system.
YINET_API void set_temporary_folder(std::string_view folder);

}  // namespace yinet
