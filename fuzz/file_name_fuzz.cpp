// File names on their way to the disk and back.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "yinet/host/settings.h"
#include "yinet/host/yfile.h"
#include "yinet/host/ylog.h"

namespace {

constexpr std::string_view kTemporary = "/tmp";  // nothing is written there
constexpr std::string_view kDrive = "/drive";

void require(bool condition) {
  if (!condition) std::abort();
}

bool prepare() {
  yinet::set_log_sink([](const yinet::LogRecord&) {});
  yinet::set_temporary_folder(kTemporary);
  yinet::set_setting("Dateien", "LaufwerkC", std::string(kDrive));
  return true;
}

// Whatever follows the prefix, the path lies in the folder behind it.
void stays_below(std::string_view folder, const std::string& path) {
  if (path.empty()) return;
  require(path.starts_with(folder) && path[folder.size()] == '/');
  require((path + "/").find("/../") == std::string::npos);
  require(path.find('\0') == std::string::npos);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool prepared = prepare();
  require(prepared);
  const std::string input(reinterpret_cast<const char*>(data), size);
  stays_below(kTemporary, YFileManager.ResolveSystemPath("TEMP:" + input));
  stays_below(kDrive, YFileManager.ResolveSystemPath("C:" + input));

  const YString name("/" + input);
  const std::string path = YFileManager.ResolveSystemPath(name);
  require(YFileManager.ResolveSystemPath(YFileManager.ResolvePath(name)) == path);

  const YString parts[] = {YFile::ExtractPath(name), YFile::ExtractName(name), YFile::ExtractExtension(name)};
  require(parts[0] + parts[1] + parts[2] == name);
  require(YFile::ExtractNameAndExtension(name) == parts[1] + parts[2]);
  require(parts[1].str().find_first_of("/\\") == std::string::npos);
  return 0;
}
