#include "yinet/net/known_hosts.h"

#include "yinet/host/setting_table.h"
#include "yinet/host/yfile.h"

namespace yinet {

std::string known_hosts_path() {
  const std::string file = setting_text(settings::kSshKnownHosts);
  if (file.empty()) return {};
  const std::string path = YFileManager.ResolveSystemPath(file);
  return path.empty() ? "/dev/null" : path;
}

}  // namespace yinet
